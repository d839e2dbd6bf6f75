#include <gtest/gtest.h>

#include <array>
#include <string>

#include "Foundation/HostClass.h"
#include "Foundation/NSArray.h"
#include "Foundation/NSDictionary.h"
#include "Foundation/NSSet.h"
#include "Tests/Foundation/HostShop.h"
#include "Tests/Foundation/Raised.h"

namespace tavlo::test {

namespace {

TEST(HostClass, AnswersEveryKindOfProperty) {
  Maker maker("Acme");
  Product product{.name = "Lamp", .price = 9.5, .stock = 3, .tags = {"new", "red"}, .note = {}, .maker = &maker};
  const Value value = hostReference(product);
  struct Row {
    const char* path;
    Value expected;
  };
  const Row rows[] = {
      {"name", "Lamp"},
      {"price", 9.5},
      {"stock", 3},
      {"note", NSNull::null()},
      {"code", "L"},
      {"isCheap", true},
      {"label", "Lamp!"},
      {"maker.name", "Acme"},
      {"maker.founded", 1900},
      {"tags", NSArray::arrayWithObjects({"new", "red"})},
      {"tags.@count", 2},
      {"tags.length", NSArray::arrayWithObjects({3, 3})},
      {"reads", 1},
  };
  for (const Row& row : rows) EXPECT_TRUE(read(value, row.path).isEqual(row.expected)) << row.path;
}

TEST(HostClass, ReadsWhatTheObjectIsAtThatMoment) {
  Product product{.name = "Lamp"};
  const Value value = hostReference(product);
  const Value tags = read(value, "tags");
  product.name = "Chair";
  product.note = "late";
  product.tags.emplace_back("old");
  EXPECT_EQ(read(value, "name").description(), "Chair");
  EXPECT_EQ(read(value, "note").description(), "late");
  EXPECT_EQ(read(tags, "@count").intValue(), 1);
  product.maker = nullptr;
  EXPECT_TRUE(read(value, "maker").isNull());
}

TEST(HostClass, DoesNotKnowOtherKeys) {
  Product product;
  const Value value = hostReference(product);
  for (const char* key : {"Name", "names", "", "nam", "@count"}) {
    Value found;
    EXPECT_FALSE(findValueForKey(value, *NSString::stringWithUTF8(key), found)) << key;
  }
  EXPECT_EQ(raised([&] { (void)read(value, "color"); }),
            "NSUndefinedKeyException: Product has no value for the key \"color\"");
  EXPECT_EQ(raised([&] { (void)value.object()->valueForKey(*NSString::stringWithUTF8("color")); }),
            "NSUndefinedKeyException: Product has no value for the key \"color\"");
}

TEST(HostClass, InheritsWhatItDoesNotSayItself) {
  YoungMaker maker("Nova");
  const Value value = hostReference(maker);
  EXPECT_STREQ(value.className(), "YoungMaker");
  EXPECT_EQ(read(value, "name").description(), "Nova");
  EXPECT_EQ(read(value, "founded").intValue(), 2020);
  EXPECT_TRUE(read(value, "isListed").isBoolean());
}

struct Engine {
  int power = 100;
  int serial = 1;
};
struct Body {
  int doors = 4;
  int serial = 2;
};
struct Car : Engine, Body {
  int seats = 5;
};

void describeHostClass(HostClass<Engine>& engine) {
  engine.name("Engine").property("power", &Engine::power).property("serial", &Engine::serial);
  engine.lessThan([](const Engine& left, const Engine& right) { return left.power < right.power; });
  engine.equal([](const Engine& left, const Engine& right) { return left.power == right.power; },
               [](const Engine& each) { return static_cast<std::size_t>(each.power); });
  engine.description([](const Engine& each) { return "engine of " + std::to_string(each.power); });
}
void describeHostClass(HostClass<Body>& body) {
  body.name("Body").property("doors", &Body::doors).property("serial", &Body::serial);
  body.description([](const Body& each) { return "body with " + std::to_string(each.doors); });
}
void describeHostClass(HostClass<Car>& car) {
  car.name("Car").property("seats", &Car::seats).inherits<Engine>().inherits<Body>();
}

TEST(HostClass, InheritsFromSeveralBasesOfWhichTheLaterComesFirst) {
  Car car;
  const Value value = hostReference(car);
  EXPECT_EQ(read(value, "power").intValue(), 100);
  EXPECT_EQ(read(value, "doors").intValue(), 4);
  EXPECT_EQ(read(value, "serial").intValue(), 2);
  EXPECT_EQ(read(value, "seats").intValue(), 5);
  EXPECT_EQ(value.description(), "body with 4");
  EXPECT_EQ(hostObject<Body>(value), &car);
  EXPECT_EQ(hostObject<Engine>(value), &car);
  std::string keys;
  for (const Ref<NSString>& key : hostClass<Car>().table().keys()) keys += std::string(key->view()) + " ";
  EXPECT_EQ(keys, "power serial doors seats ");
}

TEST(HostClass, ComparesByTheOrderAndTheEqualityThatItOrABaseHas) {
  Engine weak{.power = 50};
  Engine strong{.power = 100};
  Car car;
  const Value weakValue = hostReference(weak);
  const Value strongValue = hostReference(strong);
  const Value carValue = hostReference(car);
  EXPECT_EQ(weakValue.isLessThan(strongValue), true);
  EXPECT_EQ(strongValue.isLessThan(weakValue), false);
  EXPECT_EQ(carValue.isLessThan(strongValue), false);
  EXPECT_EQ(weakValue.isLessThan(carValue), true);
  EXPECT_EQ(weakValue.isLessThan(5), std::nullopt);
  EXPECT_EQ(weakValue.isLessThan(Value()), std::nullopt);
  EXPECT_EQ(weakValue.isGreaterThan(strongValue), std::nullopt);
  EXPECT_TRUE(carValue.isEqual(strongValue));
  EXPECT_TRUE(strongValue.isEqual(carValue));
  EXPECT_EQ(strongValue.hash(), carValue.hash());
  EXPECT_NE(strongValue.hash(), weakValue.hash());
  EXPECT_FALSE(weakValue.isEqual(strongValue));
  EXPECT_FALSE(weakValue.isEqual(50));
  EXPECT_EQ(NSSet::setWithObjects({weakValue, strongValue, carValue})->count(), 2U);
}

struct Version {
  int number;
};
void describeHostClass(HostClass<Version>& version) {
  version.name("Version");
  version.lessThan([](const Version& each, const Value& other) -> std::optional<bool> {
    if (!other.isNumber()) return {};
    return each.number < other.intValue();
  });
  version.greaterThan([](const Version& left, const Version& right) { return left.number > right.number; });
}

TEST(HostClass, MayOrderItsObjectsAmongOtherValues) {
  Version two{2};
  Version three{3};
  EXPECT_EQ(hostReference(two).isLessThan(3), true);
  EXPECT_EQ(hostReference(two).isLessThan(1), false);
  EXPECT_EQ(hostReference(two).isLessThan("3"), std::nullopt);
  EXPECT_EQ(hostReference(three).isGreaterThan(hostReference(two)), true);
  EXPECT_EQ(hostReference(three).isGreaterThan(2), std::nullopt);
}

struct Release : Version {};
void describeHostClass(HostClass<Release>& release) {
  release.name("Release").inherits<Version>();
}
struct Draft : Version {};
void describeHostClass(HostClass<Draft>& draft) {
  draft.name("Draft").inherits<Version>();
  draft.lessThan([](const Draft& left, const Draft& right) { return left.number <= right.number; });
  draft.greaterThan([](const Draft& /*left*/, const Draft& /*right*/) { return false; });
}

TEST(HostClass, InheritsAnOrderThatItHasNotItself) {
  Version two{2};
  Release three{{3}};
  Draft draft{{3}};
  Draft older{{2}};
  EXPECT_EQ(hostReference(three).isGreaterThan(hostReference(two)), true);
  EXPECT_EQ(hostReference(two).isGreaterThan(hostReference(three)), false);
  EXPECT_EQ(hostReference(three).isLessThan(3), false);
  EXPECT_EQ(hostReference(three).isLessThan(4), true);
  EXPECT_EQ(hostReference(draft).isGreaterThan(hostReference(older)), false);
  EXPECT_EQ(hostReference(draft).isLessThan(hostReference(draft)), true);
}

TEST(HostClass, WithoutAnEqualityHasOneValueForAnObject) {
  Maker maker("Acme");
  Product first{.name = "Lamp", .maker = &maker};
  Product second{.name = "Lamp", .maker = &maker};
  EXPECT_TRUE(hostReference(first).isEqual(hostReference(first)));
  EXPECT_EQ(hostReference(first).hash(), hostReference(first).hash());
  EXPECT_FALSE(hostReference(first).isEqual(hostReference(second)));
  EXPECT_NE(hostReference(first).hash(), hostReference(second).hash());
  EXPECT_TRUE(read(hostReference(first), "maker").isEqual(read(hostReference(second), "maker")));
  YoungMaker young("Nova");
  Maker& asBase = young;
  EXPECT_TRUE(hostReference(young).isEqual(hostReference(asBase)));
  EXPECT_TRUE(hostReference(asBase).isEqual(hostReference(young)));
  EXPECT_EQ(hostReference(asBase).hash(), hostReference(young).hash());
}

struct Door {
  Version lock;
};
void describeHostClass(HostClass<Door>& door) {
  door.name("Door").property("lock", &Door::lock);
}

TEST(HostClass, TellsAnObjectFromItsFirstMember) {
  Door door{{1}};
  const Value value = hostReference(door);
  EXPECT_FALSE(value.isEqual(read(value, "lock")));
  EXPECT_FALSE(read(value, "lock").isEqual(value));
  EXPECT_TRUE(value.description().starts_with("<Door: 0x")) << value.description();
}

class Counter final : public NSEnumerator {
 public:
  explicit Counter(int last) : last_(last) {}
  Value nextObject() override { return next_ <= last_ ? Value(next_++) : Value(); }

