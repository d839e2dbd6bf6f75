#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "Foundation/KorTemplateLimits.h"
#include "Foundation/NSString.h"
#include "Foundation/StackGuard.h"
#include "Foundation/Text.h"
#include "Lexwright/KorRuleBasedScanner.h"
#include "Source/KorTemplateClosure.h"
#include "Source/KorTemplateExpression.h"
#include "Source/KorTemplateFunctionCallExpression.h"
#include "Source/KorTemplateOperator.h"
#include "Source/KorTemplateSource.h"
#include "Source/KorTemplateStatement.h"
#include "Source/KorTokenList.h"
#include "Source/StringCache.h"

namespace tavlo {

// Where they are first named says whether programs can use them.
class KorTemplateConditionalStatement;
class KorTemplateInternalFunction;

}  // namespace tavlo

#pragma GCC visibility push(hidden)

namespace tavlo {

// What stands in the working list of an expression: an operand, or the token of an operator that still wants its
// operands.
struct KorWorkingItem {
  Ref<KorTemplateExpression> expression;    // absent for an operator
  const KorToken* operatorToken = nullptr;  // not owned

  friend bool operator==(const KorWorkingItem&, const KorWorkingItem&) = default;
};
using KorWorkingList = std::vector<KorWorkingItem>;

// Turns template text into statements, front to back, once: runs of literal text and code blocks by turns. A control
// structure reads its body by asking for the next statements itself, up to its closing keyword.
//
// Errors in the text raise `KorTemplateSyntaxErrorException`, whose line is the named token's line within its block
// plus the line of the block that is being read then. Where the token that a message would name is missing, the failed
// check "token != nil" is raised instead.
class KorTemplateParser : public NSObject {
 public:
  // The token classes of the language, in the order of their rules.
  static const KorTokenClass BlockStartTag, BlockEndTag, AssignmentOperator, Variable, IntrinsicVariable,
      BinaryOperator, ParenthesisStart, ParenthesisEnd, ArgumentSeparator, StringLiteral, RegexStringLiteral,
      CharLiteral, NonIntegralNumericLiteral, IntegralNumericLiteral, BooleanKeyword, NullKeyword, ControlKeyword,
      Symbol, Token;

  // The tables that all parsers share, built once.
  static void initialize();
  // In the order of precedence, the most tightly binding first.
  static const std::vector<std::string>& binaryOperators();
  static const std::vector<std::string>& controlKeywords();
  static const KorTemplateClosure& parenthesisClosure();
  static const RuleList& scannerRules();

  // A parser over the text, which may not be absent.
  static Ref<KorTemplateParser> parserForString(const Text& string, const KorTemplateLimits& limits = {});
  // The same over a scanner of the caller's, which stands in for the one over the text.
  KorTemplateParser(const Ref<NSString>& string, const Ref<KorRuleBasedScanner>& scanner,
                    const KorTemplateLimits& limits = {});
  explicit KorTemplateParser(const Ref<NSString>& string, const KorTemplateLimits& limits = {});

  const Ref<NSString>& inputString() const noexcept { return inputString_; }
  // The same text with its name, for what is made of it to keep; absent unless it is set.
  const Ref<KorTemplateSource>& source() const noexcept { return source_; }
  void setSource(const Ref<KorTemplateSource>& value) { source_ = value; }
  // The block being read, lent by the scanner; null before the first one and after the last.
  const KorToken* currentBlockToken() const noexcept { return currentBlockToken_; }
  void setCurrentBlockToken(const KorToken* token) noexcept { currentBlockToken_ = token; }
  // The first character that is not part of a statement yet, in UTF-16 units.
  std::int32_t currentPosition() const noexcept { return currentPosition_; }
  // Whether the body of a function definition is being read.
  bool isParsingFunction() const noexcept { return parsingFunction_; }
  // The stretch of text that was being read when an exception left the parser.
  SourceRange place() const noexcept { return place_; }

  // The token's own line (position), plus that of the current block. The token may not be absent.
  std::int32_t lineFromToken(const KorToken* token) const;
  std::int32_t positionFromToken(const KorToken* token) const;
  // The text that the token covers. Raises `NSRangeException` for a token outside the text.
  std::string stringFromToken(const KorToken* token) const;
  // Raises `NSInvalidArgumentException` for a text that is no operator.
  static KorTemplateOperator operatorForString(const Text& string);
  // The next token of the class, whatever brackets are around it; null when the tokens run out. Neither argument may be
  // absent.
  static const KorToken* nextTokenWithClassInTokens(const KorTokenClass* tokenClass, KorTokenEnumerator* e);

  // The expression that the tokens make; the list may not be absent.
  Ref<KorTemplateExpression> parseExpressionFromTokens(const KorTokenList& tokens);
  // The call at the start of the tokens; `eaten` receives how many tokens behind the name belong to it. Neither
  // argument may be absent.
  Ref<KorTemplateFunctionCallExpression> parseFunctionCallExpressionFromTokensTokensEaten(const KorTokenList& tokens,
                                                                                          std::int32_t* eaten);
  // Folds every occurrence of the operator, and the operands beside it, into one node, from the left. Neither argument
  // may be absent. An operand that stands in the list more than once goes everywhere.
  void promoteExpressionsWithOperatorInArray(const Text& op, KorWorkingList* expressions);

