#include "Fuzzers/CompiledText.h"

#include <optional>

#include "Foundation/Utf8.h"
#include "Fuzzers/Checks.h"
#include "Tests/Differential/WithoutAddresses.h"
#include "Tests/Source/KorTemplateParserSupport.h"

namespace tavlo::fuzz {

namespace {

std::string textOf(SourceRange range) {
  return std::to_string(range.offset) + "+" + std::to_string(range.length) + " ";
}

void requireWithin(SourceRange range, const std::string& text, std::string_view what) {
  require(range.offset <= text.size() && range.length <= text.size() - range.offset, what);
}

void checkFailure(const KorTemplateFailure& failure, const test::parsing::Raised& raised, const std::string& text) {
  requireEqual(failure.name(), raised.name, "A failure has the name of what was raised");
  requireEqual(failure.reason(), raised.reason, "A failure has the reason of what was raised");
  require(failure.place().offset() + failure.place().length() <= text.size(), "A failure stands within the text");
  require(!firstInvalidByte(failure.text()).has_value(), "The text of a failure is valid UTF-8");
}

}  // namespace

std::string textOf(KorTemplate& compiled) {
  std::string shapes;
  std::string descriptions;
  for (const Ref<KorTemplateStatement>& statement : compiled.statements()) {
    shapes += textOf(statement->sourceRange()) + test::parsing::shapeOf(statement) + "\n";
    descriptions += statement->description() + "\n";
  }
  return shapes + test::withoutAddresses(descriptions);
}

std::string compiledText(const std::string& text) {
  SourceRange failedAt;
  Ref<KorTemplate> compiled;
  const test::parsing::Raised raised =
      test::parsing::raisedBy([&] { compiled = KorTemplate::compile(text, KorTemplateLimits{}, &failedAt); });
  return raised.name.empty() ? textOf(*compiled) : raised.text() + " " + textOf(raised.place) + textOf(failedAt);
}

Compilation compile(const std::string& text, const KorTemplateCompileOptions& options) {
  Compilation result;
  KorTemplateFailure failure;
  const test::parsing::Raised raised =
      test::parsing::raisedBy([&] { result.compiled = KorTemplate::compile(text, options, &failure); });
  SourceRange failedAt;
  const test::parsing::Raised again =
      test::parsing::raisedBy([&] { (void)KorTemplate::compile(text, options.limits, &failedAt); });
  requireEqual(again.text(), raised.text(), "Compiling with a name makes no difference");
  requireWithin(failedAt, text, "A compilation fails within the text");

  const KorTemplateResult<Ref<KorTemplate>> tried = KorTemplate::tryCompile(text, options);
  require(tried.succeeded() == raised.name.empty(), "tryCompile() answers as compile() raises");
  if (!raised.name.empty()) {
    requireWithin(raised.place, text, "A syntax error stands within the text");
    checkFailure(failure, raised, text);
    requireEqual(tried.failure().text(), failure.text(), "tryCompile() answers with what compile() tells");
    result.text = raised.text() + " " + textOf(raised.place) + textOf(failedAt);
    result.hasReachedLimit = raised.name == "KorTemplateLimitException";
    return result;
  }
  result.text = textOf(*result.compiled);
  for (const Ref<KorTemplateStatement>& statement : result.compiled->statements()) {
    requireWithin(statement->sourceRange(), text, "A statement stands within the text");
  }
  requireEqual(textOf(**tried), result.text, "Compiling twice leads to the same");
  return result;
}

}  // namespace tavlo::fuzz
