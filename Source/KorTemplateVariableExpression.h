#pragma once

#include <atomic>
#include <memory>
#include <string_view>

#include "Foundation/NSKeyValueCoding.h"
#include "Foundation/Name.h"
#include "Source/KorTemplateEnvironment.h"
#include "Source/KorTemplateExpression.h"

namespace tavlo {

// Reads a variable, a key path inside a variable, or an intrinsic variable such as "@@index".
class KorTemplateVariableExpression final : public KorTemplateExpression {
 public:
  // Always fails: a variable has a name.
  KorTemplateVariableExpression();
  // Takes the three texts as they are, without splitting. Root name and key path may be absent; the variable may not.
  KorTemplateVariableExpression(const Name& variable, const Name& rootName, const Name& keyPath);
  // The variable whose text is the two with a "." between them; neither is absent.
  KorTemplateVariableExpression(const Name& rootName, std::string_view keyPath);
  // The variable's text without its "$"; the first "." parts the name of the root from the key path.
  explicit KorTemplateVariableExpression(const Name& variable);
  static Ref<KorTemplateVariableExpression> expressionWithVariable(const Name& variable) {
    return makeRef<KorTemplateVariableExpression>(variable);
  }

  const Name& variable() const { return isNamed_.load(std::memory_order_acquire) ? variable_ : joinedVariable(); }
  void setVariable(const Name& value);
  // Both are absent where the variable has no ".".
  const Name& rootName() const noexcept { return rootName_; }
  Name keyPath() const { return path_ == nullptr ? Name() : Name(path_->text()); }

  // The value of that name, or the null object.
  Value variableWithName(const Name& name, KorTemplateEnvironment* environment) const;
  // What the path leads to from the value of that name, or the null object where it leads nowhere.
  Value variableWithKeyPathInObjectWithName(const Name& path, const Name& name,
                                            KorTemplateEnvironment* environment) const;

  // Never absent.
  Value evaluateWithEnvironment(KorTemplateEnvironment* environment) override;
  RawValue evaluate(KorTemplateEnvironment& environment) override;
  Ref<KorTemplateExpression> copyWithZone(NSZone* zone = nullptr) const override;

  const char* className() const override { return "KorTemplateVariableExpression"; }
  void describe(Description& out) const override;

  bool hasKeyPath() const noexcept { return path_ != nullptr && !rootName_.isAbsent(); }
  // The name of a variable without any key path; null for every other one.
  const Name* plainName() const noexcept { return path_ == nullptr ? &variable_ : nullptr; }
  // The value where it lives, lent until a variable changes or other code runs. Nothing where a key path leads through
  // more than dictionaries, or to something undefined that is observed, and evaluate() must be asked.
  RawValue peek(const KorTemplateEnvironment& environment) const noexcept {
    if (path_ == nullptr) return peekNamed(variable_, environment);
    return asksHost_.load(std::memory_order_relaxed) ? RawValue::nothing() : peekPath(environment);
  }

  // The same in two steps for who writes the value of a key path at once: the value of its root, lent, or null where
  // there is none; and what the path leads to from there, never absent. `holder`, the root at first, becomes what the
  // last key was asked of, and a text may be lent for as long as that lives.
  const Value* rootOfPath(const KorTemplateEnvironment& environment) const noexcept {
    const Value* const root = environment.findVariable(rootName_);
    if (root != nullptr) noteRoot(*root);
    return root;
  }
  void lend(Value& holder, LentValue& lent) const;

 private:
  static RawValue peekNamed(const Name& name, const KorTemplateEnvironment& environment) noexcept {
    const Value* found = environment.findVariable(name);
    return found == nullptr ? environment.undefinedVariable() : found->peek();
  }
  RawValue evaluateObserved(KorTemplateEnvironment& environment) const;
  RawValue peekPath(const KorTemplateEnvironment& environment) const noexcept;
  // Never absent; the caller adopts it.
  static RawValue valueAtPath(const NSKeyPath& path, const Value& root);
  // The same where the root is an object of a host's class.
  static RawValue valueOfHost(const NSKeyPath& path, const Value& root);
  static bool isHostObject(const Value& value) noexcept {
    return value.isObject() && value.object()->kind() == ObjectKind::HostObject;
  }
  void noteRoot(const Value& root) const noexcept {
    const bool asksHost = isHostObject(root);
    if (asksHost_.load(std::memory_order_relaxed) != asksHost) asksHost_.store(asksHost, std::memory_order_relaxed);
  }
  const Name& joinedVariable() const;

  mutable Name variable_;
  // Whether variable_ has been set. Few ask for the name of a variable with a key path, so that only then it is made.
  mutable std::atomic<bool> isNamed_{true};
  // Whether the root was a host's object when the path was followed last: then nobody need try to peek.
  mutable std::atomic<bool> asksHost_{false};
  Name rootName_;
  std::unique_ptr<NSKeyPath> path_;  // absent without a key path
};

}  // namespace tavlo
