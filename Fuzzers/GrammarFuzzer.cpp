#include <fuzzer/FuzzedDataProvider.h>

#include <cstddef>
#include <cstdint>
#include <string>

#include "Fuzzers/Checks.h"
#include "Fuzzers/ProgramText.h"
#include "Fuzzers/Rendering.h"
#include "Tests/Source/KorTemplateParserSupport.h"
#include "Tool/JSONReader.h"

// Templates that the input makes up by the grammar, and with a few mistakes.

namespace tavlo::fuzz {

namespace {

void run(FuzzedDataProvider& input) {
  static const Ref<NSDictionary> data = readJSONObject(kProgramData);
  const std::string program = programText(input);
  const std::string text = mutatedText(input, program);
  Ref<KorTemplate> compiled;
  const test::parsing::Raised raised = test::parsing::raisedBy([&] { compiled = KorTemplate::compile(text); });
  if (text == program && compiled == nullptr) requireEqual(raised.text(), "", "A valid program compiles: " + program);
  if (compiled != nullptr) checkRendering(compiled, data);
}

}  // namespace

}  // namespace tavlo::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  FuzzedDataProvider input(data, size);
  tavlo::fuzz::run(input);
  return 0;
}
