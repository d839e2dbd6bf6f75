#include "Foundation/NSObject.h"

#include <utility>

#include "Foundation/Description.h"
#include "Foundation/HostCalls.h"
#include "Foundation/HostMethod.h"
#include "Foundation/KorTemplateLimits.h"
#include "Foundation/NSEnumerator.h"
#include "Foundation/NSException.h"
#include "Foundation/NSKeyValueCoding.h"
#include "Foundation/NSString.h"
#include "Foundation/StackGuard.h"
#include "Foundation/Value.h"

namespace tavlo {

constinit thread_local std::uint16_t NSObject::levelOfEnds_ = 0;

// Ends objects in place down to a fixed depth and lines up the deeper ones, linked through the fields that counted
// their references, until the outermost end has returned. What an end has made itself, and lets go of, has an outermost
// end of its own: it may refer to what is freed next, and a template that runs there may make any number of objects.
class PendingReleases {
 public:
  void end(const NSObject* object) noexcept {
    const std::uint16_t level = NSObject::levelOfEnds_;
    if (level == outermost_) return endOutermost(object);
    if (object->madeAt_ == level && StackGuard::isFarFromTheEnd()) [[unlikely]]
      return endByItself(object);
    if (static_cast<std::uint16_t>(level - outermost_) >= kDeepest) [[unlikely]]
      return push(object);
    ++NSObject::levelOfEnds_;
    delete object;
    --NSObject::levelOfEnds_;
  }

 private:
  static constexpr std::uint16_t kDeepest = 64;
  static constexpr int kLowBits = 32;

  void endOutermost(const NSObject* object) noexcept {
    ++NSObject::levelOfEnds_;
    delete object;
    while (const NSObject* next = pop()) delete next;
    --NSObject::levelOfEnds_;
  }

  [[gnu::noinline]] void endByItself(const NSObject* object) noexcept {
    const PendingReleases around = std::exchange(*this, {});
    outermost_ = NSObject::levelOfEnds_;
    endOutermost(object);
    *this = around;
  }

  void push(const NSObject* object) noexcept {
    const auto next = reinterpret_cast<std::uintptr_t>(first_);
    object->count_.store(static_cast<std::uint32_t>(next), std::memory_order_relaxed);
    object->madeAt_ = static_cast<std::uint16_t>(next >> kLowBits);  // addresses have 48 bits
    first_ = object;
  }

  const NSObject* pop() noexcept {
    const NSObject* object = first_;
    if (object == nullptr) return nullptr;
    const std::uintptr_t next =
        (static_cast<std::uintptr_t>(object->madeAt_) << kLowBits) | object->count_.load(std::memory_order_relaxed);
    object->count_.store(NSObject::kOne, std::memory_order_relaxed);  // as in an end that has not waited
    first_ = reinterpret_cast<const NSObject*>(next);  // NOLINT(performance-no-int-to-ptr): kept in two halves
    return object;
  }

  const NSObject* first_ = nullptr;  // that waits
  std::uint16_t outermost_ = 0;      // the level of the end for which they wait
};

namespace {
// In the block of every thread that is found without a call: two words, which libraries opened at run time find room
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
  lookBeforeCalling(collection);
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
