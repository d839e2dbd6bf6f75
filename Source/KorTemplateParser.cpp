#include "Source/KorTemplateParser.h"

#include <algorithm>
#include <bit>
#include <cstdint>
#include <functional>
#include <iterator>
#include <limits>
#include <utility>

#include "Foundation/NSNumber.h"
#include "Foundation/Utf8.h"
#include "Source/KorTemplateBinaryExpression.h"
#include "Source/KorTemplateBlockStatement.h"
#include "Source/KorTemplateConditionalStatement.h"
#include "Source/KorTemplateEnumerationStatement.h"
#include "Source/KorTemplateExpressionStatement.h"
#include "Source/KorTemplateFunctionDefinitionStatement.h"
#include "Source/KorTemplateInternalFunction.h"
#include "Source/KorTemplateLiteralExpression.h"
#include "Source/KorTemplateOutputStatement.h"
#include "Source/KorTemplateRegexExpression.h"
#include "Source/KorTemplateReturnStatement.h"
#include "Source/KorTemplateSyntaxErrorException.h"
#include "Source/KorTemplateVariableExpression.h"

namespace tavlo {

namespace {

bool equalsIgnoringCase(std::string_view left, std::string_view right) {
  const auto folded = [](char byte) { return byte >= 'A' && byte <= 'Z' ? static_cast<char>(byte - 'A' + 'a') : byte; };
  return std::ranges::equal(left, right, [&](char one, char other) { return folded(one) == folded(other); });
}

struct OperatorText {
  std::string_view text;
  KorTemplateOperator op;
};

// In the order in which they are folded, the most tightly binding first.
constexpr OperatorText kOperatorTexts[] = {
    {"=", KorTemplateOperatorAssignment},
    {"%", KorTemplateOperatorModulo},
    {"*", KorTemplateOperatorMultiply},
    {"/", KorTemplateOperatorDivide},
    {"+", KorTemplateOperatorAdd},
    {"-", KorTemplateOperatorSubtract},
    {"==", KorTemplateOperatorEquals},
    {"!=", KorTemplateOperatorNotEquals},
    {"=~", KorTemplateOperatorMatches},
    {"<", KorTemplateOperatorLessThan},
    {">", KorTemplateOperatorGreaterThan},
    {"<=", KorTemplateOperatorLessThanOrEqualTo},
    {">=", KorTemplateOperatorGreaterThanOrEqualTo},
    {"&&", KorTemplateOperatorAnd},
    {"||", KorTemplateOperatorOr},
};

// The place of an operator in the table; the table's size for a text that is no operator.
std::uint32_t levelOfOperator(std::string_view text) {
  std::uint32_t level = 0;
  while (level < std::size(kOperatorTexts) && kOperatorTexts[level].text != text) ++level;
  return level;
}

// The text behind the first character, which stands for the kind of token.
std::string_view withoutFirst(std::string_view text) {
  if (text.empty()) raiseRange(1, 0);
  return text.substr(1);
}

// Takes out of a list, in the end, what has been moved together: the items from `end` up to `index`.
template <class Items>
struct GapCloser {
  Items& items;
  const std::size_t& end;
  const std::size_t& index;

  ~GapCloser() {
    const std::size_t last = std::min(index, items.size());
    items.erase(items.begin() + static_cast<std::ptrdiff_t>(end), items.begin() + static_cast<std::ptrdiff_t>(last));
  }
};

// The pattern between the slashes, with each "\/" turned into "/".
std::string patternOf(std::string_view literalText) {
  if (literalText.size() < 2) return {};
  literalText = literalText.substr(1, literalText.size() - 2);
  std::string result;
  for (std::size_t at = 0; at < literalText.size(); ++at) {
    if (literalText.substr(at).starts_with("\\/")) ++at;
    result += literalText[at];
  }
  return result;
}

}  // namespace

// The statements of a body that is being read, at the end of a list that all bodies around it share: each body is made
// as large as it is.
class KorTemplateParser::Body {
 public:
  explicit Body(KorTemplateParser& parser) : bodies_(parser.bodies_), base_(bodies_.size()) {}
  ~Body() { bodies_.resize(base_); }
  Body(const Body&) = delete;
  Body& operator=(const Body&) = delete;

  void append(Ref<KorTemplateStatement> statement) { bodies_.push_back(std::move(statement)); }
  // Moves what has been read to the end of the list.
  void moveTo(KorTemplateChildList<Ref<KorTemplateStatement>>& list) {
    list.appendMoved(std::span(bodies_).subspan(base_));
    bodies_.resize(base_);
  }

