#include <cstddef>
#include <cstdint>
#include <string>

#include "Foundation/NSDictionary.h"
#include "Fuzzers/Checks.h"
#include "Fuzzers/Rendering.h"
#include "Tests/Source/KorTemplateParserSupport.h"
#include "Tool/JSONError.h"
#include "Tool/JSONReader.h"

// A template, a zero byte, and the data as JSON.

namespace tavlo::fuzz {

namespace {

Ref<NSDictionary> dataOf(const std::string& text) {
  try {
    return readJSONObject(text);
  } catch (const JSONError&) {
    return NSDictionary::dictionary();
  }
}

void run(const std::string& text, const std::string& data) {
  Ref<KorTemplate> compiled;
  (void)test::parsing::raisedBy([&] { compiled = KorTemplate::compile(text); });
  if (compiled != nullptr) checkRendering(compiled, dataOf(data));
}

}  // namespace

}  // namespace tavlo::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const auto [text, json] = tavlo::fuzz::partsOf(data, size);
  tavlo::fuzz::run(text, json);
  return 0;
}
