#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>
#include <utility>

#include "Foundation/NSArray.h"
#include "Foundation/NSDate.h"
#include "Foundation/NSDictionary.h"
#include "Foundation/NSMutableString.h"
#include "Foundation/NSSet.h"
#include "Foundation/NSString.h"
#include "Foundation/Name.h"
#include "Foundation/Selector.h"
#include "Foundation/Value.h"
#include "Matchery/KorRegex.h"
#include "Tests/Foundation/HostObjects.h"
#include "Tests/Foundation/Raised.h"
#include "Tests/Foundation/SpecialNumbers.h"

namespace tavlo::test {

namespace {

struct KindRow {
  const char* what;
  Value value;
  ValueKind kind;
  const char* className;
};

TEST(Value, KnowsItsKindAndTheNameOfItsClass) {
  const std::string text = "text";
  const KindRow rows[] = {
      {"nothing", {}, ValueKind::Absent, "(null)"},
      {"an absent reference", Ref<NSArray>(), ValueKind::Absent, "(null)"},
      {"an absent reference that is moved", Value(Ref<NSArray>(nullptr)), ValueKind::Absent, "(null)"},
      {"null", Value::null(), ValueKind::Null, "NSNull"},
      {"NSNull's null", NSNull::null(), ValueKind::Null, "NSNull"},
      {"true", true, ValueKind::Boolean, "NSNumber"},
      {"false", false, ValueKind::Boolean, "NSNumber"},
      {"int", 0, ValueKind::Signed, "NSNumber"},
      {"signed char", static_cast<signed char>(-1), ValueKind::Signed, "NSNumber"},
      {"short", static_cast<short>(-1), ValueKind::Signed, "NSNumber"},
      {"long long", std::numeric_limits<long long>::min(), ValueKind::Signed, "NSNumber"},
      {"unsigned char", static_cast<unsigned char>(255), ValueKind::Unsigned, "NSNumber"},
      {"unsigned long long", std::numeric_limits<unsigned long long>::max(), ValueKind::Unsigned, "NSNumber"},
      {"double", 1.5, ValueKind::Double, "NSNumber"},
      {"float", 1.5F, ValueKind::Float, "NSNumber"},
      {"literal text", "text", ValueKind::Object, "NSString"},
      {"std::string", text, ValueKind::Object, "NSString"},
      {"std::string_view", std::string_view(text), ValueKind::Object, "NSString"},
      {"array", NSArray::array(), ValueKind::Object, "NSArray"},
      {"mutable array", NSMutableArray::array(), ValueKind::Object, "NSArray"},
      {"dictionary", NSDictionary::dictionary(), ValueKind::Object, "NSDictionary"},
      {"set", NSSet::setWithObjects({}), ValueKind::Object, "NSSet"},
      {"date", NSDate::dateWithTimeIntervalSince1970(0), ValueKind::Object, "NSDate"},
      {"regular expression", KorRegex::compileExpression("a"), ValueKind::Object, "KorRegex"},
      {"a host's object", makeRef<Named>("x"), ValueKind::Object, "Named"},
  };
  for (const KindRow& row : rows) {
    EXPECT_EQ(row.value.kind(), row.kind) << row.what;
    EXPECT_STREQ(row.value.className(), row.className) << row.what;
    EXPECT_EQ(row.value.isAbsent(), row.kind == ValueKind::Absent) << row.what;
    EXPECT_EQ(row.value.isNull(), row.kind == ValueKind::Null) << row.what;
    EXPECT_EQ(row.value.isBoolean(), row.kind == ValueKind::Boolean) << row.what;
    EXPECT_EQ(row.value.isNumber(), std::string(row.className) == "NSNumber") << row.what;
    EXPECT_EQ(row.value.isObject(), row.kind == ValueKind::Object) << row.what;
    EXPECT_EQ(row.value.object() != nullptr, row.kind == ValueKind::Object) << row.what;
    EXPECT_EQ(row.value.isString(), std::string(row.className) == "NSString") << row.what;
  }
}

struct IdentityRow {
  const char* what;
  Value left;
  Value right;
  bool identical;
};

TEST(Value, IsIdenticalToTheSameKindAndPayloadOnly) {
  const Value list = NSArray::array();
  const IdentityRow rows[] = {
      {"nothing and nothing", {}, {}, true},
      {"nothing and null", {}, Value::null(), false},
      {"null and null", Value::null(), NSNull::null(), true},
      {"true and true", true, true, true},
      {"true and false", true, false, false},
      {"true and 1", true, 1, false},
      {"false and null", false, Value::null(), false},
      {"5 and 5", 5, 5, true},
      {"5 and unsigned 5", 5, 5U, false},
      {"5 and 5.0", 5, 5.0, false},
      {"5.0 and 5.0F", 5.0, 5.0F, false},
      {"zero and minus zero", 0.0, -0.0, false},
      {"not-a-number and itself", kNotANumber, kNotANumber, true},
      {"an object and itself", list, Value(list), true},
      {"two equal objects", list, NSArray::array(), false},
      {"two equal strings", "a", "a", false},
  };
  for (const IdentityRow& row : rows) {
    EXPECT_EQ(row.left.isIdenticalTo(row.right), row.identical) << row.what;
    EXPECT_EQ(row.right.isIdenticalTo(row.left), row.identical) << row.what;
  }
}

TEST(Value, HoldsItsObjectForAsLongAsACopyLives) {
  int alive = 0;
  {
    Value first = makeRef<Tracked>(alive);
    EXPECT_TRUE(first.object()->hasOneReference());
    const Value second = first;
    EXPECT_FALSE(first.object()->hasOneReference());
    first = Value();
    EXPECT_TRUE(second.object()->hasOneReference());
    EXPECT_EQ(alive, 1);
  }
  EXPECT_EQ(alive, 0);
}

TEST(Value, MovesWithoutCountingAndLeavesAbsence) {
  int alive = 0;
  Value source = makeRef<Tracked>(alive);
  const NSObject* object = source.object();
  Value target = std::move(source);
  EXPECT_TRUE(source.isAbsent());  // NOLINT(bugprone-use-after-move): that is what is tested
  EXPECT_EQ(target.object(), object);
  EXPECT_TRUE(object->isUniquelyReferenced());
  Value assigned = 1;
  assigned = std::move(target);
  EXPECT_TRUE(target.isAbsent());  // NOLINT(bugprone-use-after-move): that is what is tested
  EXPECT_TRUE(assigned.object()->isUniquelyReferenced());
}

TEST(Value, SurvivesAssignmentToItself) {
  int alive = 0;
  Value value = makeRef<Tracked>(alive);
  const Value& same = value;
  value = same;
  EXPECT_EQ(alive, 1);
  EXPECT_TRUE(value.object()->isUniquelyReferenced());
}

// Looks at a value while it ends itself.
class Witness final : public NSObject {
 public:
  Witness(const Value& watched, std::string& seen) : watched_(watched), seen_(seen) {}
  ~Witness() override { seen_ = watched_.description(); }

