#pragma once

#include <cstdint>
#include <span>

#include "Foundation/NSInvocation.h"
#include "Foundation/RawValue.h"
#include "Foundation/Value.h"

namespace tavlo {

// Values into the arguments of an invocation, and its result as a value. Positions count from 2, which the method's
// first own argument has.

// Stores a value, converted to what the method takes at the position: a number narrowed, an object as it is; an absent
// value is 0, or stays absent. Where the encoding has several characters nothing is stored. Raises
// `NSInvalidArgumentException` for an encoding that no value converts to, `NSGenericException` where a number is needed
// and the value is none; the position must be at least 2.
void setObjectForArgumentAtIndex(NSInvocation& invocation, const Value& object, std::int32_t index);

// All arguments of a call, which are as many as the method takes, in the same way; null is absent.
void setObjectsForArguments(NSInvocation& invocation, std::span<const Value> objects);

// The result as a value: a number, or the object, which may be absent. The null object for no result and for an
// encoding of several characters. Raises `NSInvalidArgumentException` for an encoding that no value is made from.
Value returnValueAsObject(const NSInvocation& invocation);
// The same for the caller to adopt.
RawValue takeReturnValue(const NSInvocation& invocation);

// The same for one type of numbers, by its encoding. Raises `NSInvalidArgumentException` as well when the method has
// another type there.
void setObjectForNumberArgumentAtIndex(NSInvocation& invocation, const Value& object, std::int32_t index, char type);
Value returnValueAsNumber(const NSInvocation& invocation, char type);

inline void setObjectForCharArgumentAtIndex(NSInvocation& invocation, const Value& object, std::int32_t index) {
  setObjectForNumberArgumentAtIndex(invocation, object, index, 'c');
}
inline void setObjectForUnsignedCharArgumentAtIndex(NSInvocation& invocation, const Value& object, std::int32_t index) {
  setObjectForNumberArgumentAtIndex(invocation, object, index, 'C');
}
inline void setObjectForShortArgumentAtIndex(NSInvocation& invocation, const Value& object, std::int32_t index) {
  setObjectForNumberArgumentAtIndex(invocation, object, index, 's');
}
inline void setObjectForUnsignedShortArgumentAtIndex(NSInvocation& invocation, const Value& object,
                                                     std::int32_t index) {
  setObjectForNumberArgumentAtIndex(invocation, object, index, 'S');
}
inline void setObjectForIntArgumentAtIndex(NSInvocation& invocation, const Value& object, std::int32_t index) {
  setObjectForNumberArgumentAtIndex(invocation, object, index, 'i');
}
inline void setObjectForUnsignedIntArgumentAtIndex(NSInvocation& invocation, const Value& object, std::int32_t index) {
  setObjectForNumberArgumentAtIndex(invocation, object, index, 'I');
}
inline void setObjectForLongArgumentAtIndex(NSInvocation& invocation, const Value& object, std::int32_t index) {
  setObjectForNumberArgumentAtIndex(invocation, object, index, 'l');
}
inline void setObjectForUnsignedLongArgumentAtIndex(NSInvocation& invocation, const Value& object, std::int32_t index) {
  setObjectForNumberArgumentAtIndex(invocation, object, index, 'L');
}
inline void setObjectForLongLongArgumentAtIndex(NSInvocation& invocation, const Value& object, std::int32_t index) {
  setObjectForNumberArgumentAtIndex(invocation, object, index, 'q');
}
inline void setObjectForUnsignedLongLongArgumentAtIndex(NSInvocation& invocation, const Value& object,
                                                        std::int32_t index) {
  setObjectForNumberArgumentAtIndex(invocation, object, index, 'Q');
}
inline void setObjectForFloatArgumentAtIndex(NSInvocation& invocation, const Value& object, std::int32_t index) {
  setObjectForNumberArgumentAtIndex(invocation, object, index, 'f');
}
inline void setObjectForDoubleArgumentAtIndex(NSInvocation& invocation, const Value& object, std::int32_t index) {
  setObjectForNumberArgumentAtIndex(invocation, object, index, 'd');
}

inline Value returnValueAsChar(const NSInvocation& invocation) {
  return returnValueAsNumber(invocation, 'c');
}
inline Value returnValueAsUnsignedChar(const NSInvocation& invocation) {
  return returnValueAsNumber(invocation, 'C');
}
inline Value returnValueAsShort(const NSInvocation& invocation) {
  return returnValueAsNumber(invocation, 's');
}
inline Value returnValueAsUnsignedShort(const NSInvocation& invocation) {
  return returnValueAsNumber(invocation, 'S');
}
inline Value returnValueAsInt(const NSInvocation& invocation) {
  return returnValueAsNumber(invocation, 'i');
}
inline Value returnValueAsUnsignedInt(const NSInvocation& invocation) {
  return returnValueAsNumber(invocation, 'I');
}
inline Value returnValueAsLong(const NSInvocation& invocation) {
  return returnValueAsNumber(invocation, 'l');
}
inline Value returnValueAsUnsignedLong(const NSInvocation& invocation) {
  return returnValueAsNumber(invocation, 'L');
}
inline Value returnValueAsLongLong(const NSInvocation& invocation) {
  return returnValueAsNumber(invocation, 'q');
}
inline Value returnValueAsUnsignedLongLong(const NSInvocation& invocation) {
  return returnValueAsNumber(invocation, 'Q');
}
inline Value returnValueAsFloat(const NSInvocation& invocation) {
  return returnValueAsNumber(invocation, 'f');
}
inline Value returnValueAsDouble(const NSInvocation& invocation) {
  return returnValueAsNumber(invocation, 'd');
}

}  // namespace tavlo
