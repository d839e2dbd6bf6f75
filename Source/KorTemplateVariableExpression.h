#pragma once

#include <atomic>
#include <cstdint>
#include <string_view>

#include "Foundation/NSKeyValueCoding.h"
#include "Foundation/Name.h"
#include "Foundation/Utf8.h"
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
  // The variable whose text is the two with a "." between them; neither is absent, and a string counts atomically.
  KorTemplateVariableExpression(const Name& rootName, const Ref<NSString>& keyPath);
  KorTemplateVariableExpression(const Name& rootName, std::string_view keyPath)
      : KorTemplateVariableExpression(
            rootName, (requireValidUTF8(keyPath), NSString::stringWithValidUTF8(keyPath, Counting::Atomic))) {}
  // The variable's text without its "$"; the first "." parts the name of the root from the key path.
  explicit KorTemplateVariableExpression(const Name& variable);
  static Ref<KorTemplateVariableExpression> expressionWithVariable(const Name& variable) {
    return makeRef<KorTemplateVariableExpression>(variable);
  }

  ~KorTemplateVariableExpression() override {
    if (hasWholeName()) [[unlikely]]
      dropWholeName();
  }

  const Name& variable() const { return isPlain() ? name_ : wholeName(); }
  void setVariable(const Name& value);
  // Both are absent where the variable has no ".".
  Name rootName() const { return isPlain() ? Name() : name_; }
  Name keyPath() const { return path_.isAbsent() ? Name() : Name(path_.text()); }

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

  bool hasKeyPath() const noexcept { return !path_.isAbsent() && !name_.isAbsent(); }
  // The name of a variable without any key path; null for every other one.
  const Name* plainName() const noexcept { return isPlain() ? &name_ : nullptr; }
  // The value where it lives, lent until a variable changes or other code runs. Nothing where a key path leads through
  // more than dictionaries, or to something undefined that is observed, and evaluate() must be asked.
  RawValue peek(const KorTemplateEnvironment& environment) const noexcept {
    if (isPlain()) return peekNamed(name_, environment);
    return asksHost() ? RawValue::nothing() : peekPath(environment);
  }

  // The same for a value that is near, whose look-up counts nowhere; nothing for every other one.
  [[gnu::always_inline]] RawValue peekNear(const KorTemplateEnvironment& environment) const noexcept {
    if (!isPlain()) return peekPathNear(environment);
    const Value* const found = environment.findVariableNear(name_);
    return found != nullptr ? found->peek() : RawValue::nothing();
  }

  // The same in two steps for who writes the value of a key path at once: the value of its root, lent, or null where
  // there is none; and what the path leads to from there, never absent. `holder`, the root at first, becomes what the
  // last key was asked of, and a text may be lent for as long as that lives.
  const Value* rootOfPath(const KorTemplateEnvironment& environment) const noexcept {
    const Value* const root = environment.findVariable(name_);
    if (root != nullptr) noteRoot(*root);
    return root;
  }
  void lend(Value& holder, LentValue& lent) const;

 private:
  static RawValue peekNamed(const Name& name, const KorTemplateEnvironment& environment) noexcept {
    const Value* found = environment.findVariable(name);
    return found == nullptr ? environment.undefinedVariable() : found->peek();
  }
  RawValue evaluateAnew(KorTemplateEnvironment& environment) const;
  RawValue evaluateObserved(KorTemplateEnvironment& environment) const;
  RawValue peekPath(const KorTemplateEnvironment& environment) const noexcept;
  RawValue peekPathNear(const KorTemplateEnvironment& environment) const noexcept;
  RawValue peekFrom(const Value& root) const noexcept;
  // Never absent; the caller adopts it.
  static RawValue valueAtPath(const NSKeyPath& path, const Value& root);
  // The same where the root is an object of a host's class.
  static RawValue valueOfHost(const NSKeyPath& path, const Value& root);
  static bool isHostObject(const Value& value) noexcept {
    return value.isObject() && value.object()->kind() == ObjectKind::HostObject;
  }
  void noteRoot(const Value& root) const noexcept {
    const bool asks = isHostObject(root);
    if (asksHost() != asks) setFlag(AsksHost, asks);
  }

  // What is known of the variable, in one byte that several threads may write.
  enum Flag : std::uint8_t {
    IsPath = 1,        // there is a root's name, a key path or both
    HasWholeName = 2,  // of a path, a name is kept in the table of those
    AsksHost = 4,      // the root was a host's object when the path was followed last: nobody need try to peek
  };
  bool hasFlag(Flag flag) const noexcept { return (flags_.load(std::memory_order_relaxed) & flag) != 0; }
  void setFlag(Flag flag, bool isSet) const noexcept {
    if (isSet) {
      flags_.fetch_or(flag, std::memory_order_relaxed);
    } else {
      flags_.fetch_and(static_cast<std::uint8_t>(~flag), std::memory_order_relaxed);
    }
  }
  bool isPlain() const noexcept { return !hasFlag(IsPath); }
  bool asksHost() const noexcept { return hasFlag(AsksHost); }
  bool hasWholeName() const noexcept { return hasFlag(HasWholeName); }
  const Name& wholeName() const;
  void keepWholeName(const Name& name) const;
  void dropWholeName() noexcept;

  mutable std::atomic<std::uint8_t> flags_{0};
  Name name_;       // the variable's; of a path the root's, which may be absent
  NSKeyPath path_;  // absent without one
};

}  // namespace tavlo