 private:
  const Value& watched_;
  std::string& seen_;
};

TEST(Value, MayBeAssignedToItself) {
  int alive = 0;
  {
    Value value = makeRef<Tracked>(alive);
    Value& same = value;
    value = same;
    value = std::move(same);
    EXPECT_EQ(alive, 1);
    EXPECT_TRUE(value.object()->isUniquelyReferenced());
  }
  EXPECT_EQ(alive, 0);
}

TEST(Value, IsAlreadyChangedWhenItsOldObjectEnds) {
  Value value;
  std::string seen;
  value = makeRef<Witness>(value, seen);
  value = "new";
  EXPECT_EQ(seen, "new");
}

TEST(Value, GivesAndTakesItsReferenceAsARawPair) {
  int alive = 0;
  Value value = makeRef<Tracked>(alive);
  const RawValue raw = value.leak();
  EXPECT_TRUE(value.isAbsent());
  EXPECT_EQ(alive, 1);
  {
    const Value owner = Value::adopt(raw);
    const Value further = Value::retaining(owner.peek());
    EXPECT_FALSE(owner.object()->hasOneReference());
    const Value lent = Value::adopt(owner.peek());
    EXPECT_EQ(lent.object(), owner.object());
  }
  EXPECT_EQ(alive, 0);
  EXPECT_EQ(Value::retaining(RawValue::real(2.5)).doubleValue(), 2.5);
}

TEST(Value, FindsItsObjectByClass) {
  const Value list = NSArray::arrayWithObjects({1});
  EXPECT_NE(list.as<NSArray>(), nullptr);
  EXPECT_EQ(list.as<NSMutableArray>(), nullptr);
  EXPECT_EQ(list.ref<NSArray>().get(), list.as<NSArray>());
  EXPECT_EQ(list.ref<NSSet>(), nullptr);
  EXPECT_EQ(Value(1).as<NSArray>(), nullptr);
  EXPECT_EQ(Value("a").string()->view(), "a");
  EXPECT_EQ(Value(1).string(), nullptr);
  EXPECT_EQ(list.string(), nullptr);
}

struct EqualityRow {
  const char* what;
  Value left;
  Value right;
  bool equal;
};

TEST(Value, EqualsByContents) {
  const Value list = NSArray::arrayWithObjects({1});
  int alive = 0;
  const Value host = makeRef<Tracked>(alive);
  const EqualityRow rows[] = {
      {"null and null", Value::null(), Value::null(), true},
      {"nothing and nothing", {}, {}, true},
      {"nothing and null", {}, Value::null(), false},
      {"null and 0", Value::null(), 0, false},
      {"null and the empty text", Value::null(), "", false},
      {"1 and 1.0", 1, 1.0, true},
      {"1 and true", 1, true, true},
      {"0 and false", 0, false, true},
      {"1 and the text 1", 1, "1", false},
      {"zero and minus zero", 0.0, -0.0, true},
      {"not-a-number and itself", kNotANumber, kNotANumber, false},
      {"equal texts", "abc", "abc", true},
      {"texts of other case", "abc", "Abc", false},
      {"composed and decomposed", "\u00e9", "e\u0301", false},
      {"texts up to a NUL", std::string_view("a\0b", 3), std::string_view("a\0c", 3), false},
      {"a text and its beginning", "abc", "ab", false},
      {"equal lists", list, NSArray::arrayWithObjects({1.0}), true},
      {"lists of other order", NSArray::arrayWithObjects({1, 2}), NSArray::arrayWithObjects({2, 1}), false},
      {"a list and its beginning", NSArray::arrayWithObjects({1, 2}), list, false},
      {"lists of not-a-number", NSArray::arrayWithObjects({kNotANumber}), NSArray::arrayWithObjects({kNotANumber}),
       false},
      {"a list and a set", list, NSSet::setWithObjects({1}), false},
      {"a set and a list", NSSet::setWithObjects({1}), list, false},
      {"a dictionary and a list", NSDictionary::dictionary(), NSArray::array(), false},
      {"a mutable and a plain list", NSMutableArray::array(), NSArray::array(), true},
      {"a list and a text", list, "(\n    1\n)", false},
      {"dates of one instant", NSDate::dateWithTimeIntervalSince1970(7), NSDate::dateWithTimeIntervalSince1970(7),
       true},
      {"dates", NSDate::dateWithTimeIntervalSince1970(7), NSDate::dateWithTimeIntervalSince1970(7.5), false},
      {"a date and its number", NSDate::dateWithTimeIntervalSince1970(7), 7, false},
      {"a date and a text", NSDate::dateWithTimeIntervalSince1970(7), "7", false},
      {"one pattern twice", KorRegex::compileExpression("a+"), KorRegex::compileExpression("a+"), true},
      {"two patterns", KorRegex::compileExpression("a+"), KorRegex::compileExpression("a"), false},
      {"a pattern and its text", KorRegex::compileExpression("a"), "a", false},
      {"a host's object and itself", host, host, true},
      {"two objects of a host", host, makeRef<Tracked>(alive), false},
      {"objects whose class compares them", makeRef<Named>("x"), makeRef<Named>("x"), true},
      {"growing texts of equal letters", NSMutableString::mutableString(), NSMutableString::mutableString(), false},
  };
  for (const EqualityRow& row : rows) {
    EXPECT_EQ(row.left.isEqual(row.right), row.equal) << row.what;
    EXPECT_EQ(row.right.isEqual(row.left), row.equal) << row.what;
    if (row.equal) {
      EXPECT_EQ(row.left.hash(), row.right.hash()) << row.what;
    }
  }
}

struct OrderRow {
  const char* what;
  Value left;
  Value right;
  std::optional<bool> less;
  std::optional<bool> greater;
};

TEST(Value, OrdersNumbersTextsDatesAndWhatAHostOrders) {
  const Value early = NSDate::dateWithTimeIntervalSince1970(-1);
  const Value late = NSDate::dateWithTimeIntervalSince1970(0);
  const OrderRow rows[] = {
      {"1 and 2", 1, 2, true, false},
      {"2 and 1.5", 2, 1.5, false, true},
      {"equal numbers", 1, 1.0, false, false},
      {"true and 0", true, 0, false, true},
      {"not-a-number", kNotANumber, 1, false, false},
      {"a and b", "a", "b", true, false},
      {"Z and a", "Z", "a", true, false},
      {"a text and its beginning", "ab", "a", false, true},
      {"equal texts", "a", "a", false, false},
      {"U+FFFF and U+10000, by code point", "\uffff", "\U00010000", true, false},
      {"dates", early, late, true, false},
      {"dates the other way", late, early, false, true},
      {"objects that a host orders", makeRef<Named>("a"), makeRef<Named>("b"), true, false},
      {"a number and a text", 1, "1", {}, {}},
      {"a text and a number", "1", 1, {}, {}},
      {"a date and a number", early, 1, {}, {}},
      {"a number and a date", 1, early, {}, {}},
      {"a date and null", early, Value::null(), {}, {}},
      {"null and null", Value::null(), Value::null(), {}, {}},
      {"nothing", {}, 1, {}, {}},
      {"lists", NSArray::array(), NSArray::array(), {}, {}},
      {"dictionaries", NSDictionary::dictionary(), NSDictionary::dictionary(), {}, {}},
      {"sets", NSSet::setWithObjects({}), NSSet::setWithObjects({}), {}, {}},
      {"patterns", KorRegex::compileExpression("a"), KorRegex::compileExpression("b"), {}, {}},
  };
  for (const OrderRow& row : rows) {
    EXPECT_EQ(row.left.isLessThan(row.right), row.less) << row.what;
    EXPECT_EQ(row.left.isGreaterThan(row.right), row.greater) << row.what;
  }
}

struct ReadingRow {
  const char* what;
  Value value;
  double real;
  std::int32_t narrow;
  std::int64_t wide;
  bool truth;
};

TEST(Value, ReadsAsANumber) {
  const ReadingRow rows[] = {
      {"true", true, 1, 1, 1, true},
      {"a double", -2.75, -2.75, -2, -2, true},
      {"a wide integer", std::int64_t{1} << 32, 4294967296.0, 0, std::int64_t{1} << 32, true},
      {"a small fraction", 0.25, 0.25, 0, 0, true},
      {"minus zero", -0.0, 0, 0, 0, false},
      {"a text", " 12.5kg", 12.5, 12, 12, true},
      {"the text 0", "0", 0, 0, 0, false},
      {"yes", "yes", 0, 0, 0, true},
      {"null", Value::null(), 0, 0, 0, false},
      {"nothing", {}, 0, 0, 0, false},
      {"a list", NSArray::arrayWithObjects({5}), 0, 0, 0, false},
  };
  for (const ReadingRow& row : rows) {
    EXPECT_EQ(row.value.doubleValue(), row.real) << row.what;
    EXPECT_EQ(row.value.intValue(), row.narrow) << row.what;
    EXPECT_EQ(row.value.integerValue(), row.wide) << row.what;
    EXPECT_EQ(row.value.boolValue(), row.truth) << row.what;
  }
}

TEST(Value, RefusesTextThatIsNoUTF8) {
  EXPECT_EQ(raised([] { (void)Value("ab\xff"); }),
            "NSInvalidArgumentException: Text is not valid UTF-8 at byte offset 2");
}

TEST(Ref, IsTheSameOnlyForTheSameObject) {
  const Ref<NSArray> list = NSArray::array();
  const Ref<NSArray> same = list;
  EXPECT_TRUE(list == same);
  EXPECT_FALSE(list == NSArray::array());
  EXPECT_TRUE(Ref<NSArray>() == nullptr);
  EXPECT_FALSE(static_cast<bool>(Ref<NSArray>()));
  EXPECT_EQ((*list).count(), 0U);
}

TEST(Ref, MovesToItsBaseWithoutCounting) {
  Ref<NSMutableArray> list = NSMutableArray::array();
  const Ref<NSArray> base = std::move(list);
  EXPECT_TRUE(list == nullptr);  // NOLINT(bugprone-use-after-move): that is what is tested
  EXPECT_TRUE(base->isUniquelyReferenced());
  const Ref<NSObject> further = base;
  EXPECT_FALSE(base->hasOneReference());
  EXPECT_TRUE(Ref<NSObject>::retaining(nullptr) == nullptr);
}

TEST(NSObject, HasIdentityNoOrderNoKeysAndNoElementsUnlessItsClassSaysOtherwise) {
  int alive = 0;
  const Ref<Tracked> object = makeRef<Tracked>(alive);
  const Value value = object;
  EXPECT_STREQ(object->className(), "NSObject");
  EXPECT_EQ(object->hash(), object->hash());
  EXPECT_EQ(object->isLessThan(value), std::nullopt);
  EXPECT_EQ(object->isGreaterThan(value), std::nullopt);
  EXPECT_TRUE(object->objectEnumerator() == nullptr);
  EXPECT_FALSE(object->canBeShared());
  EXPECT_EQ(object->kind(), ObjectKind::Other);
  EXPECT_EQ(raisedName([&] { (void)object->valueForKey(*NSString::stringWithUTF8("name")); }),
            "NSUndefinedKeyException");
}

TEST(ANullPointer, IsTheNullObjectAndNoName) {
  const char* const constant = nullptr;
  char* const changeable = nullptr;
  for (const Value& value : {Value(constant), Value(changeable), Value(nullptr)}) {
    EXPECT_TRUE(value.isNull());
    EXPECT_FALSE(value.isAbsent());
  }
  EXPECT_TRUE(Name(constant).isAbsent());
  EXPECT_TRUE(Name(changeable).isAbsent());
  EXPECT_TRUE(Selector(constant).isAbsent());
  EXPECT_TRUE(Selector(changeable).isAbsent());
}

TEST(AnEmptyText, WithoutBytesIsAName) {
  EXPECT_EQ(Name(std::string_view()), Name(""));
  EXPECT_FALSE(Name(std::string_view()).isAbsent());
}

}  // namespace

}  // namespace tavlo::test
