#include <gtest/gtest.h>

#include "Tests/Differential/RandomText.h"
#include "Tests/Differential/RecogniserSwitch.h"
#include "Tests/Source/KorTemplateParserSupport.h"

namespace tavlo::test {

namespace {

// The statements of a text with their places, or what was raised with its place.
std::string outcome(const std::string& text) {
  std::string result;
  const auto place = [&](SourceRange range) {
    return std::to_string(range.offset) + "+" + std::to_string(range.length) + " ";
  };
  SourceRange failedAt;
  const parsing::Raised raised = parsing::raisedBy([&] {
    const Ref<KorTemplate> compiled = KorTemplate::compile(text, {}, &failedAt);
    for (const Ref<KorTemplateStatement>& statement : compiled->statements()) {
      result += place(statement->sourceRange()) + parsing::shapeOf(statement) + "\n";
    }
  });
  return raised.name.empty() ? result : place(failedAt) + place(raised.place) + raised.text();
}

void expectSameOutcome(const std::string& text) {
  const std::string with = outcome(text);
  const RecogniserSwitch off(false);
  EXPECT_EQ(outcome(text), with) << readable(text);
}

TEST(CompileDifferential, RealTemplates) {
  const std::vector<std::string> templates = realTemplates(20'000);
  ASSERT_GT(templates.size(), 500U);
  for (const std::string& text : templates) expectSameOutcome(text);
}

TEST(CompileDifferential, MutatedTemplates) {
  Chooser chooser(21);
  const std::vector<std::string> templates = realTemplates(400);
  for (int time = 0; time < 10'000 && !testing::Test::HasFailure(); ++time) {
    expectSameOutcome(mutated(chooser, chooser.from(templates), trickyPieces()));
  }
}

}  // namespace

}  // namespace tavlo::test
