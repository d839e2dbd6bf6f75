#include "Source/KorTemplateClosure.h"

#include <gtest/gtest.h>

#include "Tests/Source/KorTemplateParserSupport.h"

namespace tavlo::test::parsing {

namespace {

const KorTemplateClosure& parentheses() {
  return KorTemplateParser::parenthesisClosure();
}

// The text from a token on; "absent" where there is none.
std::string from(const AtFirstBlock& at, const KorToken* token) {
  return token == nullptr ? "absent" : at.parser().inputString()->substring(token->byteOffset, 1)->description();
}

struct SearchRow {
  const char* what;
  const char* inside;    // of a block
  std::size_t start;     // where the enumerator begins
  std::ptrdiff_t found;  // the place of the found token; -1 where there is none
  std::size_t left;      // how many tokens stay in the enumerator
};

std::size_t countLeft(KorTokenEnumerator& e) {
  std::size_t count = 0;
  while (e.nextObject() != nullptr) ++count;
  return count;
}

TEST(KorTemplateClosure, FindsTheEndOfABracketThatIsOpenAlready) {
  const SearchRow rows[] = {
      {"the parenthesis at depth 0, with what follows left over", "(a(b)c)d", 1, 6, 1},
      {"nothing when the tokens run out", "a(b", 0, -1, 0},
      {"the first closing one where nothing is opened", ") 1", 0, 0, 1},
      {"nothing in no tokens", "", 0, -1, 0},
      {"the end behind two closed pairs", "() () ) )", 0, 4, 1},
  };
  for (const SearchRow& row : rows) {
    const AtFirstBlock at("<?" + std::string(row.inside) + "?>");
    const KorTokenList tokens = subarrayFromIndex(at.inside(), static_cast<std::int32_t>(row.start));
    KorTokenEnumerator e(tokens);
    const KorToken* found = parentheses().findEndOfClosureInTokens(&e);
    EXPECT_EQ(found == nullptr ? -1 : found - at.block().subtokens.data(), row.found) << row.what;
    EXPECT_EQ(countLeft(e), row.left) << row.what;
  }
}

TEST(KorTemplateClosure, FindsTheNextTokenOfAClassOutsideAllBrackets) {
  const SearchRow rows[] = {
      {"the first comma", "1, f(2, 3)", 0, 1, 6},
      {"no comma inside parentheses", "f(2, 3)", 0, -1, 0},
      {"no comma behind a stray closing parenthesis", "), 1", 0, -1, 0},
      {"the comma behind a closed pair", "(1), 2", 0, 3, 1},
      {"no comma behind a stray closing parenthesis and a pair", ") (1), 2", 0, -1, 0},
      {"the comma once a stray closing parenthesis is made up for", ") ( , 1", 0, 2, 1},
  };
  for (const SearchRow& row : rows) {
    const AtFirstBlock at("<?" + std::string(row.inside) + "?>");
    const KorTokenList tokens = at.inside();
    KorTokenEnumerator e(tokens);
    const KorToken* found = parentheses().findNextTokenOfClassInTokens(&KorTemplateParser::ArgumentSeparator, &e);
    EXPECT_EQ(found == nullptr ? -1 : found - tokens.span().data(), row.found) << row.what << from(at, found);
    EXPECT_EQ(countLeft(e), row.left) << row.what;
  }
}

TEST(KorTemplateClosure, CountsABracketBeforeItLooksForTheClass) {
  using Parser = KorTemplateParser;
  const AtFirstBlock at("<?(1)(?>");
  const KorTokenList tokens = at.inside();
  KorTokenEnumerator ends(tokens);
  EXPECT_EQ(parentheses().findNextTokenOfClassInTokens(&Parser::ParenthesisEnd, &ends), &tokens[2]);
  KorTokenEnumerator starts(tokens);
  EXPECT_EQ(parentheses().findNextTokenOfClassInTokens(&Parser::ParenthesisStart, &starts), nullptr);
}

TEST(KorTemplateClosure, NeverClosesWhereStartAndEndAreTheSameClass) {
  using Parser = KorTemplateParser;
  const Ref<KorTemplateClosure> closure =
      KorTemplateClosure::closureStartingWithTokensOfClassEndingWith(&Parser::Symbol, &Parser::Symbol);
  const AtFirstBlock at("<?a b c?>");
  const KorTokenList tokens = at.inside();
  KorTokenEnumerator e(tokens);
  EXPECT_EQ(closure->findEndOfClosureInTokens(&e), nullptr);
  KorTokenEnumerator again(tokens);
  EXPECT_EQ(closure->findNextTokenOfClassInTokens(&Parser::Symbol, &again), nullptr);
}

TEST(KorTemplateClosure, HoldsTwoClassesThatMayBeAbsent) {
  const Ref<KorTemplateClosure> closure = makeRef<KorTemplateClosure>();
  EXPECT_EQ(closure->startClass(), nullptr);
  EXPECT_EQ(closure->endClass(), nullptr);
  closure->setStartClass(&KorTemplateParser::Symbol);
  closure->setEndClass(&KorTemplateParser::Token);
  EXPECT_EQ(closure->startClass(), &KorTemplateParser::Symbol);
  EXPECT_EQ(closure->endClass(), &KorTemplateParser::Token);
  closure->setStartClass(nullptr);
  EXPECT_EQ(closure->startClass(), nullptr);
}

TEST(KorTemplateClosure, IsMadeWithItsClasses) {
  const Ref<KorTemplateClosure> closure = KorTemplateClosure::closureStartingWithTokensOfClassEndingWith(
      &KorTemplateParser::ParenthesisStart, &KorTemplateParser::ParenthesisEnd);
  EXPECT_EQ(closure->startClass(), &KorTemplateParser::ParenthesisStart);
  EXPECT_EQ(closure->endClass(), &KorTemplateParser::ParenthesisEnd);
  const Ref<KorTemplateClosure> without =
      KorTemplateClosure::closureStartingWithTokensOfClassEndingWith(nullptr, nullptr);
  EXPECT_EQ(without->startClass(), nullptr);
}

TEST(KorTemplateClosure, WithoutClassesPassesOverBrackets) {
  const Ref<KorTemplateClosure> closure = makeRef<KorTemplateClosure>();
  const AtFirstBlock at("<?(1, 2)?>");
  const KorTokenList tokens = at.inside();
  KorTokenEnumerator e(tokens);
  EXPECT_EQ(closure->findNextTokenOfClassInTokens(&KorTemplateParser::ArgumentSeparator, &e), &tokens[2]);
  EXPECT_EQ(closure->findEndOfClosureInTokens(&e), nullptr);
}

TEST(KorTemplateClosure, ChecksItsArgumentsInOrder) {
  const KorTokenList none = std::span<const KorToken>();
  KorTokenEnumerator e(none);
  const auto next = [&](const KorTokenClass* tokenClass, KorTokenEnumerator* tokens) {
    return raisedBy([&] { (void)parentheses().findNextTokenOfClassInTokens(tokenClass, tokens); }).text();
  };
  EXPECT_EQ(next(nullptr, &e), failedCheck("tokenClass != nil"));
  EXPECT_EQ(next(nullptr, nullptr), failedCheck("tokenClass != nil"));
  EXPECT_EQ(next(&KorTemplateParser::Symbol, nullptr), failedCheck("e != nil"));
  EXPECT_EQ(raisedBy([] { (void)parentheses().findEndOfClosureInTokens(nullptr); }).text(), failedCheck("e != nil"));
}

}  // namespace

}  // namespace tavlo::test::parsing
