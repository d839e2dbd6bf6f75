#include "Source/KorTemplateVariableExpression.h"

#include <mutex>
#include <string>

#include "Foundation/Description.h"
#include "Foundation/HostInstance.h"
#include "Foundation/NSException.h"
#include "Source/KorTemplateEnvironment.h"

namespace tavlo {

namespace {

// What stands before the name in a template.
std::string_view sigilOf(const Name& name) {
  return name.view().starts_with("@@") ? "" : "$";
}

}  // namespace

KorTemplateVariableExpression::KorTemplateVariableExpression() {
  failAssertion("[KorTemplateVariableExpression init] should not be used");
}

KorTemplateVariableExpression::KorTemplateVariableExpression(const Name& variable, const Name& rootName,
                                                             const Name& keyPath)
    : KorTemplateExpression(kVariableKind), variable_(variable), rootName_(rootName) {
  requireParameter(!variable.isAbsent(), "theVariable != nil");
  if (!keyPath.isAbsent()) path_ = std::make_unique<NSKeyPath>(keyPath.view());
}

KorTemplateVariableExpression::KorTemplateVariableExpression(const Name& rootName, std::string_view keyPath)
    : KorTemplateExpression(kVariableKind),
      isNamed_(false),
      rootName_(rootName),
      path_(std::make_unique<NSKeyPath>(keyPath)) {}

KorTemplateVariableExpression::KorTemplateVariableExpression(const Name& variable)
    : KorTemplateExpression(kVariableKind) {
  requireParameter(!variable.isAbsent(), "name != nil");
  setVariable(variable);
}

void KorTemplateVariableExpression::setVariable(const Name& value) {
  requireParameter(!value.isAbsent(), "value != nil");
  variable_ = value;
  isNamed_.store(true, std::memory_order_release);
  rootName_ = nullptr;
  path_ = nullptr;
  const std::string_view text = variable_.view();
  const std::size_t dot = text.find('.');
  if (dot == std::string_view::npos) return;
  rootName_ = text.substr(0, dot);
  path_ = std::make_unique<NSKeyPath>(text.substr(dot + 1));
}

const Name& KorTemplateVariableExpression::joinedVariable() const {
  static auto& mutex = *new std::mutex;  // nodes may outlive every static object
  const std::lock_guard lock(mutex);
  if (!isNamed_.load(std::memory_order_relaxed)) {
    variable_ = std::string(rootName_.view()) + "." + std::string(path_->text());
    isNamed_.store(true, std::memory_order_release);
  }
  return variable_;
}

RawValue KorTemplateVariableExpression::peekPath(const KorTemplateEnvironment& environment) const noexcept {
  if (rootName_.isAbsent()) [[unlikely]]
    return peekNamed(variable_, environment);
  const Value* root = environment.findVariable(rootName_);
  if (root == nullptr) return environment.undefinedVariable();
  const Value* found = path_->peek(root->peek());
  return found == nullptr ? RawValue::nothing() : found->peek();
}

RawValue KorTemplateVariableExpression::evaluate(KorTemplateEnvironment& environment) {
  if (environment.isObserved()) [[unlikely]]
    return evaluateObserved(environment);
  if (!hasKeyPath()) return Value::retaining(peek(environment)).leak();
  const Value* const root = rootOfPath(environment);
  if (root == nullptr) return RawValue::null();
  if (isHostObject(*root)) return valueOfHost(*path_, *root);
  const Value* const found = path_->peek(root->peek());
  return found != nullptr ? Value::retaining(found->peek()).leak() : valueAtPath(*path_, *root);
}

// The same where somebody wants to hear of what is not defined.
RawValue KorTemplateVariableExpression::evaluateObserved(KorTemplateEnvironment& environment) const {
  const RawValue lent = peek(environment);
  if (!lent.isNothing()) return Value::retaining(lent).leak();
  const Name& name = hasKeyPath() ? rootName_ : variable_;
  const Value* const root = environment.findVariable(name);
  if (root == nullptr) {
    environment.observe(KorTemplateUndefined::Variable, sigilOf(name), name.view());
    return RawValue::null();
  }
  const Value held = *root;
  Value result;
  if (path_->findDefined(held, result)) return (result.isAbsent() ? Value::null() : result).leak();
  const std::string path = std::string(name.view()) + "." + std::string(path_->text());
  environment.observe(KorTemplateUndefined::Key, sigilOf(name), path);
  return RawValue::null();
}

namespace {

// Whether a path leads somewhere: `follow` answers that, or raises that a key is not known.
template <class Follow>
bool leadsSomewhere(const Follow& follow) {
  try {
    return follow();
  } catch (const NSException& exception) {
    if (exception.name() != NSUndefinedKeyException) throw;
    return false;
  }
}

}  // namespace

// The root is taken by copy: a host's property may let go of the variable that holds it.
RawValue KorTemplateVariableExpression::valueAtPath(const NSKeyPath& path, const Value& root) {
  const Value held = root;
  RawValue result = RawValue::null();
  const bool isFound = leadsSomewhere([&] {
    result = path.read(held);
    return !result.isNothing() && result.kind() != ValueKind::Absent;
  });
  return isFound ? result : RawValue::null();
}

// What the engine reads by itself lets go of nothing and knows every key.
RawValue KorTemplateVariableExpression::valueOfHost(const NSKeyPath& path, const Value& root) {
  const auto& instance = static_cast<const HostInstance&>(*root.object());
  const HostProperty* const property = path.wholePathIn(instance);
  if (property == nullptr) return valueAtPath(path, root);
  if (property->isPlainMember()) return property->read(instance.object(), instance);
  const auto held = Ref<const HostInstance>::retaining(&instance);
  RawValue result = RawValue::null();
  const bool isFound = leadsSomewhere([&] {
    result = property->read(instance.object(), instance);
    return result.kind() != ValueKind::Absent;
  });
  return isFound ? result : RawValue::null();
}

void KorTemplateVariableExpression::lend(Value& holder, LentValue& lent) const {
  const bool isFound =
      leadsSomewhere([&] { return path_->lend(holder, lent) && (lent.isText() || !lent.value().isAbsent()); });
  if (!isFound) lent.set(Value::null());
}

Value KorTemplateVariableExpression::variableWithName(const Name& name, KorTemplateEnvironment* environment) const {
  requireParameter(!name.isAbsent(), "name != nil");
  requireParameter(environment != nullptr, "environment != nil");
  const Value* found = environment->findVariable(name);
  return found == nullptr ? Value::null() : *found;
}

Value KorTemplateVariableExpression::variableWithKeyPathInObjectWithName(const Name& path, const Name& name,
                                                                         KorTemplateEnvironment* environment) const {
  requireParameter(!path.isAbsent(), "path != nil");
  requireParameter(!name.isAbsent(), "name != nil");
  requireParameter(environment != nullptr, "environment != nil");
  const Value* root = environment->findVariable(name);
  return root == nullptr ? Value::null() : Value::adopt(valueAtPath(NSKeyPath(path.view()), *root));
}

Value KorTemplateVariableExpression::evaluateWithEnvironment(KorTemplateEnvironment* environment) {
  requireParameter(environment != nullptr, "environment != nil");
  return environment->enter([&] { return Value::adopt(evaluate(*environment)); });
}

Ref<KorTemplateExpression> KorTemplateVariableExpression::copyWithZone(NSZone* /*zone*/) const {
  return makeRef<KorTemplateVariableExpression>(variable(), rootName_, keyPath());
}

void KorTemplateVariableExpression::describe(Description& out) const {
  out.format("{ %@ variable: \"%@\" }", Description::base(*this), variable());
}

}  // namespace tavlo