 private:
  int next_ = 1;
  int last_;
};

struct Shelf {
  std::vector<Product> products;
};
struct Ladder {
  int steps;
};
void describeHostClass(HostClass<Shelf>& shelf) {
  shelf.name("Shelf").elements(&Shelf::products);
}
void describeHostClass(HostClass<Ladder>& ladder) {
  ladder.name("Ladder").elements([](const Ladder& each) { return makeRef<Counter>(each.steps); });
}

struct WideShelf : Shelf {};
void describeHostClass(HostClass<WideShelf>& shelf) {
  shelf.name("WideShelf").inherits<Shelf>();
}

// What a walk over the value meets, by "name" where that is one.
std::string elementsOf(const Value& value, const char* key) {
  const Ref<NSEnumerator> walk = value.object()->objectEnumerator();
  if (walk == nullptr) return "none";
  std::string names;
  for (Value each = walk->nextObject(); !each.isAbsent(); each = walk->nextObject()) {
    names += (each.isNumber() ? each : read(each, key)).description() + " ";
  }
  return names;
}

TEST(HostClass, MayBeEnumerated) {
  Shelf shelf{{Product{.name = "Lamp"}, Product{.name = "Chair"}}};
  Ladder ladder{3};
  Product product;
  WideShelf wide{shelf};
  EXPECT_EQ(elementsOf(hostReference(shelf), "name"), "Lamp Chair ");
  EXPECT_EQ(elementsOf(hostReference(wide), "name"), "Lamp Chair ");
  EXPECT_EQ(elementsOf(hostReference(ladder), "name"), "1 2 3 ");
  EXPECT_EQ(elementsOf(hostReference(product), "name"), "none");
}

struct Nameless {};
struct EmptyName {};
struct Twice {
  int n = 0;
};
struct EmptyKey {
  int n = 0;
};
struct DottedKey {
  int n = 0;
};
struct InvalidName {};
struct Selfish {};
struct Friendly {};
void describeHostClass(HostClass<Nameless>& /*description*/) {}
void describeHostClass(HostClass<EmptyName>& description) {
  description.name("");
}
void describeHostClass(HostClass<Twice>& description) {
  description.name("Twice").property("n", &Twice::n).property("n", &Twice::n);
}
void describeHostClass(HostClass<EmptyKey>& description) {
  description.name("EmptyKey").property("", &EmptyKey::n);
}
void describeHostClass(HostClass<DottedKey>& description) {
  description.name("DottedKey").property("a.b", &DottedKey::n);
}
void describeHostClass(HostClass<InvalidName>& description) {
  description.name("a\xff");
}

void describeHostClass(HostClass<Selfish>& description) {
  const Value own = hostCopy(Selfish());
  description.name("Selfish").property("own", [own](const Selfish&) { return own; });
}
void describeHostClass(HostClass<Friendly>& description) {
  const Value own = hostCopy(Selfish());
  description.name("Friendly").property("own", [own](const Friendly&) { return own; });
}

template <class T>
std::string descriptionFault() {
  const std::string first = raised([] { (void)hostClass<T>(); });
  EXPECT_EQ(raised([] { (void)hostClass<T>(); }), first);  // every time
  return first;
}

// A function of the description that is a null pointer.
enum class AbsentFunction { Getter, Member, Field, Less, Text, Equal, Hash, Elements, Method };
template <AbsentFunction>
struct Lacking {
  int n = 0;
};
template <AbsentFunction Absent>
void describeHostClass(HostClass<Lacking<Absent>>& description) {
  using Self = Lacking<Absent>;
  constexpr auto kEqual = [](const Self& one, const Self& other) { return one.n == other.n; };
  constexpr auto kHash = [](const Self& it) { return static_cast<std::size_t>(it.n); };
  description.name("Lacking");
  if (Absent == AbsentFunction::Getter) description.property("n", static_cast<int (*)(const Self&)>(nullptr));
  if (Absent == AbsentFunction::Member) description.property("n", static_cast<int (Self::*)() const>(nullptr));
  if (Absent == AbsentFunction::Field) description.property("n", static_cast<int Self::*>(nullptr));
  if (Absent == AbsentFunction::Less) description.lessThan(static_cast<bool (*)(const Self&, const Self&)>(nullptr));
  if (Absent == AbsentFunction::Text) description.description(static_cast<std::string (*)(const Self&)>(nullptr));
  if (Absent == AbsentFunction::Equal) {
    description.equal(static_cast<bool (*)(const Self&, const Self&)>(nullptr), kHash);
  }
  if (Absent == AbsentFunction::Hash) description.equal(kEqual, static_cast<std::size_t (*)(const Self&)>(nullptr));
  if (Absent == AbsentFunction::Elements) {
    description.elements(static_cast<std::vector<int> (*)(const Self&)>(nullptr));
  }
  if (Absent == AbsentFunction::Method) description.method("go:", static_cast<int (*)(Self&, int)>(nullptr));
}

TEST(HostClass, RefusesFunctionsThatAreNullPointers) {
  const auto fault = [](const char* name) {
    return std::string("NSInternalInconsistencyException: Invalid parameter not satisfying: ") + name + " != nil";
  };
  EXPECT_EQ(descriptionFault<Lacking<AbsentFunction::Getter>>(), fault("getter"));
  EXPECT_EQ(descriptionFault<Lacking<AbsentFunction::Member>>(), fault("getter"));
  EXPECT_EQ(descriptionFault<Lacking<AbsentFunction::Field>>(), fault("getter"));
  EXPECT_EQ(descriptionFault<Lacking<AbsentFunction::Less>>(), fault("compare"));
  EXPECT_EQ(descriptionFault<Lacking<AbsentFunction::Text>>(), fault("text"));
  EXPECT_EQ(descriptionFault<Lacking<AbsentFunction::Equal>>(), fault("equal"));
  EXPECT_EQ(descriptionFault<Lacking<AbsentFunction::Hash>>(), fault("hash"));
  EXPECT_EQ(descriptionFault<Lacking<AbsentFunction::Elements>>(), fault("elements"));
  EXPECT_EQ(descriptionFault<Lacking<AbsentFunction::Method>>(), fault("function"));
}

TEST(HostClass, SaysWhatIsWrongInADescription) {
  EXPECT_EQ(descriptionFault<Nameless>(),
            "NSInvalidArgumentException: The description of the host class tavlo::test::(anonymous "
            "namespace)::Nameless gives it no name");
  EXPECT_EQ(descriptionFault<EmptyName>(),
            "NSInvalidArgumentException: The name in the description of the host class tavlo::test::(anonymous "
            "namespace)::EmptyName is empty");
  EXPECT_EQ(descriptionFault<Twice>(),
            "NSInvalidArgumentException: The description of the host class tavlo::test::(anonymous namespace)::Twice "
            "has two properties named \"n\"");
  EXPECT_EQ(descriptionFault<EmptyKey>(),
            "NSInvalidArgumentException: The description of the host class tavlo::test::(anonymous "
            "namespace)::EmptyKey has a property \"\": a key has one character at least, and no \".\", which parts "
            "keys");
  EXPECT_EQ(descriptionFault<DottedKey>(),
            "NSInvalidArgumentException: The description of the host class tavlo::test::(anonymous "
            "namespace)::DottedKey has a property \"a.b\": a key has one character at least, and no \".\", which "
            "parts keys");
  const std::string selfish =
      "NSInvalidArgumentException: The description of the host class tavlo::test::(anonymous namespace)::Selfish makes "
      "a value of that class, or another's does";
  EXPECT_EQ(descriptionFault<Selfish>(), selfish);
  EXPECT_EQ(descriptionFault<Friendly>(), selfish);
  EXPECT_TRUE(descriptionFault<InvalidName>().starts_with("NSInvalidArgumentException: ")) << "a byte that is no UTF-8";
}

TEST(HostClass, FindsEachOfManyProperties) {
  HostClassTable table(typeid(int));
  table.setName("Many");
  for (int number = 0; number < 200; ++number) {
    table.addProperty("key" + std::to_string(number),
                      std::make_unique<PropertyByGetter<Version, int Version::*>>(&Version::number));
  }
  table.complete();
  for (int number = 0; number < 200; ++number) {
    EXPECT_NE(table.find(*NSString::stringWithUTF8("key" + std::to_string(number))), nullptr) << number;
  }
  EXPECT_EQ(table.find(*NSString::stringWithUTF8("key200")), nullptr);
}

}  // namespace

}  // namespace tavlo::test
