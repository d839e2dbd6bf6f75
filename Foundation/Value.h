#pragma once

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

#include "Foundation/NSObject.h"
#include "Foundation/RawValue.h"
#include "Foundation/Ref.h"

namespace tavlo {

template <class T>
concept TextLike = std::convertible_to<const T&, std::string_view> && !std::is_null_pointer_v<T>;

template <class T>
concept IntegerLike = std::integral<T> && !std::same_as<T, bool>;

// A value of any kind in 16 bytes: absent (no object), null, a boolean, a number, or a counted object. Null, booleans
// and numbers are no heap objects: two of the same kind and payload are the very same value.
class Value {
 public:
  // The absent value. It is not the null object.
  constexpr Value() noexcept : raw_(RawValue::absent()) {}

  // NOLINTBEGIN(google-explicit-constructor): implicit on purpose
  // Implicit on purpose: whatever a program has becomes a value where one is asked for.
  template <std::same_as<bool> T>
  constexpr Value(T truth) noexcept : raw_(RawValue::boolean(truth)) {}
  template <IntegerLike T>
  constexpr Value(T number) noexcept
      : raw_(std::is_signed_v<T> ? RawValue::integer(static_cast<std::int64_t>(number))
                                 : RawValue::unsignedInteger(static_cast<std::uint64_t>(number))) {}
  constexpr Value(double number) noexcept : raw_(RawValue::real(number)) {}
  constexpr Value(float number) noexcept : raw_(RawValue::ofSingle(number)) {}

  // The null object.
  template <std::same_as<std::nullptr_t> T>
  constexpr Value(T /*nothing*/) noexcept : raw_(RawValue::null()) {}

  // A string. Raises `NSInvalidArgumentException` that names the byte offset when the text is not valid UTF-8. A null
  // pointer is the null object.
  template <TextLike T>
  requires(!std::is_pointer_v<T>) Value(const T& text) : Value(std::string_view(text)) {}
  template <TextLike T>
  requires std::is_pointer_v<T> Value(const T& text)
      : Value(text == nullptr ? null() : Value(std::string_view(text))) {}
  Value(std::string_view text);

  // An object; absent for an absent reference. One of the host's that is constant stays so.
  template <class T>
  requires(std::derived_from<T, NSObject> && !std::is_const_v<T>) Value(const Ref<T>& object)
  noexcept : raw_(ofObject(object.get())) { retain(); }
  template <class T>
  requires(std::derived_from<T, NSObject> && !std::is_const_v<T>) Value(Ref<T>&& object)
  noexcept : raw_(ofObject(object.leak())) {}
  template <class T>
  requires(std::derived_from<T, NSObject>&& std::is_const_v<T>) Value(const Ref<T>& object)
      : Value(ofConstant(object.get())) {}
  // NOLINTEND(google-explicit-constructor)

  // A copy owns its object, also that of a lent value.
  Value(const Value& other) noexcept : raw_(other.raw_.inWords()) {
    if (kind() != ValueKind::Object) return;
    raw_.tag |= RawValue::kOwned;
    raw_.payload.object->retain();
  }
  Value(Value&& other) noexcept : raw_(other.leak()) {}
  ~Value() {
    if (raw_.isOwned()) raw_.payload.object->release();
  }
  Value& operator=(const Value& other) noexcept { return *this = Value(other); }
  Value& operator=(Value&& other) noexcept {
    const RawValue taken = other.leak();             // first, as the other may be this value
    const Value old = Value::adopt(raw_.inWords());  // let go of last, so that its end finds this value changed
    raw_ = taken;
    return *this;
  }

  static Value null() noexcept { return Value(RawValue::null(), Adopt{}); }

  // Takes over the reference of an owned pair; of a lent one it takes none, so that the result is lent too.
  static Value adopt(RawValue raw) noexcept { return Value(raw, Adopt{}); }

