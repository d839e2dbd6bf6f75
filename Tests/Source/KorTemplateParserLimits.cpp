#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>

#include <functional>

#include "Tests/Foundation/Repeated.h"
#include "Tests/Memory/WorkBound.h"
#include "Tests/Source/KorTemplateParserSupport.h"

namespace tavlo::test::parsing {

namespace {

struct NestingRow {
  const char* what;
  std::string before;
  std::string open;
  std::string middle;
  std::string close;
  std::string after;
  std::size_t outside;  // levels that `before` opens

  std::string text(std::size_t levels) const {
    return before + repeated(open, levels - outside) + middle + repeated(close, levels - outside) + after;
  }
};

std::vector<NestingRow> nestingRows() {
  return {
      {"parentheses", "<?= ", "(", "1", ")", " ?>", 0},
      {"argument lists", "<?= ", "f(", "1", ")", " ?>", 0},
      {"parentheses before arguments", "<?= ", "(", "f(1)", ")", " ?>", 1},
      {"conditionals", "", "<? if (1) ?>", "x", "<? endif ?>", "", 0},
      {"conditionals in false branches", "", "<? if (1) ?><? else ?>", "x", "<? endif ?>", "", 0},
      {"loops", "", "<? foreach ($x in $y) ?>", "x", "<? endforeach ?>", "", 0},
      {"functions", "", "<? function f() ?>", "x", "<? endfunction ?>", "", 0},
      {"parentheses inside a conditional", "<? if (1) ?><?= ", "(", "1", ")", " ?><? endif ?>", 1},
      {"parentheses inside a loop and a function", "<? foreach ($x in $y) ?><? function f() ?><? ", "(", "1", ")",
       " ?><? endfunction ?><? endforeach ?>", 2},
      {"right operands", "<?= ", "1 + (", "1", ")", " ?>", 0},
  };
}

TEST(KorTemplateParserLimits, AThousandLevelsStillWork) {
  for (const NestingRow& row : nestingRows()) {
    const std::string text = row.text(1000);
    EXPECT_EQ(raisedBy([&] { (void)KorTemplate::compile(text); }).text(), "nothing raised") << row.what;
  }
}

TEST(KorTemplateParserLimits, OneLevelMoreIsRefusedAtItsOpening) {
  for (const NestingRow& row : nestingRows()) {
    const std::string text = row.text(1001);
    SourceRange failedAt;
    try {
      (void)KorTemplate::compile(text, {}, &failedAt);
      ADD_FAILURE() << row.what;
    } catch (const KorTemplateLimitException& exception) {
      EXPECT_EQ(exception.limit(), KorTemplateLimit::Nesting) << row.what;
      EXPECT_EQ(exception.value(), 1000U) << row.what;
    }
    const bool isInMiddle = row.outside == 1 && row.middle == "f(1)";
    const std::size_t opened = row.before.size() + row.open.size() * (1000 - row.outside + (isInMiddle ? 1 : 0));
    const std::size_t ahead = row.open.ends_with('(') ? row.open.size() - 1 : 0;
    EXPECT_EQ(failedAt.offset, opened + (isInMiddle ? 1 : ahead)) << row.what;
    EXPECT_TRUE(failedAt.isKnown()) << row.what;
  }
}

TEST(KorTemplateParserLimits, TheHostsOwnBoundIsTaken) {
  KorTemplateLimits limits;
  limits.nesting = 3;
  for (const NestingRow& row : nestingRows()) {
    EXPECT_EQ(raisedBy([&] { (void)KorTemplate::compile(row.text(3), limits); }).text(), "nothing raised") << row.what;
    EXPECT_EQ(raisedBy([&] { (void)KorTemplate::compile(row.text(4), limits); }).name, "KorTemplateLimitException")
        << row.what;
  }
}

TEST(KorTemplateParserLimits, AnEmptyArgumentListIsAPairToo) {
  KorTemplateLimits limits;
  limits.nesting = 2;
  EXPECT_EQ(raisedBy([&] { (void)KorTemplate::compile("<?= (f()) ?>", limits); }).text(), "nothing raised");
  EXPECT_EQ(raisedBy([&] { (void)KorTemplate::compile("<?= ((f())) ?>", limits); }).name, "KorTemplateLimitException");
}

TEST(KorTemplateParserLimits, WhatStandsSideBySideIsNotNested) {
  const std::string text = repeated("<? if (((1))) ?>x<?= f((1)) ?><? endif ?>", 2000);
  KorTemplateLimits limits;
  limits.nesting = 4;
  EXPECT_EQ(raisedBy([&] { (void)KorTemplate::compile(text, limits); }).text(), "nothing raised");
}

// Runs on a thread with a stack of that size.
void runOnThread(std::size_t stackSize, const std::function<void()>& body) {
  pthread_attr_t attributes;
  ASSERT_EQ(pthread_attr_init(&attributes), 0);
  ASSERT_EQ(pthread_attr_setstacksize(&attributes, stackSize), 0);
  pthread_t thread;
  auto* argument = const_cast<std::function<void()>*>(&body);
  const auto start = [](void* function) -> void* {
    (*static_cast<std::function<void()>*>(function))();
    return nullptr;
  };
  ASSERT_EQ(pthread_create(&thread, &attributes, start, argument), 0);
  ASSERT_EQ(pthread_join(thread, nullptr), 0);
  pthread_attr_destroy(&attributes);
}

TEST(KorTemplateParserLimits, ASmallThreadEndsInTheSameCleanWay) {
  for (const std::size_t kilobytes : {128, 256}) {
    for (const NestingRow& row : nestingRows()) {
      const std::string deep = row.text(1000);
      const std::string deeper = row.text(5000);
      const std::string flat = row.text(3);
      const WorkBound bound(row.what);
      runOnThread(kilobytes * 1024, [&] {
        const std::string name = raisedBy([&] { (void)KorTemplate::compile(deep); }).name;
        EXPECT_TRUE(name.empty() || name == "KorTemplateLimitException") << row.what << ": " << name;
        EXPECT_EQ(raisedBy([&] { (void)KorTemplate::compile(deeper); }).name, "KorTemplateLimitException") << row.what;
        EXPECT_EQ(raisedBy([&] { (void)KorTemplate::compile(flat); }).text(), "nothing raised") << row.what;
      });
    }
  }
}

TEST(KorTemplateParserLimits, TheStackThatMustBeLeftIsTheHostsChoice) {
  KorTemplateLimits limits;
  limits.stackLeft = 1024 * 1024;
  runOnThread(256 * 1024, [&] {
    try {
      (void)KorTemplate::compile("<?= (1) ?>", limits);
      ADD_FAILURE() << "nothing raised";
    } catch (const KorTemplateLimitException& exception) {
      EXPECT_EQ(exception.limit(), KorTemplateLimit::Stack);
      EXPECT_EQ(exception.value(), 1024U * 1024U);
    }
  });
}

// What is large, and what becomes of it.
struct LargeRow {
  const char* what;
  std::string text;
  std::string outcome;  // the start of the exception's text
};

std::vector<LargeRow> largeTexts() {
  const std::string megabyte(1'000'000, 'x');
  return {
      {"literal text", repeated(megabyte, 10), "nothing raised"},
      {"text full of opening angles", repeated("< ", 500'000), "nothing raised"},
      {"blocks", repeated("<?= $x ?>", 100'000), "nothing raised"},
      {"blocks and texts", repeated("\n<? f() ?>", 100'000), "nothing raised"},
      {"a string literal", "<?= \"" + megabyte + "\" ?>", "nothing raised"},
      {"a block of white space", "<?" + std::string(1'000'000, '\n') + "?>", failedCheck("token != nil")},
      {"unclosed blocks", repeated("<?", 200'000), "NSRangeException"},
      {"a string that is not closed", "<?= \"" + megabyte, "KorTemplateSyntaxErrorException"},
      {"an unclosed if", "<? if ($a) ?>" + megabyte, failedCheck("token != nil")},
      {"unknown bytes", "<? " + repeated("#\x01", 100'000) + " ?>", "KorTemplateSyntaxErrorException"},
  };
}

std::vector<LargeRow> largeExpressions() {
  return {
      {"a chain of one operator", "<?= 1" + repeated(" + 1", 100'000) + " ?>", "nothing raised"},
      {"a chain of all operators", "<?= 1" + repeated(" + 1 * 2 - $a == 3 && $b", 20'000) + " ?>", "nothing raised"},
      {"a chain of assignments", "<? $a" + repeated(" = $b", 100'000) + " ?>", "nothing raised"},
      {"arguments", "<?= f(1" + repeated(", 1", 100'000) + ") ?>", "nothing raised"},
      {"pairs side by side", "<?= (1)" + repeated(" + (1)", 50'000) + " ?>", "nothing raised"},
      {"operands without operators", "<? " + repeated("1 ", 100'000) + " ?>", "KorTemplateSyntaxErrorException"},
      {"operators without operands", "<? " + repeated("+ ", 100'000) + " ?>", "KorTemplateSyntaxErrorException"},
      {"nested parentheses", "<?= " + repeated("(", 10'000) + "1" + repeated(")", 10'000) + " ?>",
       "KorTemplateLimitException"},
      {"nested calls", "<?= " + repeated("f(1, ", 10'000) + "1" + repeated(")", 10'000) + " ?>",
       "KorTemplateLimitException"},
      {"parentheses that never close", "<?= " + std::string(1'000'000, '('), "KorTemplateSyntaxErrorException"},
      {"parentheses in a block that never close", "<?= " + std::string(1'000'000, '(') + " ?>",
       "KorTemplateSyntaxErrorException"},
      {"parentheses that never open", "<?= " + std::string(1'000'000, ')') + " ?>", "KorTemplateSyntaxErrorException"},
      {"an unclosed parenthesis in each of many blocks", repeated("<?= (1) ?>", 50'000) + "<?= ( ?>",
       "KorTemplateSyntaxErrorException"},
  };
}

std::vector<LargeRow> largeStructures() {
  return {
      {"elseifs", "<? if ($a) ?>" + repeated("<? elseif ($b) ?>x", 100'000) + "<? endif ?>", "nothing raised"},
      {"nested ifs", repeated("<? if (1) ?>", 10'000) + repeated("<? endif ?>", 10'000), "KorTemplateLimitException"},
      {"ifs that never end", repeated("<? if (1) ?>", 10'000), "KorTemplateLimitException"},
      {"parameters", "<? function f(" + repeated("$a ", 100'000) + ") ?><? endfunction ?>", "nothing raised"},
      {"a head with a long tail", "<? if (1) " + repeated("x ", 100'000) + "?><? endif ?>", "nothing raised"},
      {"stray endings", repeated("<? endif ?>", 100'000), "nothing raised"},
  };
}

std::vector<LargeRow> hardLines() {
  return {
      {"slashes on one line", "<? " + std::string(20'000, '/') + " 1 ?>", "KorTemplateSyntaxErrorException"},
      {"slashes with spaces", "<? " + repeated("/ ", 20'000) + "1 ?>", "KorTemplateSyntaxErrorException"},
      {"escaped slashes", "<? " + repeated("/\\", 20'000) + "1 ?>", "KorTemplateSyntaxErrorException"},
      {"divisions", "<?= 1" + repeated(" / 1", 20'000) + " ?>", "nothing raised"},
      {"slashes before long white space", "<? " + repeated("/" + std::string(100, ' ') + "1", 2'000) + " ?>",
       "KorTemplateSyntaxErrorException"},
      {"quotes on one line", "<? " + repeated("\" ' ", 20'001), "NSRangeException"},
      {"escaped quotes", "<? \"" + repeated("\\\"", 20'000), "NSRangeException"},
      {"quotes that never close, a line each", "<? " + repeated("\"\n'\n", 20'000), "NSRangeException"},
      {"digits", "<?= " + std::string(200'000, '9') + " ?>", "nothing raised"},
      {"digits and a letter", "<?= " + std::string(200'000, '9') + "x ?>", failedCheck("token != nil")},
      {"digits and points", "<?= " + repeated("1.", 50'000) + " ?>", "KorTemplateSyntaxErrorException"},
      {"signs", "<?= " + std::string(100'000, '-') + "1 ?>", "KorTemplateSyntaxErrorException"},
      {"dollars", "<?= " + std::string(100'000, '$') + " ?>", "KorTemplateSyntaxErrorException"},
      {"at signs", "<?= " + std::string(100'001, '@') + " ?>", "KorTemplateSyntaxErrorException"},
      {"a long variable", "<?= $" + repeated("a.", 50'000) + " ?>", "nothing raised"},
      {"a long word", "<?= " + std::string(200'000, 'w') + "() ?>", "nothing raised"},
  };
}

void expectQuickOutcomes(const std::vector<LargeRow>& rows) {
  for (const LargeRow& row : rows) {
    const WorkBound bound(row.what);
    const std::string outcome = raisedBy([&] { (void)KorTemplate::compile(row.text); }).text();
    EXPECT_EQ(outcome.substr(0, row.outcome.size()), row.outcome) << row.what;
  }
}

TEST(KorTemplateParserLimits, LargeTextsAreQuick) {
  expectQuickOutcomes(largeTexts());
}

TEST(KorTemplateParserLimits, LargeExpressionsAreQuick) {
  expectQuickOutcomes(largeExpressions());
}

TEST(KorTemplateParserLimits, LargeStructuresAreQuick) {
  expectQuickOutcomes(largeStructures());
}

TEST(KorTemplateParserLimits, LinesOfOpeningsThatNeverCloseAreQuick) {
  expectQuickOutcomes(hardLines());
}

TEST(KorTemplateParserLimits, LongChainsCompileOnASmallThread) {
  const std::string chains[] = {"<?= 1" + repeated(" + 1", 100'000) + " ?>",
                                "<? if ($a) ?>" + repeated("<? elseif ($b) ?>x", 100'000) + "<? endif ?>"};
  for (const std::string& text : chains) {
    const WorkBound bound(text.substr(0, 12));
    runOnThread(128 * 1024, [&] {
      EXPECT_EQ(raisedBy([&] { (void)KorTemplate::compile(text); }).text(), "nothing raised") << text.substr(0, 12);
    });
  }
}

TEST(KorTemplateParserLimits, TextThatIsNotUTF8IsRefusedWithTheByte) {
  struct Row {
    std::string text;
    const char* byte;
  };
  const Row rows[] = {
      {"\xFF", "0"},
      {"abc\xC3", "3"},
      {"<?= \"\xC3\xA9\x80\" ?>", "7"},
      {"\xED\xA0\x80", "0"},
      {"a\xC0\x80", "1"},
      {"\xF4\x90\x80\x80", "0"},
      {std::string(1000, 'x') + "\xE2\x82", "1000"},
  };
  for (const Row& row : rows) {
    const Raised raised = raisedBy([&] { (void)KorTemplate::compile(row.text); });
    EXPECT_EQ(raised.name, "NSInvalidArgumentException") << row.byte;
    EXPECT_NE((" " + raised.reason + " ").find(" " + std::string(row.byte)), std::string::npos) << raised.reason;
  }
}

// A few bytes of a pattern may take the engine a hundred microseconds and many kilobytes.
TEST(KorTemplateParserLimits, PatternsHaveClassesInProportionToTheTemplate) {
  const auto patterns = [](int count) {
    std::string text;
    for (int index = 0; index < count; ++index) text += "<? 1 =~ /[\\w]/ ?>";
    return text;
  };
  const WorkBound bound("patterns");
  EXPECT_EQ(raisedBy([&] { (void)KorTemplate::compile(patterns(1'000)); }).name, "");
  const std::string tooMany = patterns(1'200);
  const Raised raised = raisedBy([&] { (void)KorTemplate::compile(tooMany); });
  EXPECT_EQ(raised.name, "NSInvalidArgumentException");
  EXPECT_EQ(raised.reason,
            "The regular expression /[\\w]/ does not compile: the patterns together have too many character classes or "
            "loops");
  EXPECT_EQ(raisedBy([&] { (void)KorTemplate::compile(tooMany + std::string(60'000, 'x')); }).name, "");
}

// Each takes hundreds of bytes, and again as many once the pattern is searched under a clock.
TEST(KorTemplateParserLimits, PatternsHaveLoopsAndTypesInProportionToTheTemplate) {
  struct PartRow {
    const char* part;
    int times;  // that a template may have six thousand of it
  };
  const PartRow rows[] = {{"|", 11}, {"a?", 11}, {"(?:)", 5}, {"\\d", 2}, {"\\D*", 2}};
  const Ref<KorTemplateEnvironment> environment = KorTemplateEnvironment::environment();
  environment->setGlobal("x", "zz");
  for (const PartRow& row : rows) {
    const WorkBound bound(row.part);
    const std::string block = "<? $x =~ /" + repeated(row.part, 6'000) + "/ ?>";
    KorTemplate::compile(repeated(block, row.times))->executeWithEnvironment(environment.get());
    EXPECT_THAT(raisedBy([&] { (void)KorTemplate::compile(repeated(block, 3 * row.times)); }).reason,
                testing::EndsWith("the patterns together have too many character classes or loops"))
        << row.part;
  }
}

TEST(KorTemplateParserLimits, AnyBytesThatAreUTF8AreAText) {
  const std::string zero = std::string("a\0b<?= \"\0\" ?>\0", 15);
  EXPECT_EQ(KorTemplate::compile(zero)->statements().count(), 3);
  const std::string mark = "\xEF\xBB\xBF<?= 1 ?>";
  EXPECT_EQ(shapeOfTemplate(mark), "out \"\xEF\xBB\xBF\"; out 1");
}

}  // namespace

}  // namespace tavlo::test::parsing
