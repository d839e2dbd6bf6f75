#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "Foundation/NSException.h"
#include "Lexwright/KorToken.h"
#include "Source/KorTemplate.h"
#include "Source/KorTemplateBinaryExpression.h"
#include "Source/KorTemplateBlockStatement.h"
#include "Source/KorTemplateConditionalStatement.h"
#include "Source/KorTemplateEnumerationStatement.h"
#include "Source/KorTemplateExpressionStatement.h"
#include "Source/KorTemplateFunctionCallExpression.h"
#include "Source/KorTemplateFunctionDefinitionStatement.h"
#include "Source/KorTemplateInternalFunction.h"
#include "Source/KorTemplateLiteralExpression.h"
#include "Source/KorTemplateOutputStatement.h"
#include "Source/KorTemplateParser.h"
#include "Source/KorTemplateRegexExpression.h"
#include "Source/KorTemplateReturnStatement.h"
#include "Source/KorTemplateSyntaxErrorException.h"
#include "Source/KorTemplateVariableExpression.h"

// What the tests of the parser share.
namespace tavlo::test::parsing {

// What left a call: nothing, or an exception.
struct Raised {
  std::string name;  // empty when nothing was raised
  std::string reason;
  std::optional<std::int32_t> line;  // of a syntax error
  SourceRange place;                 // of a syntax error

  std::string text() const { return name.empty() ? "nothing raised" : name + ": " + reason; }
};

template <class Body>
Raised raisedBy(const Body& body) {
  try {
    body();
    return {};
  } catch (const KorTemplateSyntaxErrorException& exception) {
    return {exception.name(), exception.reason(), exception.line(), exception.place()};
  } catch (const NSException& exception) {
    return {exception.name(), exception.reason(), {}, {}};
  } catch (const KorTemplateLimitException& exception) {
    return {"KorTemplateLimitException", exception.what(), {}, {}};
  }
}

inline std::string failedCheck(const std::string& condition) {
  return "NSInternalInconsistencyException: Invalid parameter not satisfying: " + condition;
}

inline std::string syntaxError(std::int32_t line, const std::string& message) {
  return "KorTemplateSyntaxErrorException: Syntax error (line " + std::to_string(line) + "): " + message;
}

// Every token class with its name, in the order in which they are declared.
struct NamedTokenClass {
  const char* name;
  const KorTokenClass* tokenClass;
};

inline const std::vector<NamedTokenClass>& namedTokenClasses() {
  using Parser = KorTemplateParser;
  static const std::vector<NamedTokenClass> classes = {
      {"BlockStartTag", &Parser::BlockStartTag},
      {"BlockEndTag", &Parser::BlockEndTag},
      {"AssignmentOperator", &Parser::AssignmentOperator},
      {"Variable", &Parser::Variable},
      {"IntrinsicVariable", &Parser::IntrinsicVariable},
      {"BinaryOperator", &Parser::BinaryOperator},
      {"ParenthesisStart", &Parser::ParenthesisStart},
      {"ParenthesisEnd", &Parser::ParenthesisEnd},
      {"ArgumentSeparator", &Parser::ArgumentSeparator},
      {"StringLiteral", &Parser::StringLiteral},
      {"RegexStringLiteral", &Parser::RegexStringLiteral},
      {"CharLiteral", &Parser::CharLiteral},
      {"NonIntegralNumericLiteral", &Parser::NonIntegralNumericLiteral},
      {"IntegralNumericLiteral", &Parser::IntegralNumericLiteral},
      {"BooleanKeyword", &Parser::BooleanKeyword},
      {"NullKeyword", &Parser::NullKeyword},
      {"ControlKeyword", &Parser::ControlKeyword},
      {"Symbol", &Parser::Symbol},
      {"Token", &Parser::Token},
  };
  return classes;
}

inline std::string nameOf(const KorTokenClass* tokenClass) {
  for (const NamedTokenClass& row : namedTokenClasses()) {
    if (row.tokenClass == tokenClass) return row.name;
  }
  return tokenClass == nullptr ? "none" : "unknown";
}

// A token made by hand.
inline KorToken makeToken(const KorTokenClass& tokenClass, std::int32_t position, std::int32_t length,
                          std::int32_t line = 0) {
  KorToken token;
  token.tokenClass = &tokenClass;
  token.line = line;
  token.position = position;
  token.length = length;
  token.byteOffset = static_cast<std::uint32_t>(position);
  token.byteLength = static_cast<std::uint32_t>(length);
  return token;
}

inline Ref<KorRuleBasedScanner> scannerOver(const std::string& text) {
  return KorRuleBasedScanner::scannerForStream(
      KorUnicharStream::streamWithBuffer(KorStringBuffer::bufferFromString(NSString::stringWithUTF8(text))),
      KorTemplateParser::scannerRules());
}

// A parser that stands at the first block of a text, with that block.
class AtFirstBlock {
 public:
  explicit AtFirstBlock(const std::string& text)
      : parser_(KorTemplateParser::parserForString(text)), scanner_(scannerOver(text)) {
    block_ = static_cast<const KorCompoundToken*>(scanner_->nextToken());
    parser_->setCurrentBlockToken(block_);
  }

