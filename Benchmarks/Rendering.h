#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "Foundation/Ref.h"
#include "Source/KorTemplate.h"
#include "Source/KorTemplateEnvironment.h"
#include "Source/KorTemplateStringStream.h"

namespace tavlo::benchmarks {

// A compiled template with its data, to be rendered over and over.
class Rendering {
 public:
  // `data` is a JSON object, whose members become globals.
  Rendering(std::string_view text, std::string_view data);

  // One rendering into a new text, which starts with room for `capacity` bytes. What it returns has the output in its
  // buffer and is good until the next one.
  const KorTemplateStringStream& run(std::size_t capacity);

  // The output of one rendering, followed by its diagnostics.
  std::string output();

 private:
  Ref<KorTemplate> template_;
  Ref<KorTemplateEnvironment> environment_;
  Ref<KorTemplateStringStream> output_;
  Ref<KorTemplateStringStream> errors_;
};

// A whole file below the root of the tree.
std::string readSourceFile(const std::string& path);

}  // namespace tavlo::benchmarks
