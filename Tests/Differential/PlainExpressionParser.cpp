#include "Tests/Differential/PlainExpressionParser.h"

#include <algorithm>
#include <cstdlib>
#include <limits>
#include <optional>

#include "Foundation/Value.h"
#include "Source/KorTemplateBinaryExpression.h"
#include "Source/KorTemplateFunctionCallExpression.h"
#include "Source/KorTemplateLiteralExpression.h"
#include "Source/KorTemplateParser.h"
#include "Source/KorTemplateRegexExpression.h"
#include "Source/KorTemplateVariableExpression.h"

namespace tavlo::test {

namespace {

using Parser = KorTemplateParser;
using Tokens = std::vector<KorToken>;

struct Item {
  Ref<KorTemplateExpression> expression;  // absent for an operator
  KorToken token;
};

struct OperatorRow {
  const char* text;
  KorTemplateOperator op;
};

// In the order in which they are folded.
constexpr OperatorRow kOperators[] = {
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

[[noreturn]] void fail(const KorToken* token, const std::string& message) {
  if (token == nullptr) {
    throw PlainError{"NSInternalInconsistencyException", "Invalid parameter not satisfying: token != nil"};
  }
  throw PlainError{"KorTemplateSyntaxErrorException",
                   "Syntax error (line " + std::to_string(token->line) + "): " + message};
}

// The place of the parenthesis that closes one that is open already.
std::optional<std::size_t> endOfClosure(const Tokens& tokens) {
  int depth = 1;
  for (std::size_t index = 0; index < tokens.size(); ++index) {
    if (tokens[index].tokenClass == &Parser::ParenthesisStart) {
      ++depth;
    } else if (tokens[index].tokenClass == &Parser::ParenthesisEnd) {
      if (depth-- == 1) return index;
    }
  }
  return {};
}

Tokens part(const Tokens& tokens, std::size_t from, std::size_t to) {
  return {tokens.begin() + static_cast<std::ptrdiff_t>(from), tokens.begin() + static_cast<std::ptrdiff_t>(to)};
}

class PlainParser {
 public:
  explicit PlainParser(const std::string& text) : text_(text) {}

  Ref<KorTemplateExpression> parse(const Tokens& tokens) {
    std::vector<Item> items;
    for (std::size_t index = 0; index < tokens.size(); ++index) {
      const KorToken& token = tokens[index];
      const Tokens rest = part(tokens, index, tokens.size());
      if (token.tokenClass == &Parser::ParenthesisStart) {
        std::size_t inner = 0;
        items.push_back({parseParenthesis(rest, inner), token});
        index += inner + 1;
      } else if (token.tokenClass == &Parser::BinaryOperator || token.tokenClass == &Parser::AssignmentOperator) {
        items.push_back({nullptr, token});
      } else if (token.tokenClass == &Parser::Symbol) {
        std::size_t eaten = 0;
        items.push_back({parseCall(rest, eaten), token});
        index += eaten;
      } else {
        items.push_back({parseOperand(token, items.size()), token});
      }
    }
    for (const OperatorRow& row : kOperators) promote(row, items);
    if (items.size() != 1) fail(tokens.empty() ? nullptr : &tokens.back(), "Invalid expression");
    return items.front().expression;
  }

 private:
  std::string textOf(const KorToken& token) const {
    return text_.substr(static_cast<std::size_t>(token.position), static_cast<std::size_t>(token.length));
  }

  Ref<KorTemplateExpression> parseParenthesis(const Tokens& tokens, std::size_t& inner) {
    const Tokens behind = part(tokens, 1, tokens.size());
    const std::optional<std::size_t> close = endOfClosure(behind);
    if (!close.has_value()) fail(&tokens.front(), "Missing closing parenthesis");
    inner = *close;
    if (inner == 0) fail(&behind[inner], "Empty parenthesis");
    return parse(part(behind, 0, inner));
  }

  Ref<KorTemplateExpression> parseCall(const Tokens& tokens, std::size_t& eaten) {
    const Ref<KorTemplateFunctionCallExpression> call =
        KorTemplateFunctionCallExpression::expressionWithFunctionName(textOf(tokens.front()));
    if (tokens.size() < 2 || tokens[1].tokenClass != &Parser::ParenthesisStart) {
      fail(tokens.size() < 2 ? nullptr : &tokens[1], "Function call missing opening parenthesis for argument list");
    }
    const std::optional<std::size_t> close = endOfClosure(part(tokens, 2, tokens.size()));
    if (!close.has_value()) fail(&tokens[1], "Function call missing closing parenthesis for argument list");
    eaten = *close + 2;
    if (*close == 0) return call;
    const Tokens arguments = part(tokens, 2, eaten);
    int depth = 0;
    std::size_t start = 0;
    for (std::size_t index = 0; index < arguments.size(); ++index) {
      if (arguments[index].tokenClass == &Parser::ParenthesisStart) ++depth;
      if (arguments[index].tokenClass == &Parser::ParenthesisEnd) --depth;
      if (arguments[index].tokenClass != &Parser::ArgumentSeparator || depth != 0) continue;
      call->addArgumentExpression(parse(part(arguments, start, index)));
      start = index + 1;
    }
    call->addArgumentExpression(parse(part(arguments, start, arguments.size())));
    return call;
  }

  Ref<KorTemplateExpression> parseOperand(const KorToken& token, std::size_t items) const {
    const std::string text = textOf(token);
    const KorTokenClass* const tokenClass = token.tokenClass;
    const auto literal = [](const Value& value) { return KorTemplateLiteralExpression::expressionWithLiteral(value); };
    if (tokenClass == &Parser::IntegralNumericLiteral) return literal(integer(text));
    if (tokenClass == &Parser::NonIntegralNumericLiteral) return literal(std::strtod(text.c_str(), nullptr));
    if (tokenClass == &Parser::StringLiteral) return literal(text);
    if (tokenClass == &Parser::RegexStringLiteral) return regex(text);
    if (tokenClass == &Parser::BooleanKeyword) return literal(text.size() == 4);
    if (tokenClass == &Parser::NullKeyword) return literal(Value::null());
    if (tokenClass == &Parser::IntrinsicVariable) return KorTemplateVariableExpression::expressionWithVariable(text);
    if (tokenClass == &Parser::Variable) {
      return KorTemplateVariableExpression::expressionWithVariable(text.substr(1));
    }
    fail(&token, "'" + text + "'. Expected " + (items % 2 == 1 ? "operator" : "literal, variable or sub-expression"));
  }

  static std::int32_t integer(const std::string& text) {
    const long long number = std::strtoll(text.c_str(), nullptr, 10);
    return static_cast<std::int32_t>(std::clamp<long long>(number, std::numeric_limits<std::int32_t>::min(),
                                                           std::numeric_limits<std::int32_t>::max()));
  }

  static Ref<KorTemplateExpression> regex(const std::string& text) {
    std::string pattern = text.substr(1, text.size() - 2);
    for (std::size_t at = pattern.find("\\/"); at != std::string::npos; at = pattern.find("\\/", at + 1)) {
      pattern.erase(at, 1);
    }
    return KorTemplateRegexExpression::expressionWithRegexString(pattern);
  }

  void promote(const OperatorRow& row, std::vector<Item>& items) const {
    const std::string op = row.text;
    for (std::size_t index = 0; index < items.size(); ++index) {
      if (items[index].expression != nullptr || textOf(items[index].token) != op) continue;
      const KorToken token = items[index].token;
      if (index == 0 || items[index - 1].expression == nullptr) {
        fail(&token, "Expression required to left of " + op + " operator");
      }
      if (index + 1 == items.size() || items[index + 1].expression == nullptr) {
        fail(&token, "Expression required to right of " + op + " operator");
      }
      const Ref<KorTemplateExpression> left = items[index - 1].expression;
      const Ref<KorTemplateExpression> right = items[index + 1].expression;
      const Ref<KorTemplateBinaryExpression> node = KorTemplateBinaryExpression::expressionWithOperator(row.op);
      node->setLeftOperand(left);
      node->setRightOperand(right);
      items[index].expression = node;
      std::erase_if(items, [&](const Item& item) { return item.expression == left; });
      std::erase_if(items, [&](const Item& item) { return item.expression == right; });
      --index;  // the node stands one place before: the next item is at the old index
    }
  }

  const std::string& text_;
};

}  // namespace

Ref<KorTemplateExpression> parsePlainly(const std::string& text, const std::vector<KorToken>& tokens) {
  return PlainParser(text).parse(tokens);
}

}  // namespace tavlo::test