  // Statements of a block, which may not be absent.
  Ref<KorTemplateStatement> parseOutputStatementForToken(const KorCompoundToken* token);
  Ref<KorTemplateStatement> parseIfStatementForToken(const KorCompoundToken* token);
  Ref<KorTemplateStatement> parseElseIfStatementForToken(const KorCompoundToken* token);
  Ref<KorTemplateStatement> parseForEachStatementForToken(const KorCompoundToken* token);
  Ref<KorTemplateStatement> parseFunctionDefinitionStatementForToken(const KorCompoundToken* token);
  Ref<KorTemplateStatement> parseReturnStatementForToken(const KorCompoundToken* token);
  Ref<KorTemplateStatement> parseExpressionStatementForToken(const KorCompoundToken* token);
  Ref<KorTemplateStatement> parseStatementForToken(const KorCompoundToken* token);

  // The next statement; absent when the text is used up.
  virtual Ref<KorTemplateStatement> nextStatement();

  const char* className() const override { return "KorTemplateParser"; }

 private:
  class Body;
  class Nesting;
  class ParsingFunction;

  // Tokens with, for each opening parenthesis, the distance to its closing one; 0 where there is none.
  struct ExpressionTokens {
    std::span<const KorToken> tokens;
    const std::uint32_t* closers;  // of as many tokens; set for opening parentheses alone

    std::size_t size() const noexcept { return tokens.size(); }
    ExpressionTokens sub(std::size_t from, std::size_t to) const noexcept {
      return {tokens.subspan(from, to - from), closers + from};
    }
    // The place of the parenthesis that closes the one at `open`; absent where the tokens end before it.
    std::size_t closer(std::size_t open) const noexcept {
      return closers[open] == 0 || open + closers[open] >= size() ? 0 : open + closers[open];
    }
  };

  // An item of the expression being read: an operand, or an operator that still wants its operands.
  struct Item {
    Ref<KorTemplateExpression> expression;    // absent for an operator
    const KorToken* operatorToken = nullptr;  // not owned
    std::uint32_t level = 0;                  // of an operator, the place among those of the language
  };

  static void setupScannerRules();

  std::string_view textOf(const KorToken& token) const;
  std::string_view textAtPosition(std::int64_t position, std::int64_t length) const;
  template <class... Arguments>
  [[noreturn]] void raiseSyntaxError(const KorToken* token, const char* format, const Arguments&... arguments);
  template <class Node>
  Ref<Node> placed(Ref<Node> statement, const KorToken& block) const;
  SourceRange bytesOf(const KorToken& token) const;
  Ref<KorTemplateStatement> literalStatement(std::uint32_t from, std::uint32_t to);

  ExpressionTokens withClosers(const KorTokenList& tokens);
  Ref<KorTemplateExpression> parseExpression(const ExpressionTokens& tokens);
  std::size_t parseOperandOrOperator(const ExpressionTokens& tokens, std::size_t index, std::size_t base);
  Ref<KorTemplateExpression> parseLiteral(const KorToken& token);
  Ref<KorTemplateExpression> parseVariable(std::string_view variable);
  Ref<KorTemplateExpression> parseParenthesis(const ExpressionTokens& tokens, std::size_t index, std::size_t& close);
  Ref<KorTemplateFunctionCallExpression> parseCall(const ExpressionTokens& tokens, std::size_t index,
                                                   std::size_t& close);
  void parseArguments(const ExpressionTokens& tokens, KorTemplateFunctionCallExpression& call);
  void raiseUnexpectedToken(const KorToken& token, std::size_t items);
  template <class WorkingItem, class IsOccurrence>
  void fold(std::vector<WorkingItem>& items, std::size_t base, std::string_view op, const IsOccurrence& isOccurrence);
  template <class WorkingItem>
  void requireOperands(std::string_view op, const KorToken* token, const WorkingItem* left, const WorkingItem* right);
  void foldEverywhere(KorWorkingList& items, std::string_view op);

  bool divideConditional(const Ref<KorTemplateStatement>& statement, bool& readsTrue,
                         Ref<KorTemplateConditionalStatement>& current);
  std::size_t parseParameters(const KorCompoundToken& token, KorTemplateInternalFunction& function);
  const KorToken* subtokenAt(const KorCompoundToken& token, std::size_t index) const noexcept {
    return index < token.subtokens.size() ? &token.subtokens[index] : nullptr;
  }
  // The subtoken at `index`, which must have the class; otherwise raises the message on its line.
  const KorToken& expect(const KorCompoundToken& token, std::size_t index, const KorTokenClass& tokenClass,
                         const char* message);
  KorTokenList headExpression(const KorCompoundToken& token, std::size_t first, const char* message);

  Ref<NSString> inputString_;
  Ref<KorTemplateSource> source_;
  Ref<KorRuleBasedScanner> scanner_;
  const KorToken* currentBlockToken_ = nullptr;  // the scanner's
  std::int32_t currentPosition_ = 0;             // in UTF-16 units
  std::uint32_t currentByte_ = 0;                // the same in bytes
  bool parsingFunction_ = false;                 // one flag, not a depth: any function's end clears it

  KorTemplateLimits limits_;
  StackGuard stackGuard_;
  std::int32_t nesting_ = 0;            // control structures and parentheses around what is being read
  std::uint64_t patternPartsLeft_ = 0;  // of regular expressions, in proportion to the text
  SourceRange place_;
  NameCache names_;
  StringCache keyPaths_;
  std::vector<Ref<KorTemplateStatement>> bodies_;  // of the structures being read, the innermost last
  std::vector<Item> working_;                      // of the expressions being read, the innermost last
  std::vector<std::uint32_t> closers_;             // of the expression being read
  std::vector<std::size_t> openings_;              // while closers_ are found
};

}  // namespace tavlo

#pragma GCC visibility pop
