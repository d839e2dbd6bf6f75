#include <gtest/gtest.h>

#include "Tests/Source/KorTemplateParserSupport.h"

namespace tavlo::test::parsing {

namespace {

using Parser = KorTemplateParser;

TEST(KorTemplateParserControl, BuildsConditionals) {
  expectShapes({
      {"<? if ($a) ?>x<? else ?>y<? endif ?>", "if $a {out \"x\"} {out \"y\"}"},
      {"<? if ($a) ?><? endif ?>", "if $a {} {}"},
      {"<? if ($a) ?><? else ?><? endif ?>z", "if $a {} {}; out \"z\""},
      {"<? IF ($a) ?>x<? endif ?>", "if $a {out \"x\"} {}"},
      {"<? if ($a) ?>1<? elseif ($b) ?>2<? elseif ($c) ?>3<? else ?>4<? endif ?>",
       "if $a {out \"1\"} {if $b {out \"2\"} {if $c {out \"3\"} {out \"4\"}}}"},
      {"<? if ($a) ?>1<? ELSEIF ($b) ?>2<? endif ?>", "if $a {out \"1\"} {if $b {out \"2\"} {}}"},
      {"<? if ($a) ?><? if ($b) ?>1<? else ?>2<? endif ?><? else ?>3<? endif ?>",
       "if $a {if $b {out \"1\"} {out \"2\"}} {out \"3\"}"},
      {"<? if (($a + 1) > 2) ?>1<? endif ?>", "if (($a + 1) > 2) {out \"1\"} {}"},
      {"<? if (f($a)) ?>1<? endif ?>", "if f($a) {out \"1\"} {}"},
      {"<? if ($a) junk \"more\" ) ( # ?>1<? endif ?>", "if $a {out \"1\"} {}"},
      {"<? if ($a) ?>1<? elseif ($b) junk ?>2<? endif ?>", "if $a {out \"1\"} {if $b {out \"2\"} {}}"},
      {"<? if ($a) ?>1<? else junk ?>2<? endif junk ?>", "if $a {out \"1\"} {out \"2\"}"},
  });
}

TEST(KorTemplateParserControl, BuildsLoops) {
  expectShapes({
      {"<? foreach ($item in $list) ?>x<?= $item ?><? endforeach ?>", "foreach item in $list {out \"x\"; out $item}"},
      {"<? foreach ($a.b in $list) ?><? endforeach ?>", "foreach a.b in $list {}"},
      {"<? foreach ($a@ in f(1, (2))) ?><? endforeach ?>", "foreach a@ in f(1, 2) {}"},
      {"<? FOREACH ($x in $y) junk ?><? endforeach junk ?>z", "foreach x in $y {}; out \"z\""},
      {"<? foreach ($x in $y) ?><? foreach ($z in $x) ?>1<? endforeach ?><? endforeach ?>",
       "foreach x in $y {foreach z in $x {out \"1\"}}"},
      {"<? foreach ($x in $y + $z) ?><? endforeach ?>", "foreach x in ($y + $z) {}"},
  });
}

TEST(KorTemplateParserControl, BuildsFunctions) {
  expectShapes({
      {"<? function f() ?>x<? endfunction ?>", "function f() {out \"x\"}"},
      {"<? function f($a, $b) ?><? return $a + $b ?><? endfunction ?>", "function f(a, b) {return ($a + $b)}"},
      {"<? function f($a $b) ?><? endfunction ?>", "function f(a, b) {}"},
      {"<? function f($a, $b,) ?><? endfunction ?>", "function f(a, b) {}"},
      {"<? function f($a.b) junk ( ?><? endfunction junk ?>", "function f(a.b) {}"},
      {"<? function f($a, $a) ?><? endfunction ?>", "function f(a, a) {}"},
      {"<? Function in() ?><? endfunction ?>", "function in() {}"},
      {"<? function f() ?><? if ($a) ?><? return 1 ?><? endif ?><? endfunction ?>",
       "function f() {if $a {return 1} {}}"},
      {"<? function f() ?><? function g() ?><? return 1 ?><? endfunction ?><? return ?><? endfunction ?>",
       "function f() {function g() {return 1}; return absent}"},
      {"<? if ($a) ?><? function f() ?><? endfunction ?><? endif ?>", "if $a {function f() {}} {}"},
      {"<? foreach ($x in $y) ?><? function f() ?><? endfunction ?><? endforeach ?>",
       "foreach x in $y {function f() {}}"},
  });
}

TEST(KorTemplateParserControl, BuildsReturns) {
  expectShapes({
      {"<? return ?>", "return absent"},
      {"<? RETURN ?>x", "return absent; out \"x\""},
      {"<? if ($a) ?><? return ?><? endif ?>", "if $a {return absent} {}"},
      {"<? function f() ?><? return null ?><? endfunction ?>", "function f() {return null}"},
      {"<? function f() ?><? return (1) ?><? endfunction ?><? return ?>", "function f() {return 1}; return absent"},
  });
}

// Keeps what the flag said at each statement.
class WatchedParser final : public KorTemplateParser {
 public:
  explicit WatchedParser(const char* text) : KorTemplateParser(NSString::stringWithUTF8(text)) {}

  Ref<KorTemplateStatement> nextStatement() override {
    flags += isParsingFunction() ? '1' : '0';
    return KorTemplateParser::nextStatement();
  }

