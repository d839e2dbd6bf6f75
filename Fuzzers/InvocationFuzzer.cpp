#include <fuzzer/FuzzedDataProvider.h>

#include <array>
#include <bit>
#include <cmath>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

#include "Foundation/HostMethod.h"
#include "Foundation/HostObject.h"
#include "Foundation/NSArray.h"
#include "Foundation/NSInvocation.h"
#include "Foundation/Utf8.h"
#include "Fuzzers/Checks.h"
#include "Matchery/KorRegex.h"
#include "Source/KorTemplateEnvironment.h"
#include "Source/KorTemplateExternalFunction.h"
#include "Source/NSInvocation+Conversion.h"
#include "Tests/Source/EchoedNumbers.h"
#include "Tests/Source/KorTemplateParserSupport.h"

// Calls of host methods of all types with values of all kinds, put together as the input says.

namespace tavlo::fuzz {

namespace {

using test::Echo;
using test::Level;

constexpr std::array<const char*, 26> kEncodings = {"c", "C", "B",  "s",  "S",  "i",       "I", "l", "L",
                                                    "q", "Q", "f",  "d",  "@",  "v",       "#", ":", "*",
                                                    "?", "D", "r*", "^v", "^i", "{P=...}", "b", ""};

Value anyNumber(FuzzedDataProvider& input) {
  const auto bits = input.ConsumeIntegral<std::uint64_t>();
  switch (input.ConsumeIntegralInRange<int>(0, 5)) {
    case 0:
      return static_cast<std::int64_t>(bits);
    case 1:
      return bits;
    case 2:
      return std::bit_cast<double>(bits);
    case 3:
      return std::bit_cast<float>(static_cast<std::uint32_t>(bits));
    case 4:
      return static_cast<double>(static_cast<std::int64_t>(bits)) / 1024;
    default:
      return (bits & 1) != 0;
  }
}

Value anyValue(FuzzedDataProvider& input) {
  switch (input.ConsumeIntegralInRange<int>(0, 9)) {
    case 0:
      return {};
    case 1:
      return Value::null();
    case 2:
      return asValidUTF8(input.ConsumeRandomLengthString(8));
    case 3:
      return NSArray::array();
    case 4:
      return KorRegex::compileExpression("a");
    default:
      return anyNumber(input);
  }
}

// The value's number in a type, as the language converts it.
template <class T>
T narrowed(const Value& value) {
  const RawValue raw = value.peek();
  if constexpr (std::floating_point<T>) {
    if (raw.kind() == ValueKind::Signed) return static_cast<T>(raw.payload.signedInteger);
    if (raw.kind() == ValueKind::Unsigned || raw.kind() == ValueKind::Boolean) {
      return static_cast<T>(raw.payload.unsignedInteger);
    }
    return static_cast<T>(value.doubleValue());
  } else {
    if (raw.kind() != ValueKind::Double && raw.kind() != ValueKind::Float) {
      return static_cast<T>(raw.payload.unsignedInteger);
    }
    const double number = value.doubleValue();
    if (std::isnan(number)) return 0;
    if (number <= static_cast<double>(std::numeric_limits<T>::min())) return std::numeric_limits<T>::min();
    if (number >= std::ldexp(1.0, std::numeric_limits<T>::digits)) return std::numeric_limits<T>::max();
    return static_cast<T>(number);
  }
}

// One method of Echo, and the text of what it answers to a number.
struct EchoRow {
  const char* selector;
  std::string (*answer)(const Value& number);
};

template <class T>
std::string answerAs(const Value& number) {
  return Value(narrowed<T>(number)).description();
}

constexpr EchoRow kEchoRows[] = {
    {"c:", answerAs<signed char>},
    {"C:", answerAs<unsigned char>},
    {"s:", answerAs<short>},
    {"S:", answerAs<unsigned short>},
    {"i:", answerAs<int>},
    {"I:", answerAs<unsigned>},
    {"l:", answerAs<long>},
    {"L:", answerAs<unsigned long>},
    {"q:", answerAs<long long>},
    {"Q:", answerAs<unsigned long long>},
    {"f:", answerAs<float>},
    {"d:", answerAs<double>},
    {"level:", answerAs<unsigned char>},
    {"bool:", [](const Value& number) { return std::string(narrowed<signed char>(number) != 0 ? "1" : "0"); }},
};

// The text of a function's answer, or of what it raises.
template <class Call>
std::string textOfAnswer(const Call& call) {
  std::string answer;
  const test::parsing::Raised raised = test::parsing::raisedBy([&] { answer = Value(call()).description(); });
  return raised.name.empty() ? answer : raised.text();
}

// An echo answers with the number in its type, however it is called.
void checkEcho(FuzzedDataProvider& input) {
  static Echo echo;
  static const Value target = hostReference(echo);
  const EchoRow& row = kEchoRows[input.ConsumeIntegralInRange<std::size_t>(0, std::size(kEchoRows) - 1)];
  const Value value = anyValue(input);
  const bool isNothing = value.isAbsent() || value.isNull();

  const Ref<KorTemplateEnvironment> environment = KorTemplateEnvironment::environment();
  const Ref<KorTemplateExternalFunction> function =
      KorTemplateExternalFunction::functionWithSelectorTarget(row.selector, echo);
  const auto call = [&] { return function->invokeWithEnvironment(environment.get(), std::vector<Value>{value}); };
  const std::string answer = textOfAnswer(call);
  if (value.isNumber() || isNothing) {
    requireEqual(answer, row.answer(isNothing ? Value(0) : value), row.selector);
  } else {
    require(answer.starts_with(NSGenericException), "What is no number is refused where one is needed");
  }
  requireEqual(textOfAnswer(call), answer, "A second call answers as the first one");

  // Step by step, which takes no short cut; null is absent there.
  const Ref<NSInvocation> invocation =
      NSInvocation::invocationWithMethodSignature(target.object()->methodSignatureForSelector(row.selector));
  invocation->setSelector(row.selector);
  invocation->setTarget(target.ref<NSObject>());
  const auto steps = [&] {
    setObjectForArgumentAtIndex(*invocation, value.isNull() ? Value() : value, 2);
    invocation->invoke();
    return returnValueAsObject(*invocation);
  };
  requireEqual(textOfAnswer(steps), answer, "Step by step is the same as at once");
}

Ref<NSMethodSignature> anySignature(FuzzedDataProvider& input) {
  const std::string result = input.PickValueInArray(kEncodings);
  std::vector<std::string_view> arguments;
  for (int left = input.ConsumeIntegralInRange<int>(0, 4); left > 0; --left) {
    arguments.emplace_back(input.PickValueInArray(kEncodings));
  }
  Ref<NSMethodSignature> signature;
  const test::parsing::Raised raised =
      test::parsing::raisedBy([&] { signature = NSMethodSignature::signatureWithTypes(result, arguments); });
  require(signature != nullptr || raised.name == NSInvalidArgumentException, "An empty encoding is refused");
  return signature;
}

// Calls `body` with a type of C++ that the number stands for.
template <class Body>
void withType(int number, const Body& body) {
  switch (number) {
    case 0:
      return body.template operator()<bool>();
    case 1:
      return body.template operator()<signed char>();
    case 2:
      return body.template operator()<unsigned short>();
    case 3:
      return body.template operator()<int>();
    case 4:
      return body.template operator()<unsigned long>();
    case 5:
      return body.template operator()<float>();
    case 6:
      return body.template operator()<double>();
    case 7:
      return body.template operator()<Value>();
    case 8:
      return body.template operator()<Selector>();
    default:
      return body.template operator()<Level>();
  }
}

// A method made by hand for any signature, which reads its arguments and stores a result in any types.
class AnyTarget final : public NSObject {
 public:
  AnyTarget(const Ref<NSMethodSignature>& signature, std::string choices)
      : choices_(std::move(choices)),
        method_(signature, [this](void* /*object*/, NSInvocation& invocation) { run(invocation); }) {}