  // A value of its own from a lent pair.
  static Value retaining(RawValue raw) noexcept {
    if (raw.kind() == ValueKind::Object && !raw.isOwned()) {
      raw.tag |= RawValue::kOwned;
      raw.payload.object->retain();
    }
    return Value(raw, Adopt{});
  }

  // Gives the pair, and its reference, to the caller.
  RawValue leak() noexcept {
    const RawValue raw = raw_.inWords();
    raw_ = RawValue::absent();
    return raw;
  }
  // Lets go of what it holds: absent from here on.
  void clear() noexcept {
    const RawValue old = leak();
    if (old.isOwned()) old.payload.object->release();
  }
  // The pair as it is, still owned by this value.
  RawValue peek() const noexcept { return raw_.lent(); }

  ValueKind kind() const noexcept { return raw_.kind(); }
  bool isAbsent() const noexcept { return kind() == ValueKind::Absent; }
  bool isNull() const noexcept { return kind() == ValueKind::Null; }
  bool isBoolean() const noexcept { return kind() == ValueKind::Boolean; }
  bool isNumber() const noexcept { return raw_.isNumber(); }
  bool isDouble() const noexcept { return raw_.isDouble(); }
  bool isObject() const noexcept { return kind() == ValueKind::Object; }
  bool isString() const noexcept { return string() != nullptr; }
  // Whether it is an object that the value lets go of in the end, not a lent one.
  bool ownsObject() const noexcept { return raw_.isOwned(); }

  // The object, or null for every value that is none.
  const NSObject* object() const noexcept { return isObject() ? raw_.payload.object : nullptr; }
  const NSString* string() const noexcept;
  template <class T>
  const T* as() const noexcept {
    return dynamic_cast<const T*>(object());
  }
  // A reference to the object as it was put in; absent when it is of another class.
  template <class T>
  Ref<T> ref() const noexcept {
    return Ref<T>::retaining(const_cast<T*>(as<T>()));  // NOLINT(*-const-cast): objects are counted through const
  }

  // The same kind and payload: the very same object, number or null.
  bool isIdenticalTo(const Value& other) const noexcept {
    return raw_.kind() == other.raw_.kind() && raw_.payload.unsignedInteger == other.raw_.payload.unsignedInteger;
  }

  // Equality of values: numbers by their mathematical value, strings unit by unit, collections by their contents, the
  // null object and absence only with themselves. `depth` counts the collections around the two.
  bool isEqual(const Value& other, std::int32_t depth = 0) const;
  // The same for equal values, as long as the process runs.
  std::size_t hash() const;

  // Whether this value comes before (after) the other; absent when the pair has no order.
  std::optional<bool> isLessThan(const Value& other) const;
  std::optional<bool> isGreaterThan(const Value& other) const;

  // Readings as a number, 0 for what is neither number nor text. See Foundation/NSNumber.h for how numbers narrow.
  double doubleValue() const;
  std::int32_t intValue() const;
  std::int64_t integerValue() const;
  bool boolValue() const;

  // The value's text; "(null)" for an absent one.
  std::string description() const;
  // The name of the value's class as messages show it; "(null)" for an absent one.
  const char* className() const;

  // Prepares the value, and all it holds, to be read by several threads at once: references count atomically and
  // collections refuse changes from here on. Raises `NSInvalidArgumentException`, before anything has changed, when it
  // holds a host's object that cannot be shared.
  void share() const;

 private:
  struct Adopt {};
  constexpr Value(RawValue raw, Adopt) noexcept : raw_(raw) {}

  static RawValue ofObject(const NSObject* object) noexcept {
    if (object == nullptr) return RawValue::absent();
    return {static_cast<std::uint64_t>(ValueKind::Object) | RawValue::kOwned, {.object = object}};
  }
  static Value ofConstant(const NSObject* object);
  void retain() const noexcept {
    if (raw_.isOwned()) raw_.payload.object->retain();
  }

  RawValue raw_;
};

static_assert(sizeof(Value) == 16);

// The null object, a value's "nothing" inside a template.
class NSNull {
 public:
  static Value null() noexcept { return Value::null(); }
};

}  // namespace tavlo