 private:
  std::vector<Ref<KorTemplateStatement>>& bodies_;
  std::size_t base_;
};

// One control structure, or one pair of parentheses, around what is being read.
class KorTemplateParser::Nesting {
 public:
  Nesting(KorTemplateParser& parser, const KorToken& token) : parser_(parser) {
    const std::int32_t bound = std::max(parser.limits_.nesting, 0);
    if (parser.nesting_ >= bound) {
      parser.place_ = {token.byteOffset, token.byteLength};
      raiseLimit(KorTemplateLimit::Nesting, static_cast<std::uint64_t>(bound));
    }
    parser.stackGuard_.check();
    ++parser_.nesting_;
  }
  ~Nesting() { --parser_.nesting_; }
  Nesting(const Nesting&) = delete;
  Nesting& operator=(const Nesting&) = delete;

 private:
  KorTemplateParser& parser_;
};

// Raises the flag while a function's body is read, and clears it however the reading ends.
class KorTemplateParser::ParsingFunction {
 public:
  explicit ParsingFunction(KorTemplateParser& parser) : parser_(parser) { parser_.parsingFunction_ = true; }
  ~ParsingFunction() { parser_.parsingFunction_ = false; }
  ParsingFunction(const ParsingFunction&) = delete;
  ParsingFunction& operator=(const ParsingFunction&) = delete;