  BoundMethod methodForSelector(const Selector& selector) const override {
    if (selector == Selector("other")) return {};
    return {&method_, const_cast<AnyTarget*>(this)};  // NOLINT(*-const-cast): the code changes nothing
  }
  const char* className() const override { return "AnyTarget"; }

 private:
  void run(NSInvocation& invocation) const {
    FuzzedDataProvider input(reinterpret_cast<const std::uint8_t*>(choices_.data()), choices_.size());
    const int reads = input.ConsumeIntegralInRange<int>(0, 4);
    for (int read = 0; read < reads; ++read) {
      const auto index = input.ConsumeIntegralInRange<std::int32_t>(-1, 7);
      withType(input.ConsumeIntegralInRange<int>(0, 9), [&]<class T>() {
        const T first = invocation.getArgument<T>(index);
        invocation.setArgument<T>(first, index);
        if constexpr (std::integral<T>) {
          require(invocation.getArgument<T>(index) == first, "An argument is read as it was stored");
        }
      });
    }
    withType(input.ConsumeIntegralInRange<int>(0, 9), [&]<class T>() {
      if constexpr (std::is_arithmetic_v<T>) {
        invocation.setReturnValue<T>(static_cast<T>(input.ConsumeIntegral<std::uint8_t>()));
      } else {
        invocation.setReturnValue<T>(T());
      }
    });
  }

