#include <fuzzer/FuzzedDataProvider.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "Foundation/Utf8.h"
#include "Fuzzers/Checks.h"
#include "Fuzzers/CompiledText.h"
#include "Matchery/KorRegex.h"

// Any bytes as a template: the text, and at the end of the input the length of the template's name and the limits.

namespace tavlo::fuzz {

namespace {

// Whether a name stands before a parenthesis in the shapes of statements.
bool mayHaveCalls(std::string_view shapes) {
  for (std::size_t at = shapes.find('('); at != std::string_view::npos; at = shapes.find('(', at + 1)) {
    if (isWordCharacter(codePointBefore(shapes, at).value)) return true;
  }
  return false;
}

// A copied call has no arguments; all else is copied, and a copy of the copy is the same again.
void checkCopy(const Compilation& compilation) {
  const Ref<KorTemplateStatement> copied = compilation.compiled->copyWithZone();
  auto* const copy = dynamic_cast<KorTemplate*>(copied.get());
  require(copy != nullptr, "A template's copy is a template");
  const std::string text = textOf(*copy);
  if (!mayHaveCalls(compilation.text)) requireEqual(text, compilation.text, "A copy is what it was made of");
  const Ref<KorTemplateStatement> again = copy->copyWithZone();
  requireEqual(textOf(dynamic_cast<KorTemplate&>(*again)), text, "A copy's copy is the same");
}

void run(FuzzedDataProvider& input) {
  KorTemplateCompileOptions tight;
  tight.limits.nesting = input.ConsumeIntegralInRange<std::int32_t>(0, 12);
  tight.limits.stringLength = input.ConsumeIntegral<std::uint16_t>();
  tight.name = input.ConsumeBytesAsString(input.ConsumeIntegralInRange<std::size_t>(0, 4));
  const std::string text = input.ConsumeRemainingBytesAsString();

  const Compilation compilation = compile(text);
  if (compilation.compiled != nullptr) checkCopy(compilation);
  require(!firstInvalidByte(text).has_value() || compilation.compiled == nullptr, "Text that is no UTF-8 is refused");

  // A limit may only make a compilation fail, and fail earlier.
  const Compilation limited = compile(text, tight);
  if (!limited.hasReachedLimit) requireEqual(limited.text, compilation.text, "A limit that is not reached is not seen");
}

}  // namespace

}  // namespace tavlo::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  FuzzedDataProvider input(data, size);
  tavlo::fuzz::run(input);
  return 0;
}
