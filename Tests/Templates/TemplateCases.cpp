#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "Source/KorTemplate.h"
#include "Source/KorTemplateEnvironment.h"
#include "Source/KorTemplateStringStream.h"
#include "Source/KorTemplateSyntaxErrorException.h"
#include "Source/TextPlace.h"
#include "Tests/Templates/CaseFile.h"
#include "Tool/JSONReader.h"

namespace tavlo::test {

namespace {

// Keeps each diagnostic as a line.
class LineStream final : public KorTemplateStream {
 public:
  void write(const Text& text) override {
    if (!lines.empty()) lines += '\n';
    lines += text.isAbsent() ? std::string_view("(null)") : text.view();
  }

  std::string lines;
};

struct Outcome {
  std::string output;
  std::string diagnostics;
  std::string error;
  std::string line;
  std::string place;
};

std::string lineAndColumn(const std::string& text, SourceRange range) {
  const TextPlace place = TextPlace::inText(text, range.offset);
  return std::to_string(place.line) + ":" + std::to_string(place.column);
}

std::string describe(const NSException& exception) {
  return exception.name() + ": " + exception.description();
}

Outcome run(const std::string& text, const std::optional<std::string>& data) {
  Outcome outcome;
  const Ref<KorTemplateEnvironment> environment = KorTemplateEnvironment::environment();
  const Ref<KorTemplateStringStream> output = KorTemplateStringStream::stringStream();
  const Ref<LineStream> errors = makeRef<LineStream>();
  environment->setOutputStream(output);
  environment->setErrorStream(errors);
  const Ref<NSDictionary> globals = data.has_value() ? readJSONObject(*data) : NSDictionary::dictionary();
  for (const NSDictionary::Entry& entry : globals->entries()) {
    environment->setValueForGlobalVariableWithName(entry.value, entry.key->view());
  }
  try {
    KorTemplate::compile(text)->executeWithEnvironment(environment.get());
  } catch (const KorTemplateSyntaxErrorException& exception) {
    outcome.error = describe(exception);
    outcome.line = std::to_string(exception.line());
    outcome.place = lineAndColumn(text, exception.place());
  } catch (const NSException& exception) {
    outcome.error = describe(exception);
  } catch (const KorTemplateLimitException& exception) {
    outcome.error = std::string("KorTemplateLimitException: ") + exception.what();
  }
  outcome.output = std::string(output->buffer()->string());
  outcome.diagnostics = errors->lines;
  EXPECT_EQ(environment->stack()->frames().count(), 1) << "the stack is not as deep as it was";
  return outcome;
}

class TemplateCase : public testing::TestWithParam<std::pair<std::filesystem::path, std::string>> {};

TEST_P(TemplateCase, HasItsOutcome) {
  const CaseFile file = readCaseFile(GetParam().first, GetParam().second);
  SCOPED_TRACE(GetParam().first.string() + ":1");
  const std::optional<std::string> text = file.section("template");
  ASSERT_TRUE(text.has_value());
  const Outcome outcome = run(*text, file.section("data"));
  EXPECT_EQ(outcome.output, file.section("output").value_or(""));
  EXPECT_EQ(outcome.diagnostics, file.section("diagnostics").value_or(""));
  const std::string error = file.section("error").value_or("");
  if (error.ends_with(": *")) {  // any reason
    EXPECT_THAT(outcome.error, testing::StartsWith(error.substr(0, error.size() - 1)));
  } else {
    EXPECT_EQ(outcome.error, error);
  }
  EXPECT_EQ(outcome.line, file.section("line").value_or(outcome.line));
  EXPECT_EQ(outcome.place, file.section("at").value_or(outcome.place));
}

std::string nameOf(const testing::TestParamInfo<std::pair<std::filesystem::path, std::string>>& info) {
  std::string name = info.param.second;
  for (char& letter : name) {
    if (std::isalnum(static_cast<unsigned char>(letter)) == 0) letter = '_';
  }
  return name;
}

INSTANTIATE_TEST_SUITE_P(Templates, TemplateCase, testing::ValuesIn(findCaseFiles(TAVLO_SOURCE_DIR "/Tests/Templates")),
                         nameOf);

}  // namespace

}  // namespace tavlo::test
