#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>
#include <optional>
#include <string>

#include "Foundation/NSArray.h"
#include "Foundation/NSDictionary.h"
#include "Source/KorTemplateStringStream.h"
#include "Tests/Foundation/Repeated.h"
#include "Tests/Source/HostClasses.h"

namespace tavlo::test {

namespace {

// Statements that nobody can watch are run without a scope and without strings in between. Here somebody watches.

std::int32_t depthOf(const Stage& stage) {
  return stage.environment->stack()->frames().count();
}

TEST(PlainStatements, AreWrittenInTheirScopeWhereAStreamLooksAtIt) {
  const Stage stage;
  const Ref<RecordingStream> stream = makeRef<RecordingStream>();
  std::vector<std::int32_t> depths;
  stream->onWrite = [&](const Text& /*text*/) { depths.push_back(depthOf(stage)); };
  stage.environment->setOutputStream(stream);
  stage.set("x", "text");
  stage.run("0<? if (1) ?>1<? if (1) ?>2<?= $x ?><? endif ?><? endif ?><? if (0) ?><? elseif (1) ?>2<? endif ?>0");
  EXPECT_THAT(depths, testing::ElementsAre(1, 2, 3, 3, 3, 1));
}

TEST(PlainStatements, GoToTheStreamThatAStatementBetweenThemSets) {
  for (const char* text : {"a<? swap() ?>b<?= $x ?>", "<? if (1) ?>a<? swap() ?>b<?= $x ?><? endif ?>",
                           "<? foreach ($e in $list) ?>a<? swap() ?>b<?= $x ?><? endforeach ?>"}) {
    const Stage stage;
    const Ref<KorTemplateStringStream> second = KorTemplateStringStream::stringStream();
    stage.set("x", "c");
    stage.set("list", NSArray::arrayWithObjects({1}));
    stage.define("swap", [&](KorTemplateEnvironment* environment, ListArgument<Value>) -> Value {
      environment->setOutputStream(second);
      return NSNull::null();
    });
    stage.run(text);
    EXPECT_EQ(stage.text(), "a") << text;
    EXPECT_EQ(second->buffer()->string(), "bc") << text;
  }
}

TEST(PlainStatements, ReturnWhatAVariableOfAnOuterScopeHolds) {
  const Stage stage;
  stage.set("outer", "kept");
  stage.run(
      "<? function f($n) ?><? if ($n) ?><? return $outer ?><? endif ?>-<? return $n ?><? endfunction ?>"
      "<?= f(1) ?><?= f(0) ?>");
  EXPECT_EQ(stage.text(), "kept-0");
  EXPECT_EQ(depthOf(stage), 1);
}

std::string nestedIn(int blocks, const std::string& text) {
  return repeated("<? if (1) ?>", blocks) + text + repeated("<? endif ?>", blocks);
}

TEST(PlainStatements, TakeTheSameStepsWhereverOutputGoes) {
  const std::string shortText(40, 'a');
  const std::string longText(300, 'b');
  const auto stepsTaken = [&](const std::string& text, const Ref<KorTemplateStream>& stream,
                              std::optional<std::uint64_t> output) {
    const Stage stage;
    stage.set("s", shortText);
    stage.set("l", longText);
    stage.set("n", 7);
    stage.set("d", NSDictionary::dictionaryWithEntries({{"k", shortText}}));
    KorTemplateLimits limits;
    limits.output = output;
    stage.environment->setLimits(limits);
    stage.environment->setOutputStream(stream);
    stage.run(text);
    return stage.environment->stepsTaken();
  };
  for (const char* const written : {"<?= $s ?>", "<?= $d ?>", "<?= $d.k ?>", "<?= $none ?>", "<?= $s + $s ?>",
                                    "<?= $s + $n ?>", "<?= $n + $s + $n ?>", "<?= $n + $n ?>", "<?= $l + $s ?>",
                                    "<?= $s + $s + $s + $s + $s + $s + $s ?>", "<?= $l ?>", "<?= $s + $d ?>"}) {
    for (const int blocks : {0, 63, 64, 200}) {
      const std::string text = nestedIn(blocks, std::string(written) + written + written);
      const std::uint64_t steps = stepsTaken(text, makeRef<RecordingStream>(), {});
      EXPECT_EQ(stepsTaken(text, KorTemplateStringStream::stringStream(), {}), steps) << blocks << written;
      EXPECT_EQ(stepsTaken(text, KorTemplateStringStream::stringStream(), 1'000'000), steps) << blocks << written;
    }
  }
}

TEST(PlainStatements, EndWithTheOneThatReturns) {
  const Stage stage;
  stage.run(
      "<? function f($n) ?><? if ($n) ?>a<? return $n ?>b<? $late = 1 ?>c<? endif ?>d<? endfunction ?><?= f(1) ?>");
  EXPECT_EQ(stage.text(), "a1");
  EXPECT_EQ(depthOf(stage), 1);
}

// What is written at once and what goes through a variable is the same text.
TEST(JoinedTexts, AreTheSameHoweverTheyAreMade) {
  const Value values[] = {"ab",
                          "\u00e9\U0001f600",
                          "",
                          1,
                          -2.5,
                          true,
                          std::numeric_limits<std::uint64_t>::max(),
                          NSNull::null(),
                          NSArray::arrayWithObjects({1}),
                          NSDictionary::dictionaryWithEntries({{"key", "value"}})};
  for (const Value& left : values) {
    for (const Value& middle : values) {
      for (const Value& right : values) {
        const Stage stage;
        stage.set("a", left);
        stage.set("b", middle);
        stage.set("c", NSDictionary::dictionaryWithEntries({{"d", right}}));
        stage.run("<?= $a + $b + $c.d ?>|<? $t = ($a + $b) ?><? $t = ($t + $c.d) ?><?= $t ?>");
        const std::string text = stage.text();
        const std::size_t middleOfText = text.size() / 2;
        EXPECT_EQ(text.substr(0, middleOfText), text.substr(middleOfText + 1))
            << left.description() << " + " << middle.description() << " + " << right.description();
      }
    }
  }
}

TEST(JoinedTexts, AddNumbersThatStandFirst) {
  const Stage stage;
  stage.set("n", 2);
  stage.run("<?= 1 + $n + \"a\" ?> <?= \"a\" + 1 + $n ?> <?= 1 + \"a\" + $n ?> <?= 1 + $n + 3 ?>");
  EXPECT_EQ(stage.text(), "3a a12 1a2 6");
}

TEST(JoinedTexts, KeepTheBoundOfStrings) {
  const Stage stage;
  KorTemplateLimits limits;
  limits.stringLength = 100;
  stage.environment->setLimits(limits);
  stage.set("s", std::string(50, 's'));
  stage.run("<?= $s + $s + \"\" ?>");
  EXPECT_EQ(stage.text(), std::string(100, 's'));
  EXPECT_THROW(stage.run("<?= $s + $s + \"x\" ?>"), KorTemplateLimitException);
  EXPECT_THROW(stage.run("<? $t = ($s + $s + \"x\") ?>"), KorTemplateLimitException);
}

}  // namespace

}  // namespace tavlo::test
