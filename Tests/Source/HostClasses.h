#pragma once

#include <concepts>
#include <functional>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "Foundation/NSException.h"
#include "Source/KorTemplate.h"
#include "Source/KorTemplateBinaryExpression.h"
#include "Source/KorTemplateEnvironment.h"
#include "Source/KorTemplateExpressionStatement.h"
#include "Source/KorTemplateFunctionCallExpression.h"
#include "Source/KorTemplateInternalFunction.h"
#include "Source/KorTemplateLiteralExpression.h"
#include "Source/KorTemplateOutputStatement.h"
#include "Source/KorTemplateVariableExpression.h"

namespace tavlo::test {

// What a host writes against the four protocols, each around a function object.

class HostExpression final : public KorTemplateExpression {
 public:
  using Body = std::function<Value(KorTemplateEnvironment*)>;

  explicit HostExpression(Body body) : body_(std::move(body)) {}

  Value evaluateWithEnvironment(KorTemplateEnvironment* environment) override { return body_(environment); }
  Ref<KorTemplateExpression> copyWithZone(NSZone* /*zone*/) const override { return makeRef<HostExpression>(body_); }
  const char* className() const override { return "HostExpression"; }

 private:
  Body body_;
};

class HostStatement final : public KorTemplateStatement {
 public:
  using Body = std::function<void(KorTemplateEnvironment*)>;

  explicit HostStatement(Body body) : body_(std::move(body)) {}

  void executeWithEnvironment(KorTemplateEnvironment* environment) override { body_(environment); }
  Ref<KorTemplateStatement> copyWithZone(NSZone* /*zone*/) const override { return makeRef<HostStatement>(body_); }
  const char* className() const override { return "HostStatement"; }

 private:
  Body body_;
};

class HostFunction final : public KorTemplateFunction {
 public:
  using Body = std::function<Value(KorTemplateEnvironment*, ListArgument<Value>)>;

  explicit HostFunction(Body body) : body_(std::move(body)) {}

  Value invokeWithEnvironment(KorTemplateEnvironment* environment, ListArgument<Value> arguments) override {
    return body_(environment, arguments);
  }
  const char* className() const override { return "HostFunction"; }

 private:
  Body body_;
};

// Keeps each write on its own, an absent text as no text.
class RecordingStream final : public KorTemplateStream {
 public:
  void write(const Text& text) override {
    if (onWrite) onWrite(text);
    writes.push_back(text.isAbsent() ? std::nullopt : std::optional<std::string>(text.view()));
  }
  const char* className() const override { return "RecordingStream"; }

  std::string joined(const char* separator) const {
    std::string result;
    for (const std::optional<std::string>& text : writes) {
      if (&text != &writes.front()) result += separator;
      result += text.value_or("(null)");
    }
    return result;
  }

  std::vector<std::optional<std::string>> writes;
  std::function<void(const Text&)> onWrite;  // runs before the text is kept
};

// An object of a host without any properties.
class HostObject final : public NSObject {
 public:
  HostObject() = default;
  const char* className() const override { return "HostObject"; }
};

// Runs a host's code when it ends.
class EndingObject final : public NSObject {
 public:
  explicit EndingObject(std::function<void()> body) : body_(std::move(body)) {}
  ~EndingObject() override { body_(); }
  const char* className() const override { return "EndingObject"; }

 private:
  std::function<void()> body_;
};

// An exception that ends when nobody knows of it any more, and runs a host's code then.
struct EndingFailure : std::runtime_error {
  explicit EndingFailure(std::function<void()> end)
      : std::runtime_error("ending"), ended(makeRef<EndingObject>(std::move(end))) {}
  Ref<EndingObject> ended;
};

// An environment whose streams are recorded.
struct Stage {
  Stage() {
    environment->setOutputStream(output);
    environment->setErrorStream(errors);
  }

  void run(const Text& templateText) const { KorTemplate::compile(templateText)->executeWithEnvironment(get()); }
  void define(const Name& name, HostFunction::Body body) const {
    environment->setFunctionForName(makeRef<HostFunction>(std::move(body)), name);
  }
  void set(const Name& name, const Value& value) const { environment->setValueForGlobalVariableWithName(value, name); }
  Value global(const Name& name) const { return environment->valueForGlobalVariableWithName(name); }

