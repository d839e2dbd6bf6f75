#include <array>
#include <cstddef>

#include "Foundation/NSException.h"
#include "Foundation/NSNumber.h"
#include "Foundation/TypeEncoding.h"
#include "Source/NSInvocation+Conversion.h"

namespace tavlo {

namespace {

template <class T>
RawValue numberFor(std::uint64_t bits) {
  return Value(numberOfBits<T>(bits)).leak();
}

// One type of numbers: how messages name it, and its way into a buffer and out of it.
struct NumberRow {
  char encoding;
  const char* typeName;
  std::uint64_t (*bits)(RawValue number);
  RawValue (*number)(std::uint64_t bits);
};

template <class T>
consteval NumberRow rowOf(const char* typeName) {
  return {numberEncoding<T>(), typeName, bitsOfNumberIn<T>, numberFor<T>};
}

constexpr NumberRow kNumberRows[] = {
    rowOf<signed char>("char"),
    rowOf<unsigned char>("unsigned char"),
    rowOf<short>("short"),
    rowOf<unsigned short>("unsigned short"),
    rowOf<int>("int"),
    rowOf<unsigned>("unsigned int"),
    rowOf<long>("long"),
    rowOf<unsigned long>("unsigned long"),
    rowOf<long long>("long long"),
    rowOf<unsigned long long>("unsigned long long"),
    rowOf<float>("float"),
    rowOf<double>("double"),
};

// The rows by their encodings, null for every other character.
constexpr auto kRowsByEncoding = [] {
  std::array<const NumberRow*, 256> rows{};
  for (const NumberRow& row : kNumberRows) rows[static_cast<unsigned char>(row.encoding)] = &row;
  return rows;
}();

const NumberRow* findRow(char encoding) {
  return kRowsByEncoding[static_cast<unsigned char>(encoding)];
}

const NumberRow& rowFor(char type) {
  const NumberRow* const row = findRow(type);
  if (row == nullptr) {
    NSException::raise(NSInvalidArgumentException, "\"%s\" is no encoding of numbers", std::string_view(&type, 1));
  }
  return *row;
}

[[noreturn, gnu::noinline]] void raiseNoNumber(const NSInvocation& invocation, std::int32_t index,
                                               const NumberRow& row) {
  NSException::raise(NSGenericException, "Incorrect type for %s argument at index %d of %@. NSNumber expected.",
                     row.typeName, index, NSStringFromSelector(invocation.selector()));
}

[[noreturn, gnu::noinline]] void raiseUnsupportedArgument(const NSInvocation& invocation, const Value& object,
                                                          std::int32_t index) {
  NSException::raise(NSInvalidArgumentException, "%@: unsupported argument type: %@ at index %d",
                     NSStringFromSelector(invocation.selector()), NSStringFromClass(ClassReference(object)), index);
}

[[noreturn, gnu::noinline]] void raiseUnsupportedReturn(const NSInvocation& invocation) {
  NSException::raise(NSInvalidArgumentException, "%@: unsupported return type",
                     NSStringFromSelector(invocation.selector()));
}

void setNumber(NSInvocation& invocation, const Value& object, std::int32_t index, const NumberRow& row) {
  const bool isNumber = object.isNumber();
  if (!isNumber && !object.isAbsent()) raiseNoNumber(invocation, index, row);
  invocation.slotAtIndex(index).bits = row.bits(isNumber ? object.peek() : RawValue::integer(0));
}

}  // namespace

void setObjectForArgumentAtIndex(NSInvocation& invocation, const Value& object, std::int32_t index) {
  requireParameter(index >= 2, "index >= 2");
  const char encoding = invocation.methodSignature()->argumentCodeAtIndex(index);
  if (encoding == '\0') return;
  if (encoding == '@') {
    invocation.slotAtIndex(index).object = object;
  } else if (const NumberRow* const row = findRow(encoding)) {
    setNumber(invocation, object, index, *row);
  } else {
    raiseUnsupportedArgument(invocation, object, index);
  }
}

void setObjectsForArguments(NSInvocation& invocation, std::span<const Value> objects) {
  constexpr auto kFirst = static_cast<std::int32_t>(NSMethodSignature::kHiddenArguments);
  std::int32_t index = kFirst;
  for (const Value& object : objects) {
    const NumberRow* const row = findRow(invocation.methodSignature()->argumentCodeAtIndex(index));
    if (row != nullptr && object.isNumber()) [[likely]] {
      invocation.slotAtIndex(index).bits = row->bits(object.peek());
    } else {
      setObjectForArgumentAtIndex(invocation, object.isNull() ? Value() : object, index);
    }
    ++index;
  }
}

RawValue takeReturnValue(const NSInvocation& invocation) {
  const char encoding = invocation.methodSignature()->returnCode();
  if (const NumberRow* const row = findRow(encoding)) return row->number(invocation.resultSlot().bits);
  if (encoding == '\0' || encoding == 'v') return RawValue::null();
  if (encoding == '@') return Value(invocation.resultSlot().object).leak();
  raiseUnsupportedReturn(invocation);
}

Value returnValueAsObject(const NSInvocation& invocation) {
  return Value::adopt(takeReturnValue(invocation));
}

void setObjectForNumberArgumentAtIndex(NSInvocation& invocation, const Value& object, std::int32_t index, char type) {
  const NumberRow& row = rowFor(type);
  invocation.requireArgumentType(std::string_view(&type, 1), index);
  setNumber(invocation, object, index, row);
}

Value returnValueAsNumber(const NSInvocation& invocation, char type) {
  const NumberRow& row = rowFor(type);
  invocation.requireReturnType(std::string_view(&type, 1));
  return Value::adopt(row.number(invocation.resultSlot().bits));
}

}  // namespace tavlo
