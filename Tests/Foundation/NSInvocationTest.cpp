#include <gtest/gtest.h>

#include <functional>
#include <limits>
#include <memory>
#include <string>
#include <utility>

#include "Foundation/HostMethodTable.h"
#include "Foundation/NSException.h"
#include "Foundation/NSInvocation.h"
#include "Foundation/NSMethodSignature.h"
#include "Tests/Foundation/HostObjects.h"
#include "Tests/Foundation/Raised.h"

namespace tavlo::test {

namespace {

struct Size {
  int width = 0;
  int height = 0;
};

// An object of a host with methods of its own.
class Account : public NSObject {
 public:
  explicit Account(std::int64_t balance = 0) : balance_(balance) {}

  std::int64_t balance() const noexcept { return balance_; }
  void deposit(std::int64_t amount) { balance_ += amount; }
  double balanceIn(const Ref<NSString>& currency, double rate) const {
    lastCurrency = currency;
    return static_cast<double>(balance_) * rate;
  }
  Size area(Size size, const char* label) const {
    lastLabel = label;
    return {size.width + 1, size.height + 1};
  }
  Ref<NSString> named(const Account& other, Account* further) const {
    return NSString::stringWithUTF8(std::to_string(other.balance()) + (further == nullptr ? "" : " and more"));
  }
  Value refuse() { throw NSException("Refusal", "no"); }

  const char* className() const override { return "Account"; }
  BoundMethod methodForSelector(const Selector& selector) const override { return methods().find(selector, *this); }

  static const HostMethodTable& methods() {
    static const HostMethodTable table = [] {
      HostMethodTable made;
      made.add<Account>("balance", &Account::balance)
          .add<Account>("deposit:", &Account::deposit)
          .add<Account>("balanceIn:rate:", &Account::balanceIn)
          .add<Account>("area:label:", &Account::area)
          .add<Account>("named:further:", &Account::named)
          .add<Account>("refuse", &Account::refuse);
      return made;
    }();
    return table;
  }

  mutable Ref<NSString> lastCurrency;
  mutable const char* lastLabel = "never set";

