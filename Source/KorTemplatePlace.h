#pragma once

#include <cstddef>
#include <string>
#include <utility>

#include "Foundation/Ref.h"
#include "Source/KorTemplateSource.h"
#include "Source/SourceRange.h"
#include "Source/TextPlace.h"

namespace tavlo {

// A place in a template's text, which it keeps; or no place, where what failed was made by hand.
class KorTemplatePlace {
 public:
  KorTemplatePlace() = default;
  // Nowhere where the source is absent or the range is not known.
  KorTemplatePlace(Ref<KorTemplateSource> source, SourceRange range) : source_(std::move(source)), range_(range) {}

  // Whether there is such a place. The template's name may be known all the same.
  bool isKnown() const noexcept { return source_ != nullptr && range_.isKnown(); }
  // Empty for a template without a name, and where the template is not known.
  const std::string& templateName() const noexcept;

  // From 1; the column in Unicode characters. 0 for no place.
  std::size_t line() const { return inText().line; }
  std::size_t column() const { return inText().column; }
  // In bytes. 0 for no place.
  std::size_t offset() const noexcept { return isKnown() ? range_.offset : 0; }
  std::size_t length() const noexcept { return isKnown() ? range_.length : 0; }
  // All four at once.
  TextPlace inText() const;

  // "name:line:column", or what of it is known; "template" stands for a name that is not.
  std::string description() const;
  // The line of the place and a line with a caret below it, each ended with "\n"; empty for no place.
  std::string excerpt() const;

 private:
  Ref<KorTemplateSource> source_;
  SourceRange range_;
};

}  // namespace tavlo
