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

constinit thread_local NSObject::Ends NSObject::ends_;

// Ends objects in place down to a fixed depth and lines up the deeper ones, linked through the fields that counted
// their references, until the outermost end has returned. What an end has made itself, and lets go of, has an outermost
// end of its own: it may refer to what is freed next, and a template that runs there may make any number of objects.
class PendingReleases {
 public:
  [[gnu::noinline]] static void end(const NSObject* object) noexcept {
    const std::uint32_t level = NSObject::ends_.level;
    const std::uint32_t depth = level - NSObject::ends_.outermost;
    if (depth == 0) return endOutermost(object);
    const bool isWithinAnother = NSObject::ends_.outermost != 0;
    if (object->madeAt_ == static_cast<std::uint16_t>(level) || depth >= kDeepest || isWithinAnother) [[unlikely]]
      return endDeeply(object);
    endHere(object);
  }

 private:
  static constexpr std::uint32_t kDeepest = 64;
  static constexpr int kLowBits = 32;

  [[gnu::always_inline]] static void endHere(const NSObject* object) noexcept {
    ++NSObject::ends_.level;
    delete object;
    --NSObject::ends_.level;
  }

  [[gnu::noinline]] static void endOutermost(const NSObject* object) noexcept {
    ++NSObject::ends_.level;
    delete object;
    while (NSObject::ends_.first != nullptr) [[unlikely]] delete pop();
    --NSObject::ends_.level;
  }

  [[gnu::noinline]] static void endDeeply(const NSObject* object) noexcept {
    const NSObject::Ends around = NSObject::ends_;
    const bool isOfThisEnd = object->madeAt_ == static_cast<std::uint16_t>(around.level);
    const bool isFar = StackGuard::isFarFromTheEnd();
    if (isOfThisEnd && isFar) {
      NSObject::ends_ = {nullptr, around.level, around.level};
      endOutermost(object);
      NSObject::ends_ = around;
    } else if (around.level - around.outermost >= kDeepest || (around.outermost != 0 && !isFar)) {
      push(object);
    } else {
      endHere(object);
    }
  }

  static void push(const NSObject* object) noexcept {
    const auto next = reinterpret_cast<std::uintptr_t>(NSObject::ends_.first);
    object->count_.store(static_cast<std::uint32_t>(next), std::memory_order_relaxed);
    object->madeAt_ = static_cast<std::uint16_t>(next >> kLowBits);  // addresses have 48 bits
    NSObject::ends_.first = object;
  }

  static const NSObject* pop() noexcept {
    const NSObject* const object = NSObject::ends_.first;
    const std::uintptr_t next =
        (static_cast<std::uintptr_t>(object->madeAt_) << kLowBits) | object->count_.load(std::memory_order_relaxed);
    object->count_.store(NSObject::kOne, std::memory_order_relaxed);  // as in an end that has not waited
    NSObject::ends_.first =
        reinterpret_cast<const NSObject*>(next);  // NOLINT(performance-no-int-to-ptr): in two halves
    return object;
  }
};

void NSObject::end() const noexcept {
  if (kind_ == ObjectKind::String) {
    delete this;
  } else {
    PendingReleases::end(this);
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