  std::string choices_;
  HostMethod method_;
};

// An invocation whose signature need not be that of its target's method. Whatever is wrong is raised.
void checkAnySignature(FuzzedDataProvider& input) {
  const Ref<NSMethodSignature> signature = anySignature(input);
  const Ref<NSMethodSignature> other = input.ConsumeBool() ? anySignature(input) : signature;
  if (signature == nullptr || other == nullptr) return;
  const Ref<NSInvocation> invocation = NSInvocation::invocationWithMethodSignature(signature);
  invocation->setSelector(input.ConsumeBool() ? "other" : "any::");
  const Ref<AnyTarget> target = makeRef<AnyTarget>(other, input.ConsumeRandomLengthString(24));
  if (input.ConsumeBool()) invocation->retainArguments();
  if (input.ConsumeIntegralInRange<int>(0, 7) != 0) invocation->setTarget(target);

  std::vector<Value> values;
  for (int left = input.ConsumeIntegralInRange<int>(0, 5); left > 0; --left) {
    const Value value = values.emplace_back(anyValue(input));
    const auto index = input.ConsumeIntegralInRange<std::int32_t>(-1, 7);
    const std::string type = input.PickValueInArray(kEncodings);
    (void)test::parsing::raisedBy([&] { setObjectForArgumentAtIndex(*invocation, value, index); });
    (void)test::parsing::raisedBy(
        [&] { setObjectForNumberArgumentAtIndex(*invocation, value, index, type.empty() ? '\0' : type.front()); });
  }
  const Ref<KorTemplateEnvironment> environment = KorTemplateEnvironment::environment();
  const Ref<KorTemplateExternalFunction> function = KorTemplateExternalFunction::functionWithInvocation(invocation);
  const auto call = [&] {
    const Value answer = function->invokeWithEnvironment(environment.get(), values);
    require(!answer.isAbsent(), "A function's answer is never absent");
    return answer;
  };
  const std::string answer = textOfAnswer(call);
  requireEqual(textOfAnswer(call), answer, "A second call answers as the first one");
  for (const char* type : kEncodings) {
    (void)test::parsing::raisedBy([&] { (void)returnValueAsNumber(*invocation, *type); });
  }
}

}  // namespace

}  // namespace tavlo::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  FuzzedDataProvider input(data, size);
  input.ConsumeBool() ? tavlo::fuzz::checkEcho(input) : tavlo::fuzz::checkAnySignature(input);
  return 0;
}
