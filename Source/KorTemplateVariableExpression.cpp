#include "Source/KorTemplateVariableExpression.h"

#include <mutex>
#include <string>
#include <unordered_map>
#include <utility>

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

std::string joined(const Name& rootName, const NSKeyPath& path) {
  return std::string(rootName.view()).append(".").append(path.text());
}

}  // namespace

KorTemplateVariableExpression::KorTemplateVariableExpression() {
  failAssertion("[KorTemplateVariableExpression init] should not be used");
}

KorTemplateVariableExpression::KorTemplateVariableExpression(const Name& variable, const Name& rootName,
                                                             const Name& keyPath)
    : KorTemplateExpression(kVariableKind) {
  requireParameter(!variable.isAbsent(), "theVariable != nil");
  if (rootName.isAbsent() && keyPath.isAbsent()) {
    name_ = variable;
    return;
  }
  flags_.store(IsPath, std::memory_order_relaxed);
  name_ = rootName;
  if (!keyPath.isAbsent()) path_ = NSKeyPath(keyPath.view());
  const bool isJoined = hasKeyPath() && variable == joined(rootName, path_);
  if (!isJoined) keepWholeName(variable);
}

KorTemplateVariableExpression::KorTemplateVariableExpression(const Name& rootName, const Ref<NSString>& keyPath)
    : KorTemplateExpression(kVariableKind), flags_(IsPath), name_(rootName), path_(keyPath) {
  requireParameter(!rootName.isAbsent(), "rootName != nil");
}

KorTemplateVariableExpression::KorTemplateVariableExpression(const Name& variable)
    : KorTemplateExpression(kVariableKind) {
  requireParameter(!variable.isAbsent(), "name != nil");
  setVariable(variable);
}

void KorTemplateVariableExpression::setVariable(const Name& value) {
  requireParameter(!value.isAbsent(), "value != nil");
  const Name name = value;  // NOLINT(performance-unnecessary-copy-initialization): it may be this one's
  const std::string_view text = name.view();
  const std::size_t dot = text.find('.');
  const bool isPath = dot != std::string_view::npos;
  NSKeyPath path = isPath ? NSKeyPath(text.substr(dot + 1)) : NSKeyPath();
  name_ = isPath ? Name(text.substr(0, dot)) : name;
  path_ = std::move(path);
  if (hasWholeName()) dropWholeName();
  flags_.store(isPath ? std::uint8_t{IsPath} : std::uint8_t{0}, std::memory_order_relaxed);
}

namespace {

// The whole names of the few variables with key paths that were asked for theirs, or that were made with another one.
struct WholeNames {
  std::mutex mutex;
  std::unordered_map<const KorTemplateVariableExpression*, Name> ofVariables;
};

WholeNames& wholeNames() {
  static auto& names = *new WholeNames;  // nodes may outlive every static object
  return names;
}

}  // namespace

// Two threads may ask at once.
const Name& KorTemplateVariableExpression::wholeName() const {
  WholeNames& names = wholeNames();
  const std::lock_guard lock(names.mutex);
  Name& name = names.ofVariables[this];
  setFlag(HasWholeName, true);
  if (name.isAbsent()) name = joined(name_, path_);
  return name;
}

void KorTemplateVariableExpression::keepWholeName(const Name& name) const {
  WholeNames& names = wholeNames();
  const std::lock_guard lock(names.mutex);
  names.ofVariables[this] = name;
  setFlag(HasWholeName, true);
}

void KorTemplateVariableExpression::dropWholeName() noexcept {
  WholeNames& names = wholeNames();
  const std::lock_guard lock(names.mutex);
  names.ofVariables.erase(this);
}

RawValue KorTemplateVariableExpression::peekPath(const KorTemplateEnvironment& environment) const noexcept {
  if (!hasKeyPath()) [[unlikely]]
    return peekNamed(wholeName(), environment);
  std::size_t steps = 0;
  const Value* root = environment.findVariable(name_, steps);
  const RawValue found = root == nullptr ? environment.undefinedVariable() : peekFrom(*root);
  if (!found.isNothing()) KorTemplateStackFrame::countLookup(steps);  // otherwise it is looked up again
  return found;
}

RawValue KorTemplateVariableExpression::peekPathNear(const KorTemplateEnvironment& environment) const noexcept {
  const Value* const root = asksHost() || !hasKeyPath() ? nullptr : environment.findVariableNear(name_);
  return root == nullptr ? RawValue::nothing() : peekFrom(*root);
}

RawValue KorTemplateVariableExpression::peekFrom(const Value& root) const noexcept {
  const Value* const found = path_.peek(root.peek());
  return found == nullptr ? RawValue::nothing() : found->peek();
}

RawValue KorTemplateVariableExpression::evaluate(KorTemplateEnvironment& environment) {
  if (environment.isObserved()) [[unlikely]]
    return evaluateObserved(environment);
  const Value* root = nullptr;
  if (asksHost() && environment.findVariableQuickly(name_, root) && root != nullptr && isHostObject(*root)) {
    return valueOfHost(path_, *root);
  }
  return evaluateAnew(environment);
}

// The same where the root is no host's object, or was none the last time.
RawValue KorTemplateVariableExpression::evaluateAnew(KorTemplateEnvironment& environment) const {
  if (!hasKeyPath()) return Value::retaining(peek(environment)).leak();
  const Value* const root = rootOfPath(environment);
  if (root == nullptr) return RawValue::null();
  if (isHostObject(*root)) return valueOfHost(path_, *root);
  const Value* const found = path_.peek(root->peek());
  return found != nullptr ? Value::retaining(found->peek()).leak() : valueAtPath(path_, *root);
}

// The same where somebody wants to hear of what is not defined.
RawValue KorTemplateVariableExpression::evaluateObserved(KorTemplateEnvironment& environment) const {
  const RawValue lent = peek(environment);
  if (!lent.isNothing()) return Value::retaining(lent).leak();
  const Name& name = hasKeyPath() ? name_ : variable();
  const Value* const root = environment.findVariable(name);
  if (root == nullptr) {
    environment.observe(KorTemplateUndefined::Variable, sigilOf(name), name.view());
    return RawValue::null();
  }
  const Value held = *root;
  Value result;
  if (path_.findDefined(held, result)) return (result.isAbsent() ? Value::null() : result).leak();
  environment.observe(KorTemplateUndefined::Key, sigilOf(name), joined(name, path_));
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
  const auto& instance = static_cast<const HostInstance&>(*root.peek().payload.object);
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
      leadsSomewhere([&] { return path_.lend(holder, lent) && (lent.isText() || !lent.value().isAbsent()); });
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
  return makeRef<KorTemplateVariableExpression>(variable(), rootName(), keyPath());
}

void KorTemplateVariableExpression::describe(Description& out) const {
  out.format("{ %@ variable: \"%@\" }", Description::base(*this), variable());
}

}  // namespace tavlo