  std::string flags;
};

TEST(KorTemplateParserControl, RaisesTheFlagWhileABodyIsReadAndClearsItAtAnyFunctionsEnd) {
  struct Row {
    const char* text;
    const char* flags;  // before each statement, in order
  };
  const Row rows[] = {
      {"x", "00"},
      {"<? function f() ?>x<? endfunction ?>y", "01100"},
      {"<? function f() ?><? function g() ?><? endfunction ?>x<? endfunction ?>", "011000"},
      {"<? function f() ?><? if ($a) ?>x<? endif ?><? endfunction ?>", "011110"},
  };
  for (const Row& row : rows) {
    const Ref<WatchedParser> parser = makeRef<WatchedParser>(row.text);
    while (parser->nextStatement() != nullptr) continue;
    EXPECT_EQ(parser->flags, row.flags) << row.text;
    EXPECT_FALSE(parser->isParsingFunction());
  }
}

TEST(KorTemplateParserControl, AnErrorInsideABodyClearsTheFlag) {
  for (const char* text : {"<? function f() ?><?= ( ?>", "<? function f() ?>x", "<? function f() ?><? endif ?>",
                           "<? function f() ?><? if ($a) ?><? function g() ?><? endforeach ?>", "<? function f() ?><?",
                           "<? function f() ?><? $a =~ /(/ ?>", "<? function f() ?><? if"}) {
    const Ref<KorTemplateParser> parser = Parser::parserForString(text);
    EXPECT_NE(raisedBy([&] { (void)parser->nextStatement(); }).text(), "nothing raised") << text;
    EXPECT_FALSE(parser->isParsingFunction()) << text;
  }
}

TEST(KorTemplateParserControl, ARefusedHeadNeverRaisesTheFlag) {
  const Ref<KorTemplateParser> parser = Parser::parserForString("<? function f($a, 1) ?>");
  EXPECT_NE(raisedBy([&] { (void)parser->nextStatement(); }).text(), "nothing raised");
  EXPECT_FALSE(parser->isParsingFunction());
}

TEST(KorTemplateParserControl, AReturnWithAValueIsRefusedBehindTheEndOfANestedFunction) {
  const char* text =
      "<? function f() ?><? function g() ?><? endfunction ?>"
      "<? return $x ?><? endfunction ?>";
  EXPECT_EQ(raisedBy([&] { (void)KorTemplate::compile(text); }).text(),
            syntaxError(1, "Statement returning from template cannot contain expression"));
}

// Yields statements made by hand, whatever the text says.
class ScriptedParser final : public KorTemplateParser {
 public:
  ScriptedParser(const char* text, std::vector<Ref<KorTemplateStatement>> script)
      : KorTemplateParser(NSString::stringWithUTF8(text)), script_(std::move(script)) {}

  Ref<KorTemplateStatement> nextStatement() override {
    return next_ < script_.size() ? script_[next_++] : Ref<KorTemplateStatement>();
  }
  using KorTemplateParser::setCurrentBlockToken;

 private:
  std::vector<Ref<KorTemplateStatement>> script_;
  std::size_t next_ = 0;
};

Ref<KorTemplateStatement> keyword(const char* text) {
  return KorTemplateBlockStatement::statementWithKeyword(text);
}

TEST(KorTemplateParserControl, ReadsItsBodyThroughNextStatement) {
  const char* text = "\n<? if ($a) ?>";
  const AtFirstBlock at(text);
  struct Row {
    const char* what;
    std::vector<Ref<KorTemplateStatement>> script;
    std::string outcome;
  };
  const Ref<KorTemplateBlockStatement> condition = KorTemplateBlockStatement::statementWithKeyword("elseif");
  condition->setExpression(KorTemplateVariableExpression::expressionWithVariable("b"));
  const Row rows[] = {
      {"an elseif without a condition",
       {keyword("elseif")},
       syntaxError(4, "if statement: elseif expected expression")},
      {"an elseif without a condition behind else",
       {keyword("else"), keyword("elseif")},
       syntaxError(4, "if statement: elseif encountered after else statement")},
      {"no endif while a block is current", {}, syntaxError(4, "if statement: endif statement not found")},
      {"an elseif in capitals made by hand",
       {keyword("ELSEIF")},
       syntaxError(4, "if statement: unexpected keyword: \"ELSEIF\"")},
      {"a whole chain", {condition, keyword("else"), keyword("endif")}, "nothing raised"},
  };
  for (const Row& row : rows) {
    const Ref<ScriptedParser> parser = makeRef<ScriptedParser>(text, row.script);
    parser->setCurrentBlockToken(&at.block());
    EXPECT_EQ(raisedBy([&] { (void)parser->parseIfStatementForToken(&at.block()); }).text(), row.outcome) << row.what;
  }
}

TEST(KorTemplateParserControl, ParsesHeadsOfBlocksThatAreHandedToItDirectly) {
  const AtFirstBlock elseIf("<? elseif ($a > 1) ?>");
  EXPECT_EQ(shapeOf(elseIf.parser().parseElseIfStatementForToken(&elseIf.block())), "block elseif ($a > 1)");
  const AtFirstBlock bare("<? return ?>");
  EXPECT_EQ(shapeOf(bare.parser().parseReturnStatementForToken(&bare.block())), "return absent");
}

}  // namespace

}  // namespace tavlo::test::parsing