  KorTemplateParser& parser() const { return *parser_; }
  const KorCompoundToken& block() const { return *block_; }
  // All sub-tokens but the closing tag.
  KorTokenList inside() const {
    const KorTokenList all = block_->subtokens;
    const bool isClosed = !all.empty() && all[all.size() - 1].tokenClass == &KorTemplateParser::BlockEndTag;
    return all.span().first(all.size() - (isClosed ? 1 : 0));
  }
  Ref<KorTemplateExpression> expression() const { return parser_->parseExpressionFromTokens(inside()); }

 private:
  Ref<KorTemplateParser> parser_;
  Ref<KorRuleBasedScanner> scanner_;
  const KorCompoundToken* block_ = nullptr;  // the scanner's
};

// The tokens of the first block, each as "Class:text", parted by spaces.
inline std::string tokensOf(const std::string& text) {
  const AtFirstBlock at(text);
  std::string result;
  for (const KorToken& token : at.block().subtokens) {
    result += (result.empty() ? "" : " ") + nameOf(token.tokenClass) + ":" + at.parser().stringFromToken(&token);
  }
  return result;
}

// The shapes of trees, short enough to be read in a row of a table.

inline std::string shapeOf(const Ref<KorTemplateExpression>& expression);
inline std::string shapeOf(const Ref<KorTemplateStatement>& statement);

inline std::string shapeOf(const Name& name) {
  return std::string(name.view());
}

inline std::string shapeOf(const Value& value) {
  if (value.isNull()) return "null";
  if (value.isBoolean()) return value.boolValue() ? "true" : "false";
  if (value.isString()) return '"' + value.description() + '"';
  return (value.kind() == ValueKind::Double ? "" : "int ") + value.description();
}

template <class Items>
std::string shapesOf(const Items& items, const char* separator) {
  std::string result;
  for (const auto& item : items) result += (result.empty() ? "" : separator) + shapeOf(item);
  return result;
}

inline std::string shapeOf(const Ref<KorTemplateExpression>& expression) {
  static constexpr const char* kOperators[] = {
      "=", "==", "!=", "=~", "<", ">", "<=", ">=", "+", "-", "*", "/", "%", "&&", "||"};
  KorTemplateExpression* const node = expression.get();
  if (node == nullptr) return "absent";
  if (auto* literal = dynamic_cast<KorTemplateLiteralExpression*>(node)) return shapeOf(literal->literal());
  if (auto* variable = dynamic_cast<KorTemplateVariableExpression*>(node)) {
    return "$" + std::string(variable->variable().view());
  }
  if (auto* regex = dynamic_cast<KorTemplateRegexExpression*>(node)) return regex->regex()->description();
  if (auto* call = dynamic_cast<KorTemplateFunctionCallExpression*>(node)) {
    return std::string(call->functionName().view()) + "(" + shapesOf(call->argumentExpressions(), ", ") + ")";
  }
  if (auto* binary = dynamic_cast<KorTemplateBinaryExpression*>(node)) {
    return "(" + shapeOf(binary->leftOperand()) + " " + kOperators[binary->op()] + " " +
           shapeOf(binary->rightOperand()) + ")";
  }
  return node->className();
}

inline std::string shapeOf(const Ref<KorTemplateStatement>& statement) {
  KorTemplateStatement* const node = statement.get();
  if (node == nullptr) return "absent";
  if (auto* output = dynamic_cast<KorTemplateOutputStatement*>(node)) return "out " + shapeOf(output->expression());
  if (auto* plain = dynamic_cast<KorTemplateExpressionStatement*>(node)) return "do " + shapeOf(plain->expression());
  if (auto* condition = dynamic_cast<KorTemplateConditionalStatement*>(node)) {
    return "if " + shapeOf(condition->expression()) + " {" + shapesOf(condition->trueStatements(), "; ") + "} {" +
           shapesOf(condition->falseStatements(), "; ") + "}";
  }
  if (auto* loop = dynamic_cast<KorTemplateEnumerationStatement*>(node)) {
    return "foreach " + shapeOf(loop->loopVariable()) + " in " + shapeOf(loop->expression()) + " {" +
           shapesOf(loop->loopStatements(), "; ") + "}";
  }
  if (auto* definition = dynamic_cast<KorTemplateFunctionDefinitionStatement*>(node)) {
    auto& function = dynamic_cast<KorTemplateInternalFunction&>(*definition->function());
    return "function " + shapeOf(definition->name()) + "(" + shapesOf(function.arguments(), ", ") + ") {" +
           shapesOf(function.statements(), "; ") + "}";
  }
  if (auto* result = dynamic_cast<KorTemplateReturnStatement*>(node)) return "return " + shapeOf(result->expression());
  if (auto* block = dynamic_cast<KorTemplateBlockStatement*>(node)) {
    return "block " + std::string(block->keyword().view()) + " " + shapeOf(block->expression());
  }
  return node->className();
}

// The statements that a text compiles to.
inline std::string shapeOfTemplate(const std::string& text) {
  return shapesOf(KorTemplate::compile(text)->statements(), "; ");
}

struct ShapeRow {
  const char* text;
  const char* shape;
};

inline void expectShapes(const std::vector<ShapeRow>& rows) {
  for (const ShapeRow& row : rows) EXPECT_EQ(shapeOfTemplate(row.text), row.shape) << row.text;
}

// The expression of an output block.
inline std::string shapeOfExpression(const std::string& expression) {
  return shapeOf(AtFirstBlock("<?" + expression + "?>").expression());
}

}  // namespace tavlo::test::parsing