 private:
  std::int64_t balance_;
};

Ref<NSInvocation> invocationOf(const Selector& selector, NSObject& target) {
  const Ref<NSInvocation> invocation =
      NSInvocation::invocationWithMethodSignature(target.methodSignatureForSelector(selector));
  invocation->setSelector(selector);
  invocation->setTarget(&target);
  return invocation;
}

TEST(NSMethodSignature, CountsTheTwoHiddenArguments) {
  const Ref<NSMethodSignature> signature = NSMethodSignature::signatureOf<double, int, const char*>();
  EXPECT_EQ(signature->numberOfArguments(), 4u);
  EXPECT_EQ(signature->getArgumentTypeAtIndex(0), "@");
  EXPECT_EQ(signature->getArgumentTypeAtIndex(1), ":");
  EXPECT_EQ(signature->getArgumentTypeAtIndex(2), "i");
  EXPECT_EQ(signature->getArgumentTypeAtIndex(3), "r*");
  EXPECT_EQ(signature->methodReturnType(), "d");
  EXPECT_EQ(signature->argumentCodeAtIndex(2), 'i');
  EXPECT_EQ(signature->argumentCodeAtIndex(3), '\0');
  EXPECT_STREQ(signature->className(), "NSMethodSignature");
  EXPECT_NO_THROW(Value(signature).share());
}

TEST(NSMethodSignature, IsWrittenByHandWithAnyEncodings) {
  const Ref<NSMethodSignature> signature = NSMethodSignature::signatureWithTypes("B", {"B", "{Size=ii}", "^v"});
  EXPECT_EQ(signature->numberOfArguments(), 5u);
  EXPECT_EQ(signature->getArgumentTypeAtIndex(2), "B");
  EXPECT_EQ(signature->getArgumentTypeAtIndex(3), "{Size=ii}");
  EXPECT_EQ(signature->returnCode(), 'B');
  EXPECT_EQ(NSMethodSignature::signatureWithTypes("v", {})->numberOfArguments(), 2u);
  EXPECT_EQ(NSMethodSignature::signatureWithTypes("r*", nullptr)->returnCode(), '\0');
}

TEST(NSMethodSignature, RefusesEmptyEncodingsAndPositionsThatThereAreNot) {
  const std::string empty = "NSInvalidArgumentException: A method's types cannot have empty encodings";
  EXPECT_EQ(raised([] { (void)NSMethodSignature::signatureWithTypes("", {}); }), empty);
  EXPECT_EQ(raised([] { (void)NSMethodSignature::signatureWithTypes("v", {"i", ""}); }), empty);
  const Ref<NSMethodSignature> signature = NSMethodSignature::signatureOf<void, int>();
  for (const std::int32_t index : {-1, 3, std::numeric_limits<std::int32_t>::min()}) {
    EXPECT_EQ(raised([&] { (void)signature->getArgumentTypeAtIndex(index); }),
              "NSInvalidArgumentException: There is no argument at index " + std::to_string(index) +
                  ": the method has 3 arguments");
  }
}

TEST(NSObject, RespondsToTheSelectorsOfItsMethods) {
  const Ref<Account> account = makeRef<Account>();
  EXPECT_TRUE(account->respondsToSelector("deposit:"));
  EXPECT_FALSE(account->respondsToSelector("deposit"));
  EXPECT_FALSE(account->respondsToSelector(Selector()));
  EXPECT_EQ(account->methodSignatureForSelector("deposit:")->getArgumentTypeAtIndex(2), "l");
  EXPECT_EQ(account->methodSignatureForSelector("withdraw:"), nullptr);
  EXPECT_FALSE(makeRef<Named>("n")->respondsToSelector("name"));
  EXPECT_EQ(makeRef<Named>("n")->methodSignatureForSelector("name"), nullptr);
}

TEST(NSInvocation, CallsAMethodWithItsArguments) {
  const Ref<Account> account = makeRef<Account>(100);
  const Ref<NSInvocation> deposit = invocationOf("deposit:", *account);
  deposit->setArgument(std::int64_t{50}, 2);
  deposit->invoke();
  deposit->invoke();
  EXPECT_EQ(account->balance(), 200);

  const Ref<NSInvocation> balance = invocationOf("balanceIn:rate:", *account);
  balance->setArgument(NSString::stringWithUTF8("EUR"), 2);
  balance->setArgument(0.5, 3);
  balance->invoke();
  EXPECT_EQ(balance->getReturnValue<double>(), 100);
  EXPECT_EQ(account->lastCurrency->view(), "EUR");
  EXPECT_EQ(balance->getArgument<double>(3), 0.5);
  EXPECT_EQ(balance->getArgument<std::string>(2), "EUR");
  EXPECT_EQ(balance->getArgument<Value>(2).description(), "EUR");
  EXPECT_EQ(balance->getArgument<Ref<NSString>>(2)->view(), "EUR");
  EXPECT_EQ(balance->getArgument<Ref<Account>>(2), nullptr);
}

TEST(NSInvocation, StartsWithArgumentsThatAreZeroAbsentAndEmpty) {
  const Ref<Account> account = makeRef<Account>(3);
  const Ref<NSInvocation> area = invocationOf("area:label:", *account);
  EXPECT_EQ(area->getArgument<const char*>(3), nullptr);
  area->invoke();
  EXPECT_EQ(area->getReturnValue<Size>().width, 1);
  EXPECT_EQ(account->lastLabel, nullptr);
  const Ref<NSInvocation> balance = invocationOf("balanceIn:rate:", *account);
  EXPECT_EQ(balance->getArgument<double>(3), 0);
  EXPECT_TRUE(balance->getArgument<Value>(2).isAbsent());
  EXPECT_EQ(balance->getReturnValue<double>(), 0);
}

TEST(NSInvocation, PassesStructuresAndPointersByHand) {
  const Ref<Account> account = makeRef<Account>();
  const Ref<NSInvocation> area = invocationOf("area:label:", *account);
  area->setArgument(Size{4, 5}, 2);
  area->setArgument("label", 3);
  area->invoke();
  EXPECT_EQ(area->getReturnValue<Size>().width, 5);
  EXPECT_EQ(area->getReturnValue<Size>().height, 6);
  EXPECT_STREQ(account->lastLabel, "label");
  EXPECT_EQ(area->getArgument<Size>(2).height, 5);
}

TEST(NSInvocation, RefusesTypesAndPositionsThatTheMethodHasNot) {
  const Ref<Account> account = makeRef<Account>();
  const Ref<NSInvocation> balance = invocationOf("balanceIn:rate:", *account);
  struct Row {
    const char* what;
    std::string text;
    const char* expected;
  };
  const Row rows[] = {
      {"an integer for a double", raised([&] { balance->setArgument(1, 3); }),
       "NSInvalidArgumentException: A value of type \"i\" cannot stand where the method has \"d\""},
      {"a float for a double", raised([&] { balance->setArgument(1.0F, 3); }),
       "NSInvalidArgumentException: A value of type \"f\" cannot stand where the method has \"d\""},
      {"a double for an object", raised([&] { balance->setArgument(1.0, 2); }),
       "NSInvalidArgumentException: A value of type \"d\" cannot stand where the method has \"@\""},
      {"a structure read as a number", raised([&] { (void)balance->getArgument<Size>(3); }),
       "NSInvalidArgumentException: A value of type \"{Size=...}\" cannot stand where the method has \"d\""},
      {"another result", raised([&] { (void)balance->getReturnValue<int>(); }),
       "NSInvalidArgumentException: A value of type \"i\" cannot stand where the method has \"d\""},
      {"another result that is set", raised([&] { balance->setReturnValue(Value()); }),
       "NSInvalidArgumentException: A value of type \"@\" cannot stand where the method has \"d\""},
      {"the selector's position", raised([&] { balance->setArgument(1.0, 1); }),
       "NSInvalidArgumentException: The arguments begin at index 2: there is none at index 1"},
      {"a position too far", raised([&] { balance->setArgument(1.0, 4); }),
       "NSInvalidArgumentException: There is no argument at index 4: the method has 4 arguments"},
  };
  for (const Row& row : rows) EXPECT_EQ(row.text, row.expected) << row.what;
}

TEST(NSInvocation, LetsIntegersOfOneSizeStandForEachOther) {
  const Ref<Account> account = makeRef<Account>();
  const Ref<NSInvocation> deposit = invocationOf("deposit:", *account);
  deposit->setArgument(7LL, 2);
  EXPECT_EQ(deposit->getArgument<long>(2), 7);
  deposit->setArgument(std::numeric_limits<unsigned long long>::max(), 2);
  EXPECT_EQ(deposit->getArgument<long>(2), -1);
}

TEST(NSInvocation, DoesNothingWithoutATarget) {
  const Ref<NSInvocation> invocation =
      NSInvocation::invocationWithMethodSignature(NSMethodSignature::signatureOf<int, int>());
  invocation->setReturnValue(5);
  EXPECT_EQ(invocation->getReturnValue<int>(), 5);
  invocation->invoke();
  EXPECT_EQ(invocation->getReturnValue<int>(), 0);
  EXPECT_EQ(invocation->target(), nullptr);
  EXPECT_TRUE(invocation->selector().isAbsent());
}

TEST(NSInvocation, NeedsASignatureAndAMethodOfThatSignature) {
  EXPECT_EQ(raised([] { (void)NSInvocation::invocationWithMethodSignature({}); }),
            "NSInvalidArgumentException: An invocation needs a method signature");
  const Ref<Account> account = makeRef<Account>();
  const Ref<NSInvocation> invocation = invocationOf("deposit:", *account);
  invocation->setSelector(Selector());
  EXPECT_EQ(raised([&] { invocation->invoke(); }), "NSInvalidArgumentException: Account has no method (null)");
  invocation->setSelector("withdraw:");
  EXPECT_EQ(raised([&] { invocation->invoke(); }), "NSInvalidArgumentException: Account has no method withdraw:");
  for (const char* const selector : {"balance", "balanceIn:rate:"}) {
    invocation->setSelector(selector);
    EXPECT_EQ(raised([&] { invocation->invoke(); }),
              std::string("NSInvalidArgumentException: ") + selector +
                  ": the invocation's signature is not that of the method of Account");
  }
  invocation->setSelector("deposit:");
  invocation->setArgument(1L, 2);
  invocation->invoke();
  EXPECT_EQ(account->balance(), 1);
}

TEST(NSInvocation, ServesOneTargetAfterAnother) {
  const Ref<Account> first = makeRef<Account>(1);
  const Ref<Account> second = makeRef<Account>(2);
  const Ref<NSInvocation> balance = invocationOf("balance", *first);
  balance->invoke();
  EXPECT_EQ(balance->getReturnValue<std::int64_t>(), 1);
  balance->invokeWithTarget(second.get());
  EXPECT_EQ(balance->getReturnValue<std::int64_t>(), 2);
  EXPECT_EQ(balance->target(), second.get());
}

TEST(NSInvocation, OwnsItsTargetOnlyWhenAsked) {
  int alive = 0;
  const Ref<NSInvocation> invocation =
      NSInvocation::invocationWithMethodSignature(NSMethodSignature::signatureOf<void>());
  Ref<Tracked> target = makeRef<Tracked>(alive);
  invocation->setTarget(target);
  EXPECT_FALSE(invocation->argumentsRetained());
  target = nullptr;
  EXPECT_EQ(alive, 0);
  target = makeRef<Tracked>(alive);
  invocation->setTarget(target);
  invocation->retainArguments();
  EXPECT_TRUE(invocation->argumentsRetained());
  target = makeRef<Tracked>(alive);
  EXPECT_EQ(alive, 2);
  invocation->setTarget(target);
  EXPECT_EQ(alive, 1);
  target = nullptr;
  EXPECT_EQ(alive, 1);
  invocation->setTarget(nullptr);
  EXPECT_EQ(alive, 0);
}

TEST(NSInvocation, OwnsItsObjectsUntilItIsToldToLetGo) {
  int alive = 0;
  const Ref<NSInvocation> invocation =
      NSInvocation::invocationWithMethodSignature(NSMethodSignature::signatureOf<Value, Value>());
  invocation->setArgument(makeRef<Tracked>(alive), 2);
  invocation->setReturnValue(Value(makeRef<Tracked>(alive)));
  EXPECT_EQ(alive, 2);
  invocation->setArgument(Value(1), 2);
  EXPECT_EQ(alive, 1);
  invocation->releaseObjects();
  EXPECT_EQ(alive, 0);
  EXPECT_TRUE(invocation->getReturnValue<Value>().isAbsent());
}

TEST(NSInvocation, LetsGoOfAResultOrOfAnArgumentThatIsItsOnlyObject) {
  int alive = 0;
  const Ref<NSInvocation> answering =
      NSInvocation::invocationWithMethodSignature(NSMethodSignature::signatureOf<Value, int>());
  answering->setReturnValue(Value(makeRef<Tracked>(alive)));
  const Ref<NSInvocation> asking =
      NSInvocation::invocationWithMethodSignature(NSMethodSignature::signatureOf<int, int, Value>());
  asking->setArgument(makeRef<Tracked>(alive), 3);
  EXPECT_EQ(alive, 2);
  answering->releaseObjects();
  EXPECT_EQ(alive, 1);
  asking->releaseObjects();
  EXPECT_EQ(alive, 0);
}

TEST(NSInvocation, PassesLentObjectsAndRefusesThoseOfAnotherClass) {
  const Ref<Account> account = makeRef<Account>(1);
  const Ref<Account> other = makeRef<Account>(2);
  const Ref<NSInvocation> named = invocationOf("named:further:", *account);
  named->setArgument(other.get(), 2);
  named->invoke();
  EXPECT_EQ(named->getReturnValue<std::string>(), "2");
  named->setArgument(other, 3);
  named->invoke();
  EXPECT_EQ(named->getReturnValue<std::string>(), "2 and more");

  struct Row {
    const char* what;
    Value first;
    Value second;
    const char* expected;
  };
  const Row rows[] = {
      {"nothing for a reference", Value(), Value(), "incorrect object at index 2: (null) supplied, Account expected."},
      {"null for a reference", Value::null(), Value(),
       "incorrect object at index 2: NSNull supplied, Account expected."},
      {"a text", "text", Value(), "incorrect object at index 2: NSString supplied, Account expected."},
      {"a number for a pointer", other, 5, "incorrect object at index 3: NSNumber supplied, Account expected."},
  };
  for (const Row& row : rows) {
    named->setArgument(row.first, 2);
    named->setArgument(row.second, 3);
    EXPECT_EQ(raised([&] { named->invoke(); }),
              std::string("NSInvalidArgumentException: named:further:: ") + row.expected)
        << row.what;
  }
}

TEST(NSInvocation, PassesOnWhatTheMethodRaises) {
  const Ref<Account> account = makeRef<Account>();
  EXPECT_EQ(raised([&] { invocationOf("refuse", *account)->invoke(); }), "Refusal: no");
}

// Methods that are no member functions.

struct Base {
  int number = 1;
  std::string text = "text";
  int twice() const noexcept { return 2 * number; }
  int raise() noexcept { return ++number; }
  int same() const { return 1; }
};
struct Other {
  int more = 7;
  int same() const { return 2; }
  int seven() & { return more; }
};
struct Derived : Other, Base {
  int ofOwn() const& { return 3; }
};

int tripled(const Base& base, int factor) {
  return 3 * base.number * factor;
}

int resultOf(const HostMethodTable& table, const Selector& selector, Derived& object, int argument = 0) {
  const BoundMethod found = table.find(selector, static_cast<void*>(&object));
  NSInvocation& invocation = *NSInvocation::invocationWithMethodSignature(found.method->signature()).leak();
  const Ref<NSInvocation> owner = Ref<NSInvocation>::adopt(&invocation);
  if (selector.numberOfArguments() == 1) invocation.setArgument(argument, 2);
  found.method->call(found.self, invocation);
  return invocation.getReturnValue<int>();
}

TEST(HostMethodTable, TakesWhateverIsCalledWithTheObject) {
  HostMethodTable table;
  auto owned = std::make_unique<int>(10);
  table.add<Derived>("twice", &Base::twice)
      .add<Derived>("raise", &Base::raise)
      .add<Derived>("number", &Base::number)
      .add<Derived>("seven", &Other::seven)
      .add<Derived>("ofOwn", &Derived::ofOwn)
      .add<Derived>("tripled:", tripled)
      .add<Derived>("lambda:", [](Derived& object, int argument) { return object.number + argument; })
      .add<Derived>("counting", [count = 0](const Derived&) mutable { return ++count; })
      .add<Derived>("moving", [owned = std::move(owned)](const Derived&) noexcept { return *owned; });
  Derived object;
  EXPECT_EQ(resultOf(table, "twice", object), 2);
  EXPECT_EQ(resultOf(table, "raise", object), 2);
  EXPECT_EQ(resultOf(table, "number", object), 2);
  EXPECT_EQ(resultOf(table, "seven", object), 7);
  EXPECT_EQ(resultOf(table, "ofOwn", object), 3);
  EXPECT_EQ(resultOf(table, "tripled:", object, 5), 30);
  EXPECT_EQ(resultOf(table, "lambda:", object, 5), 7);
  EXPECT_EQ(resultOf(table, "counting", object), 1);
  EXPECT_EQ(resultOf(table, "counting", object), 2);
  EXPECT_EQ(resultOf(table, "moving", object), 10);
}

TEST(HostMethodTable, RefusesDescriptionsThatAreWrong) {
  const auto none = [](const Base&) {};
  const auto two = [](const Base&, int, int) {};
  struct Row {
    const char* what;
    std::string text;
    const char* expected;
  };
  const Row rows[] = {
      {"no selector", raised([&] { HostMethodTable().add<Base>(Selector(), none); }), "A method needs a selector"},
      {"a colon too many", raised([&] { HostMethodTable().add<Base>("f:", none); }),
       "f:: the selector names 1 arguments by its colons, the method takes 0"},
      {"a colon too few", raised([&] { HostMethodTable().add<Base>("f:", two); }),
       "f:: the selector names 1 arguments by its colons, the method takes 2"},
      {"one selector twice", raised([&] { HostMethodTable().add<Base>("f", none).add<Base>("f", none); }),
       "f: the class has this method already"},
      {"no signature", raised([] { (void)HostMethod({}, [](void*, NSInvocation&) {}); }), "A method needs a signature"},
      {"no code", raised([] { (void)HostMethod(NSMethodSignature::signatureOf<void>(), {}); }), "A method needs code"},
      {"a signature by hand that does not fit",
       raised([&] { (void)HostMethod::of<Base>(none).withSignature(NSMethodSignature::signatureOf<void, int>()); }),
       "A signature of 3 arguments does not fit a method of 2"},
      {"an absent signature by hand", raised([&] { (void)HostMethod::of<Base>(none).withSignature({}); }),
       "A method needs a signature"},
  };
  for (const Row& row : rows)
    EXPECT_EQ(row.text, std::string("NSInvalidArgumentException: ") + row.expected) << row.what;
}

// Runs what it is told to when it ends.
struct EndingPart {
  EndingPart() = default;
  EndingPart(const EndingPart&) = default;
  EndingPart& operator=(const EndingPart&) = default;
  ~EndingPart() {
    if (end != nullptr) std::exchange(end, nullptr)();
  }
  std::function<void()> end;
  std::string text;
};

TEST(NSInvocation, StandsTheEndsOfWhatItKeepsThatStoreSomethingThere) {
  const Ref<NSInvocation> invocation =
      NSInvocation::invocationWithMethodSignature(NSMethodSignature::signatureOf<void, EndingPart>());
  const Ref<NSInvocation> making =
      NSInvocation::invocationWithMethodSignature(NSMethodSignature::signatureOf<EndingPart>());
  bool isArmed = false;
  int ends = 0;
  const auto endingPart = [&](const std::function<void()>& end) {
    EndingPart part;
    part.text = "first";
    part.end = [&isArmed, end] {
      if (std::exchange(isArmed, false)) end();
    };
    return part;
  };
  EndingPart next;
  next.text = "next";
  invocation->setArgument(endingPart([&] {
                            ++ends;
                            EndingPart other;
                            other.text = std::string(100, 'o');
                            invocation->setArgument(other, 2);
                          }),
                          2);
  isArmed = true;
  invocation->setArgument(next, 2);
  EXPECT_EQ(invocation->getArgument<EndingPart>(2).text, std::string(100, 'o'));
  for (const bool isCalled : {false, true}) {
    making->setReturnValue(endingPart([&] {
      ++ends;
      making->setReturnValue(EndingPart());
    }));
    isArmed = true;
    if (isCalled) {
      making->invoke();  // without a target
    } else {
      making->setReturnValue(next);
    }
    EXPECT_EQ(making->getReturnValue<EndingPart>().text, "");
  }
  EXPECT_EQ(ends, 3);
}

TEST(HostMethodTable, InheritsAndOverrides) {
  HostMethodTable base;
  base.add<Base>("same", &Base::same).add<Base>("number", &Base::number);
  HostMethodTable other;
  other.add<Other>("same", &Other::same).add<Other>("more", &Other::more);
  HostMethodTable derived;
  derived.inherit<Base, Derived>(base);
  derived.inherit<Other, Derived>(other);
  Derived object;
  EXPECT_EQ(resultOf(derived, "number", object), 1);
  EXPECT_EQ(resultOf(derived, "more", object), 7);
  EXPECT_EQ(resultOf(derived, "same", object), 2);
  derived.add<Derived>("same", &Derived::ofOwn);
  EXPECT_EQ(resultOf(derived, "same", object), 3);
  EXPECT_EQ(derived.find("none", static_cast<void*>(&object)).method, nullptr);
}

TEST(HostMethodTable, OffersConstantObjectsTheMethodsThatLeaveThemAsTheyAre) {
  HostMethodTable table;
  table.add<Base>("twice", &Base::twice).add<Base>("raise", &Base::raise);
  const Base object;
  EXPECT_NE(table.find("twice", static_cast<const void*>(&object)).method, nullptr);
  EXPECT_EQ(table.find("raise", static_cast<const void*>(&object)).method, nullptr);
}

}  // namespace

}  // namespace tavlo::test