 private:
  KorTemplateParser& parser_;
};

Ref<KorTemplateParser> KorTemplateParser::parserForString(const Text& string, const KorTemplateLimits& limits) {
  requireParameter(!string.isAbsent(), "string != nil");
  return makeRef<KorTemplateParser>(NSString::stringWithUTF8(string.view()), limits);
}

KorTemplateParser::KorTemplateParser(const Ref<NSString>& string, const KorTemplateLimits& limits)
    : KorTemplateParser(string, nullptr, limits) {
  const Ref<KorUnicharStream> stream = KorUnicharStream::streamWithBuffer(KorStringBuffer::bufferFromString(string));
  scanner_ = KorRuleBasedScanner::scannerForStream(stream, scannerRules());
}

KorTemplateParser::KorTemplateParser(const Ref<NSString>& string, const Ref<KorRuleBasedScanner>& scanner,
                                     const KorTemplateLimits& limits)
    : inputString_(string),
      scanner_(scanner),
      limits_(limits),
      stackGuard_(StackGuard::forThisThread(limits.stackLeft)) {
  requireParameter(string != nullptr, "string != nil");
  constexpr std::uint64_t kPatternWeight = 1024;
  constexpr std::uint64_t kBytesOfWeight = 256;
  patternPartsLeft_ = KorRegex::kPartsOfWeight * (kPatternWeight + string->byteLength() / kBytesOfWeight);
  constexpr std::size_t kFew = 16;  // most expressions hold no more
  working_.reserve(kFew);
  closers_.reserve(kFew);
}

namespace {

// Of places in texts as long as texts can be, which are told apart up to the last number.
std::int32_t sumOfPlaces(std::int32_t one, std::int32_t other) noexcept {
  constexpr std::int64_t kLast = std::numeric_limits<std::int32_t>::max();
  return static_cast<std::int32_t>(std::min(std::int64_t{one} + other, kLast));
}

}  // namespace

std::int32_t KorTemplateParser::lineFromToken(const KorToken* token) const {
  if (token == nullptr) failParameter("token != nil");
  return sumOfPlaces(token->line, currentBlockToken_ == nullptr ? 0 : currentBlockToken_->line);
}

std::int32_t KorTemplateParser::positionFromToken(const KorToken* token) const {
  if (token == nullptr) failParameter("token != nil");
  return sumOfPlaces(token->position, currentBlockToken_ == nullptr ? 0 : currentBlockToken_->position);
}

std::string KorTemplateParser::stringFromToken(const KorToken* token) const {
  requireParameter(token != nullptr, "token != nil");
  return std::string(textAtPosition(positionFromToken(token), token->length));
}

// The text of a sub-token of the current block is found by its byte offset; a token from elsewhere is looked for by its
// position, as stringFromToken() does for every token.
inline std::string_view KorTemplateParser::textOf(const KorToken& token) const {
  if (currentBlockToken_ != nullptr && currentBlockToken_->isCompound) [[likely]] {
    const auto& subtokens = static_cast<const KorCompoundToken*>(currentBlockToken_)->subtokens;
    const KorToken* const first = subtokens.data();
    const std::less<> before;
    const bool knowsItsBytes = token.byteLength != 0 || token.length == 0;
    if (knowsItsBytes && !before(&token, first) && before(&token, first + subtokens.size())) [[likely]] {
      const std::string_view text = inputString_->view();
      if (token.byteOffset > text.size()) raiseRange(token.byteOffset, text.size());
      return {text.data() + token.byteOffset, std::min<std::size_t>(token.byteLength, text.size() - token.byteOffset)};
    }
  }
  return textAtPosition(positionFromToken(&token), token.length);
}

std::string_view KorTemplateParser::textAtPosition(std::int64_t position, std::int64_t length) const {
  const std::string_view text = inputString_->view();
  const std::int64_t end = position + length;
  if (position < 0 || length < 0 || end > inputString_->length()) raiseRange(position, inputString_->length());
  if (inputString_->isASCII()) return text.substr(static_cast<std::size_t>(position), static_cast<std::size_t>(length));
  std::int64_t units = 0;
  std::size_t from = 0;
  std::size_t to = 0;
  for (std::size_t at = 0; at <= text.size();) {
    if (units <= position) from = at;
    if (units <= end) to = at;
    const CodePoint next = codePointAt(text, at);
    units += next.value >= 0x10000 ? 2 : 1;
    at += std::max(next.byteLength, 1U);
  }
  return text.substr(from, to - from);
}

KorTemplateOperator KorTemplateParser::operatorForString(const Text& string) {
  for (const OperatorText& row : kOperatorTexts) {
    if (!string.isAbsent() && row.text == string.view()) return row.op;
  }
  NSException::raise(NSInvalidArgumentException, "Unrecognized operator");
}

const KorToken* KorTemplateParser::nextTokenWithClassInTokens(const KorTokenClass* tokenClass, KorTokenEnumerator* e) {
  requireParameter(tokenClass != nullptr, "tokenClass != nil");
  requireParameter(e != nullptr, "e != nil");
  const KorToken* token = e->nextObject();
  while (token != nullptr && token->tokenClass != tokenClass) token = e->nextObject();
  return token;
}

template <class... Arguments>
void KorTemplateParser::raiseSyntaxError(const KorToken* token, const char* format, const Arguments&... arguments) {
  if (token == nullptr) failParameter("token != nil");
  auto exception = KorTemplateSyntaxErrorException::exceptionOnLine(lineFromToken(token), format, arguments...);
  place_ = {token->byteOffset, std::max(token->byteLength, 1U)};
  exception.setPlace(place_);
  throw exception;
}

template <class Node>
Ref<Node> KorTemplateParser::placed(Ref<Node> statement, const KorToken& block) const {
  statement->setSourceRange({block.byteOffset, block.byteLength});
  return statement;
}

// Expressions.

KorTemplateParser::ExpressionTokens KorTemplateParser::withClosers(const KorTokenList& tokens) {
  if (closers_.size() < tokens.size()) closers_.resize(tokens.size());
  openings_.clear();
  for (std::size_t index = 0; index < tokens.size(); ++index) {
    if (tokens[index].tokenClass == &ParenthesisStart) {
      closers_[index] = 0;
      openings_.push_back(index);
    } else if (tokens[index].tokenClass == &ParenthesisEnd && !openings_.empty()) {
      closers_[openings_.back()] = static_cast<std::uint32_t>(index - openings_.back());
      openings_.pop_back();
    }
  }
  return {tokens.span(), closers_.data()};
}

Ref<KorTemplateExpression> KorTemplateParser::parseExpressionFromTokens(const KorTokenList& tokens) {
  requireParameter(!tokens.isAbsent(), "tokens != nil");
  working_.clear();  // what an expression that failed has left
  const std::uint32_t noCloser = 0;
  return parseExpression(tokens.size() == 1 ? ExpressionTokens{tokens.span(), &noCloser} : withClosers(tokens));
}

// The working list is the end of a list that all expressions being read share, from `base` on.
Ref<KorTemplateExpression> KorTemplateParser::parseExpression(const ExpressionTokens& tokens) {
  if (tokens.size() == 1) {
    if (Ref<KorTemplateExpression> whole = parseLiteral(tokens.tokens.front())) return whole;
  }
  const std::size_t base = working_.size();
  std::uint32_t levels = 0;  // a bit for each that has an operator here
  for (std::size_t index = 0; index < tokens.size();) {
    index = parseOperandOrOperator(tokens, index, base);
    const Item& item = working_.back();
    if (item.operatorToken != nullptr) levels |= 1U << item.level;
  }
  levels &= (1U << std::size(kOperatorTexts)) - 1;
  for (; levels != 0; levels &= levels - 1) {
    const auto level = static_cast<std::uint32_t>(std::countr_zero(levels));
    fold(working_, base, kOperatorTexts[level].text,
         [level](const Item& item) { return item.operatorToken != nullptr && item.level == level; });
  }
  if (working_.size() != base + 1) {
    raiseSyntaxError(tokens.size() == 0 ? nullptr : &tokens.tokens.back(), "Invalid expression");
  }
  Ref<KorTemplateExpression> expression = std::move(working_.back().expression);
  working_.pop_back();
  return expression;
}

// Puts what begins at `index` into the working list and answers with the place behind it.
std::size_t KorTemplateParser::parseOperandOrOperator(const ExpressionTokens& tokens, std::size_t index,
                                                      std::size_t base) {
  const KorToken& token = tokens.tokens[index];
  if (token.tokenClass == &BinaryOperator || token.tokenClass == &AssignmentOperator) {
    working_.push_back({nullptr, &token, levelOfOperator(textOf(token))});
    return index + 1;
  }
  std::size_t last = index;
  Ref<KorTemplateExpression> operand;
  if (token.tokenClass == &ParenthesisStart) {
    operand = parseParenthesis(tokens, index, last);
  } else if (token.tokenClass == &Symbol) {
    operand = parseCall(tokens, index, last);
  } else {
    operand = parseLiteral(token);
    if (operand == nullptr) raiseUnexpectedToken(token, working_.size() - base);
  }
  working_.push_back({std::move(operand), nullptr, 0});
  return last + 1;
}

// The number of items decides which message it is, not what the last item is.
void KorTemplateParser::raiseUnexpectedToken(const KorToken& token, std::size_t items) {
  if (items % 2 == 1) raiseSyntaxError(&token, "'%@'. Expected operator", textOf(token));
  raiseSyntaxError(&token, "'%@'. Expected literal, variable or sub-expression", textOf(token));
}

// A literal or a variable; absent for a token that is neither.
Ref<KorTemplateExpression> KorTemplateParser::parseLiteral(const KorToken& token) {
  const auto literalOf = [](Value value) {
    return KorTemplateLiteralExpression::expressionWithLiteral(std::move(value));
  };
  const std::string_view text = textOf(token);
  const KorTokenClass* const tokenClass = token.tokenClass;
  if (tokenClass == &Variable) return parseVariable(withoutFirst(text));
  if (tokenClass == &NonIntegralNumericLiteral) return literalOf(textAsDouble(text));
  if (tokenClass == &StringLiteral) return literalOf(NSString::stringWithValidUTF8(text, Counting::Atomic));
  if (tokenClass == &IntegralNumericLiteral) return literalOf(textAsInt(text));
  if (tokenClass == &RegexStringLiteral) {
    return KorTemplateRegexExpression::expressionWithRegex(
        KorRegex::compileExpression(patternOf(text), patternPartsLeft_));
  }
  if (tokenClass == &BooleanKeyword) return literalOf(equalsIgnoringCase(text, "true"));
  if (tokenClass == &NullKeyword) return literalOf(NSNull::null());
  if (tokenClass == &IntrinsicVariable) return parseVariable(text);
  return {};
}

Ref<KorTemplateExpression> KorTemplateParser::parseVariable(std::string_view variable) {
  const std::size_t dot = variable.find('.');
  if (dot == std::string_view::npos) {
    return makeRef<KorTemplateVariableExpression>(names_.nameForText(variable), Name(), Name());
  }
  return makeRef<KorTemplateVariableExpression>(names_.nameForText(variable.substr(0, dot)),
                                                keyPaths_.stringForText(variable.substr(dot + 1)));
}

Ref<KorTemplateExpression> KorTemplateParser::parseParenthesis(const ExpressionTokens& tokens, std::size_t index,
                                                               std::size_t& close) {
  close = tokens.closer(index);
  if (close == 0) raiseSyntaxError(&tokens.tokens[index], "Missing closing parenthesis");
  if (close == index + 1) raiseSyntaxError(&tokens.tokens[close], "Empty parenthesis");
  const Nesting nesting(*this, tokens.tokens[index]);
  return parseExpression(tokens.sub(index + 1, close));
}

Ref<KorTemplateFunctionCallExpression> KorTemplateParser::parseFunctionCallExpressionFromTokensTokensEaten(
    const KorTokenList& tokens, std::int32_t* eaten) {
  requireParameter(!tokens.isAbsent(), "tokens != nil");
  requireParameter(eaten != nullptr, "eaten != nil");
  requireParameter(!tokens.empty(), "token != nil");
  working_.clear();
  // Known before the arguments are read, and told even where one of them is wrong.
  struct Close {
    ~Close() {
      if (index != 0) *eaten = static_cast<std::int32_t>(index);
    }
    std::int32_t* eaten;
    std::size_t index = 0;
  } close{eaten};
  return parseCall(withClosers(tokens), 0, close.index);
}

Ref<KorTemplateFunctionCallExpression> KorTemplateParser::parseCall(const ExpressionTokens& tokens, std::size_t index,
                                                                    std::size_t& close) {
  Ref<KorTemplateFunctionCallExpression> call =
      KorTemplateFunctionCallExpression::expressionWithFunctionName(names_.nameForText(textOf(tokens.tokens[index])));
  const std::size_t open = index + 1;
  const KorToken* openToken = open < tokens.size() ? &tokens.tokens[open] : nullptr;
  if (openToken == nullptr || openToken->tokenClass != &ParenthesisStart) {
    raiseSyntaxError(openToken, "Function call missing opening parenthesis for argument list");
  }
  close = tokens.closer(open);
  if (close == 0) raiseSyntaxError(openToken, "Function call missing closing parenthesis for argument list");
  const Nesting nesting(*this, *openToken);
  if (close == open + 1) return call;
  parseArguments(tokens.sub(open + 1, close), *call);
  return call;
}

// The separators outside all parentheses part the arguments; what is inside is jumped over.
void KorTemplateParser::parseArguments(const ExpressionTokens& tokens, KorTemplateFunctionCallExpression& call) {
  std::size_t first = 0;
  for (std::size_t index = 0; index < tokens.size(); ++index) {
    if (tokens.tokens[index].tokenClass == &ParenthesisStart) {
      index += tokens.closers[index];
    } else if (tokens.tokens[index].tokenClass == &ArgumentSeparator) {
      call.argumentExpressions().append(parseExpression(tokens.sub(first, index)));
      first = index + 1;
    }
  }
  call.argumentExpressions().append(parseExpression(tokens.sub(first, tokens.size())));
}

void KorTemplateParser::promoteExpressionsWithOperatorInArray(const Text& op, KorWorkingList* expressions) {
  requireParameter(!op.isAbsent(), "op != nil");
  requireParameter(expressions != nullptr, "expressions != nil");
  std::vector<const KorTemplateExpression*> operands;
  bool areTheEngines = true;  // whose nodes equal only themselves
  for (const KorWorkingItem& item : *expressions) {
    if (item.expression == nullptr) continue;
    operands.push_back(item.expression.get());
    areTheEngines &= item.expression->kind() != ObjectKind::Other;
  }
  std::ranges::sort(operands);
  if (areTheEngines && std::ranges::adjacent_find(operands) == operands.end()) {
    fold(*expressions, 0, op.view(), [&](const KorWorkingItem& item) {
      return item.operatorToken != nullptr && textOf(*item.operatorToken) == op.view();
    });
  } else {
    foldEverywhere(*expressions, op.view());
  }
}

// The items from `base` on, none of which stands there twice, folded in one walk.
template <class WorkingItem, class IsOccurrence>
void KorTemplateParser::fold(std::vector<WorkingItem>& items, std::size_t base, std::string_view op,
                             const IsOccurrence& isOccurrence) {
  std::size_t end = base;  // of what has been walked over, moved together
  std::size_t index = base;
  const GapCloser<std::vector<WorkingItem>> closer{items, end, index};  // also where an operator has no operand
  for (; index < items.size(); ++index) {
    if (!isOccurrence(items[index])) {
      if (end != index) items[end] = std::move(items[index]);
      ++end;
      continue;
    }
    WorkingItem* const left = end > base ? &items[end - 1] : nullptr;
    WorkingItem* const right = index + 1 < items.size() ? &items[index + 1] : nullptr;
    requireOperands(op, items[index].operatorToken, left, right);
    left->expression = makeRef<KorTemplateBinaryExpression>(operatorForString(op), std::move(left->expression),
                                                            std::move(right->expression));
    ++index;
  }
}

template <class WorkingItem>
void KorTemplateParser::requireOperands(std::string_view op, const KorToken* token, const WorkingItem* left,
                                        const WorkingItem* right) {
  if (left == nullptr || left->expression == nullptr) {
    raiseSyntaxError(token, "Expression required to left of %@ operator", op);
  }
  if (right == nullptr || right->expression == nullptr) {
    raiseSyntaxError(token, "Expression required to right of %@ operator", op);
  }
}

// The same for a list made by hand in which an operand stands more than once: folding one of them removes them all.
void KorTemplateParser::foldEverywhere(KorWorkingList& items, std::string_view op) {
  for (std::size_t index = 0; index < items.size(); ++index) {
    const KorToken* token = items[index].operatorToken;
    if (token == nullptr || textOf(*token) != op) continue;
    const KorWorkingItem* left = index > 0 ? &items[index - 1] : nullptr;
    const KorWorkingItem* right = index + 1 < items.size() ? &items[index + 1] : nullptr;
    requireOperands(op, token, left, right);
    const Ref<KorTemplateExpression> removed[] = {left->expression, right->expression};
    items[index] = {makeRef<KorTemplateBinaryExpression>(operatorForString(op), removed[0], removed[1]), nullptr};
    for (const Ref<KorTemplateExpression>& operand : removed) {
      std::erase_if(items, [&operand](const KorWorkingItem& item) {
        return item.expression != nullptr && areEqualItems(item.expression, operand);
      });
    }
    --index;  // the node stands one place before
  }
}

// Statements.

Ref<KorTemplateStatement> KorTemplateParser::parseOutputStatementForToken(const KorCompoundToken* token) {
  requireParameter(token != nullptr, "token");
  const KorTokenList subtokens = token->subtokens;
  if (subtokens.size() <= 1) raiseSyntaxError(subtokenAt(*token, 0), "Expression expected");
  const KorTokenList behind = subarrayFromIndex(subtokens, 1);
  KorTokenEnumerator e(behind);
  if (nextTokenWithClassInTokens(&BlockEndTag, &e) == nullptr) {
    raiseSyntaxError(subtokenAt(*token, 0), "Closing tag missing from template block");
  }
  const KorTokenList expression = subarrayToIndex(behind, static_cast<std::int32_t>(behind.size()) - 1);
  return placed(makeRef<KorTemplateOutputStatement>(parseExpressionFromTokens(expression)), *token);
}

Ref<KorTemplateStatement> KorTemplateParser::parseExpressionStatementForToken(const KorCompoundToken* token) {
  requireParameter(token != nullptr, "token != nil");
  const KorTokenList subtokens = token->subtokens;
  KorTokenEnumerator e(subtokens);
  const KorToken* end = nextTokenWithClassInTokens(&BlockEndTag, &e);
  // Without a closing tag there is no index to end at, which the list refuses.
  const auto index = end == nullptr ? -1 : static_cast<std::int32_t>(end - subtokens.span().data());
  return placed(KorTemplateExpressionStatement::statementWithExpression(
                    parseExpressionFromTokens(subarrayToIndex(subtokens, index))),
                *token);
}

const KorToken& KorTemplateParser::expect(const KorCompoundToken& token, std::size_t index,
                                          const KorTokenClass& tokenClass, const char* message) {
  const KorToken* subtoken = subtokenAt(token, index);
  if (subtoken == nullptr || subtoken->tokenClass != &tokenClass) raiseSyntaxError(subtoken, message);
  return *subtoken;
}

// The tokens from `first` up to the parenthesis that closes a head.
KorTokenList KorTemplateParser::headExpression(const KorCompoundToken& token, std::size_t first, const char* message) {
  const KorToken* firstToken = subtokenAt(token, first);
  requireParameter(firstToken != nullptr, "token != nil");
  const KorTokenList rest = subarrayFromIndex(KorTokenList(token.subtokens), static_cast<std::int32_t>(first));
  KorTokenEnumerator e(rest);
  const KorToken* close = parenthesisClosure().findEndOfClosureInTokens(&e);
  if (close == nullptr) raiseSyntaxError(firstToken, message);
  return subarrayToIndex(rest, static_cast<std::int32_t>(close - firstToken));
}

Ref<KorTemplateStatement> KorTemplateParser::parseIfStatementForToken(const KorCompoundToken* token) {
  requireParameter(token != nullptr, "token != nil");
  (void)expect(*token, 1, ParenthesisStart, "if statement: '(' expected");
  const KorTokenList condition = headExpression(*token, 2, "if statement: ')' missing");
  const SourceRange opening = {token->byteOffset, token->byteLength};
  const Nesting nesting(*this, *token);
  const Ref<KorTemplateConditionalStatement> outermost =
      placed(KorTemplateConditionalStatement::statementWithExpression(parseExpressionFromTokens(condition)), *token);
  Ref<KorTemplateConditionalStatement> current = outermost;
  bool readsTrue = true;
  for (Body body(*this);;) {
    Ref<KorTemplateStatement> statement = nextStatement();
    if (statement == nullptr) {
      place_ = opening;
      raiseSyntaxError(currentBlockToken_, "if statement: endif statement not found");
    }
    if (statement->kind() != kBlockKind) {
      body.append(std::move(statement));
      continue;
    }
    body.moveTo(readsTrue ? current->trueStatements() : current->falseStatements());
    if (divideConditional(statement, readsTrue, current)) return outermost;
  }
}

// What a keyword inside an "if" does: it ends the structure (true), or it divides it.
bool KorTemplateParser::divideConditional(const Ref<KorTemplateStatement>& statement, bool& readsTrue,
                                          Ref<KorTemplateConditionalStatement>& current) {
  const auto& block = static_cast<const KorTemplateBlockStatement&>(*statement);
  const std::string_view keyword = block.keyword().view();
  if (keyword == "else") {
    if (!readsTrue) raiseSyntaxError(currentBlockToken_, "if statement: more than one else clause found");
    readsTrue = false;
    return false;
  }
  if (keyword == "elseif") {
    if (!readsTrue) raiseSyntaxError(currentBlockToken_, "if statement: elseif encountered after else statement");
    if (block.expression() == nullptr) {
      raiseSyntaxError(currentBlockToken_, "if statement: elseif expected expression");
    }
    const Ref<KorTemplateConditionalStatement> next =
        KorTemplateConditionalStatement::statementWithExpression(block.expression());
    next->setSourceRange(statement->sourceRange());
    current->addFalseStatement(next);
    current = next;
    return false;
  }
  if (keyword == "endif") return true;
  raiseSyntaxError(currentBlockToken_, "if statement: unexpected keyword: \"%@\"", keyword);
}

// Unlike an "if", it ends at its first closing parenthesis, whatever that closes.
Ref<KorTemplateStatement> KorTemplateParser::parseElseIfStatementForToken(const KorCompoundToken* token) {
  requireParameter(token != nullptr, "token != nil");
  (void)expect(*token, 1, ParenthesisStart, "elseif statement: '(' expected");
  const KorToken* first = subtokenAt(*token, 2);
  requireParameter(first != nullptr, "token != nil");
  const KorTokenList rest = subarrayFromIndex(KorTokenList(token->subtokens), 2);
  KorTokenEnumerator e(rest);
  const KorToken* close = nextTokenWithClassInTokens(&ParenthesisEnd, &e);
  if (close == nullptr) raiseSyntaxError(first, "elseif statement: ')' expected");
  const Ref<KorTemplateBlockStatement> statement =
      placed(KorTemplateBlockStatement::statementWithKeyword("elseif"), *token);
  statement->setExpression(parseExpressionFromTokens(subarrayToIndex(rest, static_cast<std::int32_t>(close - first))));
  return statement;
}

Ref<KorTemplateStatement> KorTemplateParser::parseForEachStatementForToken(const KorCompoundToken* token) {
  requireParameter(token != nullptr, "token != nil");
  (void)expect(*token, 1, ParenthesisStart, "foreach statement: '(' expected");
  const KorToken& variable = expect(*token, 2, Variable, "foreach statement: variable name expected");
  const KorToken& in = expect(*token, 3, Symbol, "foreach statement: 'in' expected");
  if (textOf(in) != "in") raiseSyntaxError(&in, "foreach statement: 'in' expected");
  const KorTokenList collection = headExpression(*token, 4, "foreach statement: ')' expected");
  const KorToken first = token->subtokens[4];  // a copy: the body's blocks take the place of this one
  const Nesting nesting(*this, *token);
  const Name loopVariable = names_.nameForText(withoutFirst(textOf(variable)));
  const Ref<KorTemplateEnumerationStatement> enumeration =
      placed(KorTemplateEnumerationStatement::statementWithExpressionLoopVariable(parseExpressionFromTokens(collection),
                                                                                  loopVariable),
             *token);
  for (Body body(*this);;) {
    Ref<KorTemplateStatement> statement = nextStatement();
    if (statement == nullptr) raiseSyntaxError(&first, "foreach statement: missing endforeach statement");
    if (statement->kind() != kBlockKind) {
      body.append(std::move(statement));
      continue;
    }
    body.moveTo(enumeration->loopStatements());
    const Text keyword = static_cast<const KorTemplateBlockStatement&>(*statement).keyword();
    if (keyword.view() == "endforeach") return enumeration;
    raiseSyntaxError(&first, "foreach statement: \"%@\": unexpected keyword", keyword);
  }
}

Ref<KorTemplateStatement> KorTemplateParser::parseFunctionDefinitionStatementForToken(const KorCompoundToken* token) {
  requireParameter(token != nullptr, "token != nil");
  const Name name = names_.nameForText(textOf(expect(*token, 1, Symbol, "function statement: name expected")));
  (void)expect(*token, 2, ParenthesisStart, "function statement: opening parenthesis expected");
  const Ref<KorTemplateInternalFunction> function = KorTemplateInternalFunction::function();
  function->setSource(source_);
  const std::size_t close = parseParameters(*token, *function);
  const KorToken end = token->subtokens[close];  // a copy: the body's blocks take the place of this one
  const SourceRange opening = {token->byteOffset, token->byteLength};
  const Nesting nesting(*this, *token);
  const ParsingFunction parsing(*this);
  for (Body body(*this);;) {
    Ref<KorTemplateStatement> statement = nextStatement();
    if (statement == nullptr) raiseSyntaxError(&end, "function definition: missing endfunction statement");
    if (statement->kind() != kBlockKind) {
      body.append(std::move(statement));
      continue;
    }
    body.moveTo(function->statements());
    const Text keyword = static_cast<const KorTemplateBlockStatement&>(*statement).keyword();
    if (keyword.view() != "endfunction") {
      raiseSyntaxError(&end, "function defintiion: \"%@\": unexpected keyword", keyword);
    }
    const Ref<KorTemplateFunctionDefinitionStatement> definition =
        KorTemplateFunctionDefinitionStatement::statementForFunctionWithName(function, name);
    definition->setSourceRange(opening);
    return definition;
  }
}

// Reads a parameter list from its first name on and answers with the place of its closing parenthesis. Commas between
// the names are optional, and so is one behind the last.
std::size_t KorTemplateParser::parseParameters(const KorCompoundToken& token, KorTemplateInternalFunction& function) {
  std::size_t index = 3;
  for (;;) {
    const KorToken* argument = subtokenAt(token, index);
    if (argument != nullptr && argument->tokenClass == &ParenthesisEnd) return index;
    if (argument == nullptr || argument->tokenClass != &Variable) {
      raiseSyntaxError(argument, "function statement: %@\". variable name expected in argument list",
                       argument == nullptr ? std::string_view() : textOf(*argument));
    }
    function.arguments().append(names_.nameForText(withoutFirst(textOf(*argument))));
    const KorToken* separator = subtokenAt(token, index + 1);
    index += separator != nullptr && separator->tokenClass == &ArgumentSeparator ? 2 : 1;
  }
}

Ref<KorTemplateStatement> KorTemplateParser::parseReturnStatementForToken(const KorCompoundToken* token) {
  requireParameter(token != nullptr, "token != nil");
  const KorTokenList subtokens = token->subtokens;
  const KorTokenList behind = subarrayFromIndex(subtokens, 1);
  KorTokenEnumerator e(behind);
  const KorToken* end = nextTokenWithClassInTokens(&BlockEndTag, &e);
  if (end == nullptr) raiseSyntaxError(&subtokens[0], "Closing tag missing from template block");
  const Ref<KorTemplateReturnStatement> statement = placed(KorTemplateReturnStatement::statement(), *token);
  if (end == behind.span().data()) return statement;
  if (!parsingFunction_) {
    raiseSyntaxError(&subtokens[0], "Statement returning from template cannot contain expression");
  }
  const KorTokenList expression = subarrayToIndex(behind, static_cast<std::int32_t>(behind.size()) - 1);
  statement->setExpression(parseExpressionFromTokens(expression));
  return statement;
}

Ref<KorTemplateStatement> KorTemplateParser::parseStatementForToken(const KorCompoundToken* token) {
  requireParameter(token != nullptr, "token != nil");
  requireParameter(scanner_ != nullptr, "scanner != nil");
  place_ = {token->byteOffset, token->byteLength};
  if (token->subtokens.empty()) raiseRange(0, 0);
  const KorToken& first = token->subtokens.front();
  if (first.tokenClass == &AssignmentOperator) return parseOutputStatementForToken(token);
  if (first.tokenClass != &ControlKeyword) return parseExpressionStatementForToken(token);
  using Method = Ref<KorTemplateStatement> (KorTemplateParser::*)(const KorCompoundToken* token);
  struct KeywordRow {
    std::string_view keyword;
    Method parse;  // null: the keyword closes or divides what others have opened
  };
  static constexpr KeywordRow kKeywords[] = {
      {"if", &KorTemplateParser::parseIfStatementForToken},
      {"elseif", &KorTemplateParser::parseElseIfStatementForToken},
      {"foreach", &KorTemplateParser::parseForEachStatementForToken},
      {"function", &KorTemplateParser::parseFunctionDefinitionStatementForToken},
      {"return", &KorTemplateParser::parseReturnStatementForToken},
      {"else", nullptr},
      {"endif", nullptr},
      {"endforeach", nullptr},
      {"endfunction", nullptr},
  };
  const std::string_view text = textOf(first);
  for (const KeywordRow& row : kKeywords) {
    if (!equalsIgnoringCase(text, row.keyword)) continue;
    if (row.parse != nullptr) return (this->*row.parse)(token);
    return placed(KorTemplateBlockStatement::statementWithKeyword(text), *token);
  }
  raiseSyntaxError(token, "'%@'. Unexpected control keyword", text);
}

// Where a token of the scanner lies in bytes; counted where a scanner tells positions alone.
SourceRange KorTemplateParser::bytesOf(const KorToken& token) const {
  if (token.byteLength != 0 || token.length == 0) return {token.byteOffset, token.byteLength};
  return {static_cast<std::uint32_t>(textAtPosition(0, token.position).size()),
          static_cast<std::uint32_t>(textAtPosition(token.position, token.length).size())};
}

// One output statement for the text between two bytes.
Ref<KorTemplateStatement> KorTemplateParser::literalStatement(std::uint32_t from, std::uint32_t to) {
  return KorTemplateOutputStatement::statementWithText(inputString_, {from, to - from});
}

Ref<KorTemplateStatement> KorTemplateParser::nextStatement() {
  const KorToken* block = currentBlockToken_;
  if (block == nullptr || currentPosition_ == block->position + block->length) {
    block = scanner_ == nullptr ? nullptr : scanner_->nextToken();
    currentBlockToken_ = block;
  }
  const auto length = static_cast<std::int32_t>(inputString_->length());
  if (block == nullptr && currentPosition_ >= length) return {};
  const std::int32_t position = block == nullptr ? length : block->position;
  if (currentPosition_ < position) {
    const std::uint32_t from = currentByte_;
    currentByte_ = block == nullptr ? inputString_->byteLength() : bytesOf(*block).offset;
    currentPosition_ = position;
    return literalStatement(from, std::max(from, currentByte_));
  }
  if (currentPosition_ != position) failAssertion("Position is not located at start of current token");
  if (!block->isCompound) failAssertion("Expected compound token");
  currentPosition_ = block->position + block->length;
  const SourceRange bytes = bytesOf(*block);
  currentByte_ = bytes.offset + bytes.length;
  return parseStatementForToken(static_cast<const KorCompoundToken*>(block));
}

}  // namespace tavlo
