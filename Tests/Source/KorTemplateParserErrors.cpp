#include <gtest/gtest.h>

#include "Tests/Source/KorTemplateParserSupport.h"

namespace tavlo::test::parsing {

namespace {

// A template whose compilation fails. "^" stands before the token that the error names and is no part of the template.
struct ErrorRow {
  const char* text;
  std::int32_t line;  // the one that the message shows
  const char* message;
};

void expectErrors(const std::vector<ErrorRow>& rows) {
  for (const ErrorRow& row : rows) {
    std::string text = row.text;
    const std::size_t mark = text.find('^');
    ASSERT_NE(mark, std::string::npos) << row.text;
    text.erase(mark, 1);
    const Raised raised = raisedBy([&] { (void)KorTemplate::compile(text); });
    EXPECT_EQ(raised.text(), syntaxError(row.line, row.message)) << row.text;
    EXPECT_EQ(raised.line, row.line) << row.text;
    EXPECT_EQ(raised.place.offset, mark) << row.text;
    EXPECT_TRUE(raised.place.isKnown()) << row.text;
    SourceRange failedAt;
    (void)raisedBy([&] { (void)KorTemplate::compile(text, {}, &failedAt); });
    EXPECT_EQ(failedAt.offset, mark) << row.text;
  }
}

TEST(KorTemplateParserErrors, OfOutputBlocks) {
  expectErrors({
      {"<?^=", 1, "Expression expected"},
      {"a\n<?\n^= ", 3, "Expression expected"},
      {"<?^= $x", 1, "Closing tag missing from template block"},
      {"\n\n<?^= $x + \"?>\"", 3, "Closing tag missing from template block"},
      {"<?^= '?>'", 1, "Closing tag missing from template block"},
      {"\xC3\xA9\xF0\x9F\x98\x80<?^=", 1, "Expression expected"},
  });
}

TEST(KorTemplateParserErrors, OfExpressions) {
  expectErrors({
      {"<?= ^(1 + 2 ?>", 1, "Missing closing parenthesis"},
      {"<?= (^) ?>", 1, "Empty parenthesis"},
      {"<?= 1 '^a' ?>", 1, "'a'. Expected operator"},
      {"<?= '^a' ?>", 1, "'a'. Expected literal, variable or sub-expression"},
      {"<?= (2^, 3) ?>", 1, "','. Expected operator"},
      {"<?= 1 ^+ ?>", 1, "Expression required to right of + operator"},
      {"<?= ^+ 1 ?>", 1, "Expression required to left of + operator"},
      {"<?= 1 ^+ + 2 ?>", 1, "Expression required to right of + operator"},
      {"<?= ^-$a ?>", 1, "Expression required to left of - operator"},
      {"<?= ^-(1) ?>", 1, "Expression required to left of - operator"},
      {"<?= $a ^-1 ?>", 1, "Invalid expression"},
      {"<?= 1 ^2 ?>", 1, "Invalid expression"},
      {"<?= f(1) (2^) ?>", 1, "Invalid expression"},
      {"<?= f ^1 ?>", 1, "Function call missing opening parenthesis for argument list"},
      {"<?= f^(1 ?>", 1, "Function call missing closing parenthesis for argument list"},
      {"<? $x ^= ?>", 1, "Expression required to right of = operator"},
      {"<? if (^f(1) ?>", 1, "if statement: ')' missing"},
  });
}

TEST(KorTemplateParserErrors, OfEveryOperatorNameTheOperator) {
  for (const std::string& op : KorTemplateParser::binaryOperators()) {
    const std::string left = "<?= ^" + op + " $a ?>";
    const std::string right = "<?= $a ^" + op + " ?>";
    const std::string onTheLeft = "Expression required to left of " + op + " operator";
    const std::string onTheRight = "Expression required to right of " + op + " operator";
    expectErrors({{left.c_str(), 1, onTheLeft.c_str()}, {right.c_str(), 1, onTheRight.c_str()}});
  }
}

TEST(KorTemplateParserErrors, OfConditionals) {
  expectErrors({
      {"<? if ^$x ?>", 1, "if statement: '(' expected"},
      {"<? if ^?>", 1, "if statement: '(' expected"},
      {"<? if (^$a ?>", 1, "if statement: ')' missing"},
      {"<? if (^?>", 1, "if statement: ')' missing"},
      {"<? if (^($a) ?>", 1, "if statement: ')' missing"},
      {"<? elseif ^$x ?>", 1, "elseif statement: '(' expected"},
      {"<? elseif (^$x ?>", 1, "elseif statement: ')' expected"},
      {"<? if ($a) ?><? else ?>^<? else ?><? endif ?>", 2, "if statement: more than one else clause found"},
      {"<? if ($a) ?><? else ?>^<? elseif ($b) ?>", 2, "if statement: elseif encountered after else statement"},
      {"<? if ($a) ?>^<? endforeach ?>", 2, "if statement: unexpected keyword: \"endforeach\""},
      {"<? if ($a) ?>^<? endfunction ?>", 2, "if statement: unexpected keyword: \"endfunction\""},
      {"<? if ($a) ?>^<? ELSE ?>", 2, "if statement: unexpected keyword: \"ELSE\""},
      {"<? if ($a) ?>^<? EndIf ?>", 2, "if statement: unexpected keyword: \"EndIf\""},
      {"<? if ($a) ?>1<? elseif (^($a + 1) > 2) ?>", 1, "Missing closing parenthesis"},
      {"<? if ($a) ?>1<? elseif (f^($a)) ?>", 1, "Function call missing closing parenthesis for argument list"},
  });
}

TEST(KorTemplateParserErrors, OfLoops) {
  expectErrors({
      {"<? foreach ^$x in $y ?>", 1, "foreach statement: '(' expected"},
      {"<? foreach (^x in $y) ?>", 1, "foreach statement: variable name expected"},
      {"<? foreach (^@@x in $y) ?>", 1, "foreach statement: variable name expected"},
      {"<? foreach (^?>", 1, "foreach statement: variable name expected"},
      {"<? foreach ($x ^IN $y) ?>", 1, "foreach statement: 'in' expected"},
      {"<? foreach ($x ^of $y) ?>", 1, "foreach statement: 'in' expected"},
      {"<? foreach ($x ^= $y) ?>", 1, "foreach statement: 'in' expected"},
      {"<? foreach ($x in ^$y ?>", 1, "foreach statement: ')' expected"},
      {"<? foreach ($x in ^f($y) ?>", 1, "foreach statement: ')' expected"},
      {"<? foreach ($x in ^$y) ?>x", 0, "foreach statement: missing endforeach statement"},
      {"<? foreach ($x in ^$y) ?><? endif ?>", 1, "foreach statement: \"endif\": unexpected keyword"},
      {"<? foreach ($x in ^$y) ?><? EndForEach ?>", 1, "foreach statement: \"EndForEach\": unexpected keyword"},
      {"<? foreach ($x in ^$y) ?><? elseif ($a) ?>", 1, "foreach statement: \"elseif\": unexpected keyword"},
  });
}

TEST(KorTemplateParserErrors, OfFunctions) {
  expectErrors({
      {"<? function ^1() ?>", 1, "function statement: name expected"},
      {"<? function ^(a) ?>", 1, "function statement: name expected"},
      {"<? function ^if() ?>", 1, "function statement: name expected"},
      {"<? function f ^$a ?>", 1, "function statement: opening parenthesis expected"},
      {"<? function f(^, $a) ?>", 1, "function statement: ,\". variable name expected in argument list"},
      {"<? function f($a,^, $b) ?>", 1, "function statement: ,\". variable name expected in argument list"},
      {"<? function f(^1) ?>", 1, "function statement: 1\". variable name expected in argument list"},
      {"<? function f($a ^?>", 1, "function statement: ?>\". variable name expected in argument list"},
      {"<? function f(\"^text\") ?>", 1, "function statement: text\". variable name expected in argument list"},
      {"<? function f($a^) ?>x", 0, "function definition: missing endfunction statement"},
      {"<? function f($a^) ?><? endif ?>", 1, "function defintiion: \"endif\": unexpected keyword"},
      {"<? function f(^) ?><? EndFunction ?>", 1, "function defintiion: \"EndFunction\": unexpected keyword"},
      {"<? function f(^) ?><? elseif ($a) ?>", 1, "function defintiion: \"elseif\": unexpected keyword"},
  });
}

TEST(KorTemplateParserErrors, OfReturns) {
  expectErrors({
      {"<? ^return $x ?>", 1, "Statement returning from template cannot contain expression"},
      {"<? ^return", 1, "Closing tag missing from template block"},
      {"<? ^return $x", 1, "Closing tag missing from template block"},
      {"<? function f() ?><? ^return 1", 1, "Closing tag missing from template block"},
      {"<? function f() ?><? return 1 ^2 ?>", 1, "Invalid expression"},
      {"<? function f() ?><? endfunction ?><? ^return 1 ?>", 1,
       "Statement returning from template cannot contain expression"},
  });
}

TEST(KorTemplateParserErrors, CountTheLineOfATokenFromItsBlockAndAddTheBlocks) {
  expectErrors({
      {"<?= 1\n\n^2 ?>", 3, "Invalid expression"},
      {"\n\n\n<?= 1 ^2 ?>", 4, "Invalid expression"},
      {"\n\n\n<?= 1\n^2 ?>", 5, "Invalid expression"},
      {"a\r\nb\rc\nd<?= 1\r\n\r^2 ?>", 6, "Invalid expression"},
      {"<?= \"a\" ?>\n<?= \n'^a' ?>", 3, "'a'. Expected literal, variable or sub-expression"},
  });
}

TEST(KorTemplateParserErrors, CountTheLineOfABlockTwice) {
  expectErrors({
      {"\n\n<? if ($a) ?>\n^<? endforeach ?>", 8, "if statement: unexpected keyword: \"endforeach\""},
      {"\n<? if ($a) ?>\n\n<? else ?>\n^<? else ?>", 10, "if statement: more than one else clause found"},
      {"\n<? if ($a) ?><? else ?>\n^<? elseif ($a) ?>", 6, "if statement: elseif encountered after else statement"},
  });
}

TEST(KorTemplateParserErrors, AddTheLineOfTheCurrentBlockToThatOfATokenInAnEarlierOne) {
  expectErrors({
      {"\n<? foreach ($x\nin ^$y) ?>\n\n<? endif ?>", 6, "foreach statement: \"endif\": unexpected keyword"},
      {"\n<? foreach ($x\nin ^$y) ?>\n\n", 1, "foreach statement: missing endforeach statement"},
      {"\n\n<? function f($a\n\n^) ?>\n\n<? endif ?>", 9, "function defintiion: \"endif\": unexpected keyword"},
      {"\n\n<? function f($a\n\n^) ?>\n\n<?= 1 ?>", 2, "function definition: missing endfunction statement"},
      {"\n<? foreach ($x in ^$y) ?>", 0, "foreach statement: missing endforeach statement"},
  });
}

TEST(KorTemplateParserErrors, AMissingTokenFailsTheCheckOfTheLineLookup) {
  for (const char* text : {"<? if",
                           "<? if (",
                           "<? if ($a) ?>x",
                           "\n\n<? if ($a) ?><? else ?>",
                           "<? if ($a) ?><? if ($b) ?><? endif ?>",
                           "<? if () ?>",
                           "<? elseif",
                           "<? elseif (",
                           "<? elseif () ?>",
                           "<? foreach",
                           "<? foreach (",
                           "<? foreach ($x",
                           "<? foreach ($x in",
                           "<? foreach ($x in ) ?>",
                           "<? function",
                           "<? function f",
                           "<? function f(",
                           "<? function f($a",
                           "<? function f($a,",
                           "<?= f ?>",
                           "<?= f(1,) ?>"}) {
    EXPECT_EQ(raisedBy([&] { (void)KorTemplate::compile(text); }).text(), failedCheck("token != nil")) << text;
  }
}

TEST(KorTemplateParserErrors, AnUnendedIfIsPlacedAtItsOwnBlock) {
  SourceRange failedAt;
  (void)raisedBy([&] { (void)KorTemplate::compile("ab<? if ($a) ?>x<?= 1 ?>", {}, &failedAt); });
  EXPECT_EQ(failedAt.offset, 2U);
}

}  // namespace

}  // namespace tavlo::test::parsing
