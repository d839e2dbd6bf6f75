#include "Foundation/NSObject.h"

#include <utility>

#include "Foundation/Description.h"
#include "Foundation/HostMethod.h"
#include "Foundation/KorTemplateLimits.h"
#include "Foundation/NSEnumerator.h"
#include "Foundation/NSException.h"
#include "Foundation/NSKeyValueCoding.h"
#include "Foundation/NSString.h"
#include "Foundation/Value.h"
#include "Foundation/WorkMeter.h"

namespace tavlo {

// Ends objects in place down to a fixed depth and lines up the deeper ones, linked through the fields that counted
// their references, until the outermost end has returned. An execution that runs inside an end has an outermost one of
// its own: it may make and end any number of objects.
class PendingReleases {
 public:
  void end(const NSObject* object) noexcept {
    if (depth_ >= kDeepest - 1) [[unlikely]]
      return endDeeply(object);
    endHere(object);
  }

 private:
  static constexpr int kDeepest = 64;
  static constexpr int kLowBits = 32;

  void endHere(const NSObject* object) noexcept {
    ++depth_;
    delete object;
    if (depth_ == 1) {
      while (const NSObject* next = pop()) delete next;
    }
    --depth_;
  }

  [[gnu::noinline]] void endDeeply(const NSObject* object) noexcept {
    const WorkMeter::Scope* const execution = WorkMeter::Scope::latest();
    if (depth_ == kDeepest - 1) {
      execution_ = execution;
      return endHere(object);
    }
    if (execution == execution_) return push(object);
    const PendingReleases outer = *this;
    depth_ = 0;
    endHere(object);
    depth_ = outer.depth_;
    execution_ = outer.execution_;
  }

  void push(const NSObject* object) noexcept {
    const auto next = reinterpret_cast<std::uintptr_t>(first_);
    object->count_.store(static_cast<std::uint32_t>(next), std::memory_order_relaxed);
    object->linkHigh_ = static_cast<std::uint16_t>(next >> kLowBits);  // addresses have 48 bits
    first_ = object;
  }

  const NSObject* pop() noexcept {
    const NSObject* object = first_;
    if (object == nullptr) return nullptr;
    const std::uintptr_t next =
        (static_cast<std::uintptr_t>(object->linkHigh_) << kLowBits) | object->count_.load(std::memory_order_relaxed);
    first_ = reinterpret_cast<const NSObject*>(next);  // NOLINT(performance-no-int-to-ptr): kept in two halves
    return object;
  }

  int depth_ = 0;
  const NSObject* first_ = nullptr;
  const WorkMeter::Scope* execution_ = nullptr;  // that ran when the deepest level was reached; not owned
};

namespace {
// In the block of every thread that is found without a call: three words, which libraries opened at run time find room
// for.
[[gnu::tls_model("initial-exec")]] thread_local PendingReleases pendingReleases;
}  // namespace

void NSObject::end() const noexcept {
  if (kind_ == ObjectKind::String) {
    delete this;
  } else {
    pendingReleases.end(this);
  }
}

const char* NSObject::className() const {
  return "NSObject";
}

void NSObject::describe(Description& out) const {
  out.part(Description::base(*this));
}

std::string NSObject::description() const {
  return Description::of(Value(Ref<NSObject>::retaining(const_cast<NSObject*>(this))),  // NOLINT(*-const-cast): counted
                         longestString());
}

bool NSObject::isEqual(const NSObject& other, std::int32_t /*depth*/) const {
  return this == &other;
}

std::size_t NSObject::hash() const {
  return reinterpret_cast<std::uintptr_t>(this) >> 4;
}

std::optional<bool> NSObject::isLessThan(const Value& /*other*/) const {
  return {};
}

std::optional<bool> NSObject::isGreaterThan(const Value& /*other*/) const {
  return {};
}

Value NSObject::valueForKey(const NSString& key) const {
  raiseUndefinedKey(Value(Ref<NSObject>::retaining(const_cast<NSObject*>(this))),  // NOLINT(*-const-cast): counted
                    key.view());
}

bool NSObject::findValueForKey(const NSString& key, Value& value) const {
  value = valueForKey(key);
  return true;
}

Ref<NSEnumerator> NSObject::objectEnumerator() const {
  return {};
}

namespace {

[[noreturn]] void raiseNotEnumerable(const char* className) {
  NSException::raise(NSGenericException, "%@ cannot be enumerated because it does not respond to objectEnumerator",
                     className);
}

}  // namespace

Ref<NSEnumerator> requireEnumerator(const NSObject& collection) {
  Ref<NSEnumerator> walk = collection.objectEnumerator();
  if (walk == nullptr) raiseNotEnumerable(collection.className());
  return walk;
}

Ref<NSEnumerator> requireEnumerator(const Value& collection) {
  if (collection.object() == nullptr) raiseNotEnumerable(collection.className());
  return requireEnumerator(*collection.object());
}

BoundMethod NSObject::methodForSelector(const Selector& /*selector*/) const {
  return {};
}

Ref<NSMethodSignature> NSObject::methodSignatureForSelector(const Selector& selector) const {
  const BoundMethod found = methodForSelector(selector);
  return found.method == nullptr ? Ref<NSMethodSignature>() : found.method->signature();
}

bool NSObject::respondsToSelector(const Selector& selector) const {
  return methodForSelector(selector).method != nullptr;
}

}  // namespace tavlo
