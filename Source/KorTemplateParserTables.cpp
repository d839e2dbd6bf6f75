#include <string>
#include <vector>

#include "Lexwright/KorDefaultScannerRule.h"
#include "Lexwright/KorPartitionRule.h"
#include "Lexwright/KorRegularExpressionRule.h"
#include "Lexwright/KorTextLiteralRule.h"
#include "Lexwright/KorWhitespaceRule.h"
#include "Lexwright/KorWordRule.h"
#include "Source/BlockRecogniser.h"
#include "Source/KorTemplateParser.h"
#include "Source/TokenRecognisers.h"

namespace tavlo {

const KorTokenClass KorTemplateParser::BlockStartTag;
const KorTokenClass KorTemplateParser::BlockEndTag;
const KorTokenClass KorTemplateParser::AssignmentOperator;
const KorTokenClass KorTemplateParser::Variable;
const KorTokenClass KorTemplateParser::IntrinsicVariable;
const KorTokenClass KorTemplateParser::BinaryOperator;
const KorTokenClass KorTemplateParser::ParenthesisStart;
const KorTokenClass KorTemplateParser::ParenthesisEnd;
const KorTokenClass KorTemplateParser::ArgumentSeparator;
const KorTokenClass KorTemplateParser::StringLiteral;
const KorTokenClass KorTemplateParser::RegexStringLiteral;
const KorTokenClass KorTemplateParser::CharLiteral;
const KorTokenClass KorTemplateParser::NonIntegralNumericLiteral;
const KorTokenClass KorTemplateParser::IntegralNumericLiteral;
const KorTokenClass KorTemplateParser::BooleanKeyword;
const KorTokenClass KorTemplateParser::NullKeyword;
const KorTokenClass KorTemplateParser::ControlKeyword;
const KorTokenClass KorTemplateParser::Symbol;
const KorTokenClass KorTemplateParser::Token;

namespace {

// The tables that all parsers share.
struct Tables {
  std::vector<std::string> binaryOperators = {
      "%", "*", "/", "+", "-", "==", "!=", "=~", "<", ">", "<=", ">=", "&&", "||"};
  std::vector<std::string> controlKeywords = {"if",         "elseif",   "else",        "endif", "foreach",
                                              "endforeach", "function", "endfunction", "return"};
  Ref<KorTemplateClosure> parenthesisClosure = KorTemplateClosure::closureStartingWithTokensOfClassEndingWith(
      &KorTemplateParser::ParenthesisStart, &KorTemplateParser::ParenthesisEnd);
  RuleList scannerRules;

  Tables();

 private:
  void addBlockRules(KorPartitionRule& block) const;
};

Ref<KorScannerRule> pattern(const char* text, const KorTokenClass& tokenClass,
                            KorRegularExpressionRule::Recogniser recogniser, const FirstBytes& firstBytes,
                            bool remembers = false) {
  return KorRegularExpressionRule::ruleWithPattern(text, &tokenClass, recogniser, firstBytes, remembers);
}

Ref<KorScannerRule> literal(const char* quote, const KorTokenClass& tokenClass) {
  return KorTextLiteralRule::ruleWithOpenSequence(quote, quote, '\\', false, false, &tokenClass);
}

Ref<KorScannerRule> words(const std::vector<std::string>& dictionary, bool caseInsensitive,
                          const KorTokenClass& tokenClass) {
  return KorWordRule::ruleForDictionary(dictionary, caseInsensitive, &tokenClass);
}

Tables::Tables() {
  using Parser = KorTemplateParser;
  const Ref<KorPartitionRule> block = KorPartitionRule::ruleWithBoundary(
      pattern(R"(<\?)", Parser::BlockStartTag, recognisers::blockStart, recognisers::startingWith("<")));
  block->setSkipBoundary(true);
  block->setClosingClass(&Parser::BlockEndTag);
  block->setTokenRecogniser(recogniseBlockTokens, true);
  addBlockRules(*block);
  scannerRules = RuleList({KorWhitespaceRule::rule(), block, KorDefaultScannerRule::ruleWithTokenClass(nullptr)});
}

// In the order in which they are tried: each rule takes what the ones before it have left.
void Tables::addBlockRules(KorPartitionRule& block) const {
  using Parser = KorTemplateParser;
  using recognisers::startingWith;
  const char* const kRegexLiteral = R"(/.*?(?<!\\)/(?=\s*(&&|\|\||==|!=|>|>=|<|<=|\)|,|$|\z|\?>)))";
  const char* const kNonIntegral = R"((([+-]?(\d+)?\.(\d+)([eE]\d+)?)|([+-]?\d+\.?(\d+([eE]\d+)?)?))(?=\b))";
  const char* const kIntegral = R"(((0x[\da-fA-F]+)|([+-]?\d+))(?=\b))";
  block.addRules({
      KorWhitespaceRule::rule(),
      pattern(R"(\?>)", Parser::BlockEndTag, recognisers::blockEnd, startingWith("?")),
      literal("\"", Parser::StringLiteral),
      pattern(kRegexLiteral, Parser::RegexStringLiteral, recognisers::regexLiteral, startingWith("/"), true),
      literal("'", Parser::CharLiteral),
      pattern(kNonIntegral, Parser::NonIntegralNumericLiteral, recognisers::nonIntegralNumber,
              startingWith("+-.0123456789", true)),
      pattern(kIntegral, Parser::IntegralNumericLiteral, recognisers::integralNumber,
              startingWith("+-0123456789", true)),
      words({"true", "false"}, true, Parser::BooleanKeyword),
      words({"null"}, true, Parser::NullKeyword),
      pattern(R"(\$[\w\.@]+)", Parser::Variable, recognisers::variable, startingWith("$")),
      pattern(R"(@@[\w]+)", Parser::IntrinsicVariable, recognisers::intrinsicVariable, startingWith("@")),
      words(binaryOperators, false, Parser::BinaryOperator),
      words(controlKeywords, true, Parser::ControlKeyword),
      pattern("=", Parser::AssignmentOperator, recognisers::oneCharacter, startingWith("=")),
      pattern(R"(\()", Parser::ParenthesisStart, recognisers::oneCharacter, startingWith("(")),
      pattern(R"(\))", Parser::ParenthesisEnd, recognisers::oneCharacter, startingWith(")")),
      pattern(R"(\w+)", Parser::Symbol, recognisers::word, recognisers::startingWithWord()),
      pattern(",", Parser::ArgumentSeparator, recognisers::oneCharacter, startingWith(",")),
      KorDefaultScannerRule::ruleWithTokenClass(&Parser::Token),
  });
}

const Tables& tables() {
  static const auto& shared = *new Tables;  // for the life of the process
  return shared;
}

}  // namespace

void KorTemplateParser::initialize() {
  setupScannerRules();
}

void KorTemplateParser::setupScannerRules() {
  (void)tables();
}

const std::vector<std::string>& KorTemplateParser::binaryOperators() {
  return tables().binaryOperators;
}

const std::vector<std::string>& KorTemplateParser::controlKeywords() {
  return tables().controlKeywords;
}

const KorTemplateClosure& KorTemplateParser::parenthesisClosure() {
  return *tables().parenthesisClosure;
}

const RuleList& KorTemplateParser::scannerRules() {
  return tables().scannerRules;
}

}  // namespace tavlo
