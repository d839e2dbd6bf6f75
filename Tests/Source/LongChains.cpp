#include <gtest/gtest.h>

#include <string>

#include "Source/KorTemplateConditionalStatement.h"
#include "Tests/Foundation/Raised.h"
#include "Tests/Foundation/Repeated.h"
#include "Tests/Memory/WorkBound.h"
#include "Tests/Source/HostClasses.h"
#include "Tests/Source/SmallThread.h"

namespace tavlo::test {

namespace {

constexpr int kLinks = 100'000;

// Compiles, runs, copies, describes and frees the template's only statement on a small stack.
void expectFromChain(const std::string& text, const std::string& written, const std::string& piece) {
  const WorkBound bound(text.substr(0, 20));
  runOnSmallThread([&] {
    const Stage stage;
    stage.set("x", "found");
    Ref<KorTemplate> compiled = KorTemplate::compile(text);
    ASSERT_EQ(compiled->statements().count(), 1);
    compiled->executeWithEnvironment(stage.get());
    EXPECT_EQ(stage.text(), written);
    EXPECT_EQ(stage.depth(), 1);
    const std::string description = compiled->statements()[0]->description();
    std::size_t pieces = 0;
    for (std::size_t at = description.find(piece); at != std::string::npos; at = description.find(piece, at + 1)) {
      ++pieces;
    }
    EXPECT_EQ(pieces, static_cast<std::size_t>(kLinks));
    Ref<KorTemplateStatement> copy = compiled->copyWithZone();
    compiled = nullptr;
    stage.output->writes.clear();
    copy->executeWithEnvironment(stage.get());
    EXPECT_EQ(stage.text(), written);
    copy = nullptr;
  });
}

TEST(LongChains, OfOperatorsFitASmallStack) {
  expectFromChain("<?= 0" + repeated(" + 1", kLinks) + " ?>", std::to_string(kLinks), "operator: ");
}

TEST(LongChains, OfElseifsFitASmallStack) {
  expectFromChain(
      "<? if (false) ?>a" + repeated("<? elseif (false) ?>b", kLinks - 1) + "<? else ?><?= $x ?><? endif ?>", "found",
      "trueStatements: ");
}

TEST(LongChains, OfElseifsPopAllTheirScopesWhenTheyFail) {
  runOnSmallThread([] {
    const Stage stage;
    const std::string text = "<? if (false) ?>a" + repeated("<? elseif (false) ?>b", 1000) + "<? else ?>";
    EXPECT_EQ(raisedBy([&] { stage.run(text + "<? 1 / 0 ?><? endif ?>"); }), "NSGenericException: Divide by zero");
    EXPECT_EQ(stage.depth(), 1);
    stage.run("<? function f() ?>" + text + "<? return 7 ?><? endif ?>never<? endfunction ?><?= f() ?>");
    EXPECT_EQ(stage.text(), "7");
    EXPECT_EQ(stage.depth(), 1);
  });
}

TEST(LongChains, MadeByHandAreFreedOnASmallStack) {
  const WorkBound bound("chains made by hand");
  runOnSmallThread([] {
    int freed = 0;
    const auto countEnd = [&freed] { ++freed; };
    Ref<KorTemplateExpression> left = literal(makeRef<EndingObject>(countEnd));
    Ref<KorTemplateExpression> right = literal(makeRef<EndingObject>(countEnd));
    Ref<KorTemplateStatement> nested = output(literal(makeRef<EndingObject>(countEnd)));
    for (int link = 0; link < kLinks; ++link) {
      left = binary(KorTemplateOperatorAdd, left, literal(1));
      right = binary(KorTemplateOperatorAdd, literal(1), right);
      const Ref<KorTemplateConditionalStatement> outer = makeRef<KorTemplateConditionalStatement>();
      outer->addTrueStatement(nested);
      nested = outer;
    }
    EXPECT_EQ(freed, 0);
    left = nullptr;
    right = nullptr;
    nested = nullptr;
    EXPECT_EQ(freed, 3);
  });
}

TEST(LongChains, OfOperatorsThatLeadBackAreRefused) {
  const auto first = makeRef<KorTemplateBinaryExpression>(KorTemplateOperatorAdd);
  const auto second = makeRef<KorTemplateBinaryExpression>(KorTemplateOperatorAdd);
  const auto entry = makeRef<KorTemplateBinaryExpression>(KorTemplateOperatorAdd);
  first->setLeftOperand(second);
  second->setLeftOperand(first);
  entry->setLeftOperand(first);
  const std::string refusal = "NSInvalidArgumentException: The left operands of an operator lead back to it";
  const Stage stage;
  EXPECT_EQ(raisedBy([&] { (void)entry->evaluateWithEnvironment(stage.get()); }), refusal);
  EXPECT_EQ(raisedBy([&] { (void)entry->copyWithZone(); }), refusal);
  second->setLeftOperand(literal(1));
}

TEST(LongChains, OfConditionalsThatLeadBackAreNotCopied) {
  const auto first = makeRef<KorTemplateConditionalStatement>(literal(false));
  const auto second = makeRef<KorTemplateConditionalStatement>(literal(false));
  first->addFalseStatement(second);
  second->addFalseStatement(first);
  EXPECT_EQ(raisedBy([&] { (void)first->copyWithZone(); }),
            "NSInvalidArgumentException: The last false statements of a conditional lead back to it");
  second->falseStatements().removeAt(0);
}

TEST(LongChains, ToTheRightEndByALimitNotByTheStack) {
  const WorkBound bound("a chain to the right");
  runOnSmallThread([] {
    const Stage stage;
    Ref<KorTemplateExpression> right = literal(1);
    for (int link = 0; link < kLinks; ++link) right = binary(KorTemplateOperatorAdd, literal(1), right);
    EXPECT_THROW((void)right->evaluateWithEnvironment(stage.get()), KorTemplateLimitException);
    EXPECT_THROW((void)right->copyWithZone(), KorTemplateLimitException);
    stage.run("a");
    EXPECT_EQ(stage.text(), "a");
  });
}

}  // namespace

}  // namespace tavlo::test