  KorTemplateEnvironment* get() const { return environment.get(); }
  std::int32_t depth() const { return environment->stack()->frames().count(); }
  // Everything written, and the diagnostics separated by "|".
  std::string text() const { return output->joined(""); }
  std::string diagnostics() const { return errors->joined("|"); }

  Ref<KorTemplateEnvironment> environment = KorTemplateEnvironment::environment();
  Ref<RecordingStream> output = makeRef<RecordingStream>();
  Ref<RecordingStream> errors = makeRef<RecordingStream>();
};

// "Name: reason" of the exception that the action raises; "nothing" where it raises none.
template <class Action>
std::string raisedBy(Action&& action) {
  try {
    std::forward<Action>(action)();
  } catch (const NSException& exception) {
    return exception.name() + ": " + exception.description();
  }
  return "nothing";
}

inline std::string failedCheck(const std::string& condition) {
  return "NSInternalInconsistencyException: Invalid parameter not satisfying: " + condition;
}
inline std::string failedAssertion(const std::string& description) {
  return "NSInternalInconsistencyException: " + description;
}

// "<ClassName: 0x…>", with which every description of an object begins.
inline std::string baseOf(const NSObject& object) {
  std::ostringstream text;
  text << '<' << object.className() << ": 0x" << std::hex << reinterpret_cast<std::uintptr_t>(&object) << '>';
  return text.str();
}
template <class T>
std::string baseOf(const Ref<T>& object) {
  return baseOf(static_cast<const NSObject&>(*object));
}

// The same object as one of its own class.
template <class T, class U>
T& as(const Ref<U>& object) {
  return dynamic_cast<T&>(*object);
}

// Nodes made by hand.
inline Ref<KorTemplateExpression> literal(const Value& value) {
  return KorTemplateLiteralExpression::expressionWithLiteral(value);
}
// An expression without a value.
inline Ref<KorTemplateExpression> nothing() {
  return makeRef<HostExpression>([](KorTemplateEnvironment*) { return Value(); });
}
inline Ref<KorTemplateExpression> variable(const Name& name) {
  return KorTemplateVariableExpression::expressionWithVariable(name);
}
inline Ref<KorTemplateBinaryExpression> binary(KorTemplateOperator op, const Ref<KorTemplateExpression>& left,
                                               const Ref<KorTemplateExpression>& right) {
  const Ref<KorTemplateBinaryExpression> node = KorTemplateBinaryExpression::expressionWithOperator(op);
  node->setLeftOperand(left);
  node->setRightOperand(right);
  return node;
}
inline Ref<KorTemplateExpression> assignment(const Name& name, const Value& value) {
  return binary(KorTemplateOperatorAssignment, variable(name), literal(value));
}
inline Ref<KorTemplateFunctionCallExpression> call(const Name& name,
                                                   const std::vector<Ref<KorTemplateExpression>>& arguments = {}) {
  const Ref<KorTemplateFunctionCallExpression> node =
      KorTemplateFunctionCallExpression::expressionWithFunctionName(name);
  node->setArgumentExpressions(arguments);
  return node;
}
template <std::derived_from<KorTemplateExpression> Node>
Ref<KorTemplateStatement> output(const Ref<Node>& expression) {
  return KorTemplateOutputStatement::statementWithExpression(expression);
}
inline Ref<KorTemplateStatement> output(const Value& value) {
  return output(literal(value));
}
inline Ref<KorTemplateStatement> evaluation(const Ref<KorTemplateExpression>& expression) {
  return KorTemplateExpressionStatement::statementWithExpression(expression);
}
inline Ref<KorTemplate> templateOf(const std::vector<Ref<KorTemplateStatement>>& statements) {
  const Ref<KorTemplate> result = makeRef<KorTemplate>();
  result->setStatements(statements);
  return result;
}

}  // namespace tavlo::test
