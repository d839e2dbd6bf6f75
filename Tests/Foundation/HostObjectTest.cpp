#include <gtest/gtest.h>

#include <functional>
#include <list>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <tuple>
#include <utility>
#include <variant>
#include <vector>

#include "Foundation/HostObject.h"
#include "Foundation/LentValue.h"
#include "Foundation/NSArray.h"
#include "Foundation/NSDictionary.h"
#include "Foundation/NSKeyValueCoding.h"
#include "Tests/Foundation/HostShop.h"
#include "Tests/Foundation/Raised.h"
#include "Tests/Foundation/SmallStack.h"

namespace tavlo::test {

namespace {

struct Part {
  explicit Part(int& alive) : alive_(&alive) { ++*alive_; }
  Part(const Part& other) : alive_(other.alive_) { ++*alive_; }
  Part& operator=(const Part&) = delete;
  ~Part() { --*alive_; }

  int number = 7;

 private:
  int* alive_;
};

// A view that does not say that it is one.
template <class T>
struct Window {
  const T* begin() const { return first; }
  const T* end() const { return first + 1; }
  std::size_t size() const { return 1; }
  const T& operator[](std::size_t index) const { return first[index]; }
  const T* first;
};

struct Whole {
  explicit Whole(int& alive) : part(alive), parts(2, part), shared(std::make_shared<Part>(alive)), alive_(&alive) {
    unique = std::make_unique<Part>(alive);
    byName.emplace("one", part);
  }

  Part part;
  std::vector<Part> parts;
  std::shared_ptr<Part> shared;
  std::unique_ptr<Part> unique;
  std::map<std::string, Part> byName;

  const Part& constantPart() const { return part; }
  Part copy() const { return part; }
  std::unique_ptr<Part> fresh() const { return std::make_unique<Part>(*alive_); }
  std::vector<Part> freshOnes() const { return std::vector<Part>(3, part); }
  std::span<const Part> view() const { return parts; }
  std::reference_wrapper<const Part> wrapped() const { return part; }
  std::vector<std::tuple<const Part&, int>> numbered() const { return {{part, 1}}; }
  std::vector<std::pair<int, const Part&>> paired() const { return {{1, part}}; }
  Window<Part> window() const { return {&part}; }
  std::shared_ptr<Window<int>> sharedWindow() const { return std::make_shared<Window<int>>(Window<int>{&part.number}); }

 private:
  int* alive_;
};

void describeHostClass(HostClass<Part>& part) {
  part.name("Part").property("number", &Part::number).canBeShared();
}
void describeHostClass(HostClass<Whole>& whole) {
  whole.name("Whole")
      .property("part", &Whole::part)
      .property("parts", &Whole::parts)
      .property("shared", &Whole::shared)
      .property("unique", &Whole::unique)
      .property("byName", &Whole::byName)
      .property("constantPart", &Whole::constantPart)
      .property("copy", &Whole::copy)
      .property("fresh", &Whole::fresh)
      .property("freshOnes", &Whole::freshOnes)
      .property("view", &Whole::view)
      .property("wrapped", &Whole::wrapped)
      .property("numbered", &Whole::numbered)
      .property("paired", &Whole::paired)
      .property("window", &Whole::window)
      .property("sharedWindow", &Whole::sharedWindow);
}

struct RestOfPathRow {
  const char* property;
  const char* restOfPath;  // from the property to a number, or a list of numbers
};

const RestOfPathRow kPaths[] = {
    {"part", "number"},           {"parts", "@max.number"},   {"shared", "number"},  {"unique", "number"},
    {"byName", "one.number"},     {"constantPart", "number"}, {"copy", "number"},    {"fresh", "number"},
    {"freshOnes", "@min.number"}, {"view", "@max.number"},    {"wrapped", "number"},
};

TEST(HostObject, KeepsItsOwnerForAsLongAsAPartOfItIsHeld) {
  for (const RestOfPathRow& row : kPaths) {
    int alive = 0;
    {
      Value part = read(hostShared(std::make_shared<Whole>(alive)), row.property);
      EXPECT_EQ(read(part, row.restOfPath).intValue(), 7) << row.property;
      EXPECT_GT(alive, 0) << row.property;
    }
    EXPECT_EQ(alive, 0) << row.property;
  }
}

TEST(HostObject, KeepsItsOwnerForAsLongAsAListOfReferencesToAPartOfItIsHeld) {
  for (const char* const property : {"numbered", "paired", "window", "sharedWindow"}) {
    int alive = 0;
    Value list = read(hostShared(std::make_shared<Whole>(alive)), property);
    EXPECT_GT(alive, 0) << property;
    list.clear();
    EXPECT_EQ(alive, 0) << property;
  }
}

// Nobody keeps what such an answer owns, and it cannot be taken out.
static_assert(HostResult<std::unique_ptr<Part>> && HostResult<const std::unique_ptr<Part>&>);
static_assert(!HostResult<const std::unique_ptr<Part>>);
static_assert(!HostResult<const std::optional<std::unique_ptr<Part>>>);
static_assert(HostResult<const std::shared_ptr<Part>> && HostResult<const std::optional<Part>>);

TEST(HostObject, ThatStaysTheHostsIsNotCopied) {
  int alive = 0;
  Whole whole(alive);
  const int before = alive;
  const Value value = hostReference(whole);
  for (const char* property : {"part", "parts", "shared", "unique", "byName", "constantPart", "view", "wrapped"}) {
    const Value held = read(value, property);
    EXPECT_EQ(alive, before) << property;
  }
  whole.part.number = 8;
  EXPECT_EQ(read(value, "constantPart.number").intValue(), 8);
  EXPECT_EQ(read(value, "wrapped.number").intValue(), 8);
  whole.unique = nullptr;
  whole.shared = nullptr;
  EXPECT_TRUE(read(value, "unique").isNull());
  EXPECT_TRUE(read(value, "shared").isNull());
}

// It has an address of its own to tell.
struct Proxy {
  int number = 7;

  Proxy* operator&() { return nullptr; }              // NOLINT(google-runtime-operator)
  const Proxy* operator&() const { return nullptr; }  // NOLINT(google-runtime-operator)
};

struct Proxies {
  Proxy one;
  std::vector<Proxy> many{2};
};

void describeHostClass(HostClass<Proxy>& proxy) {
  proxy.name("Proxy").property("number", &Proxy::number);
}
void describeHostClass(HostClass<Proxies>& proxies) {
  proxies.name("Proxies").property("one", &Proxies::one).property("many", &Proxies::many);
}

TEST(HostObject, IsFoundWhereItIsWhateverItsAddressOperatorSays) {
  Proxy proxy;
  Proxies proxies;
  EXPECT_EQ(read(hostReference(proxy), "number").intValue(), 7);
  EXPECT_EQ(read(hostCopy(proxy), "number").intValue(), 7);
  for (const Value& value : {hostReference(proxies), hostCopy(proxies), hostShared(std::make_shared<Proxies>())}) {
    EXPECT_EQ(read(value, "one.number").intValue(), 7);
    EXPECT_EQ(read(value, "many.@sum.number").intValue(), 14);
  }
  proxies.one.number = 8;
  EXPECT_EQ(read(hostReference(proxies), "one.number").intValue(), 8);
}

TEST(HostObject, IsOwnedAsItWasGiven) {
  int alive = 0;
  {
    const Value owned = hostOwned(std::make_unique<Part>(alive));
    const auto shared = std::make_shared<Part>(alive);
    const Value together = hostShared(shared);
    const Value copied = hostCopy(*shared);
    EXPECT_EQ(alive, 3);
    EXPECT_EQ(shared.use_count(), 2);
    EXPECT_EQ(hostOwner<Part>(together), shared);
    EXPECT_NE(hostOwner<Part>(copied), nullptr);
    EXPECT_EQ(hostOwner<Part>(hostReference(*shared)), nullptr);
    EXPECT_EQ(read(owned, "number").intValue(), 7);
  }
  EXPECT_EQ(alive, 0);
  EXPECT_TRUE(hostShared(std::shared_ptr<Part>()).isAbsent());
  EXPECT_TRUE(hostOwned(std::unique_ptr<Part>()).isAbsent());
}

TEST(HostObject, IsFoundAsItsClassAndAsEveryClassThatThatInherits) {
  YoungMaker young("Nova");
  Maker maker("Acme");
  Product product;
  EXPECT_EQ(hostObject<YoungMaker>(hostReference(young)), &young);
  EXPECT_EQ(hostObject<Maker>(hostReference(young)), &young);
  EXPECT_EQ(hostObject<const Maker>(hostReference(young)), &young);
  EXPECT_EQ(hostObject<YoungMaker>(hostReference(maker)), nullptr);
  EXPECT_EQ(hostObject<Product>(hostReference(maker)), nullptr);
  const Value none[] = {Value(), NSNull::null(), 1, "a", NSArray::array()};
  for (const Value& value : none) EXPECT_EQ(hostObject<Product>(value), nullptr) << value.description();
}

TEST(HostObject, OfAConstantIsNeverGivenOutToBeChanged) {
  const Product product{.name = "Lamp"};
  const Value value = hostReference(product);
  EXPECT_EQ(hostObject<Product>(value), nullptr);
  EXPECT_EQ(hostObject<const Product>(value), &product);
  EXPECT_EQ(read(value, "name").description(), "Lamp");
  EXPECT_EQ(raised([&] { (void)read(value, "reads"); }),
            "NSInvalidArgumentException: A property of Product cannot be read: its getter changes the object, which "
            "the host gave as a constant");
  EXPECT_EQ(hostObject<Maker>(read(value, "maker")), nullptr);  // null
  int alive = 0;
  const Whole whole(alive);
  EXPECT_EQ(hostObject<Part>(read(hostReference(whole), "part")), nullptr);
  EXPECT_EQ(hostObject<const Part>(read(hostReference(whole), "part")), &whole.part);
  Whole changeable(alive);
  EXPECT_EQ(hostObject<Part>(read(hostReference(changeable), "part")), &changeable.part);
  EXPECT_EQ(hostObject<Part>(read(hostReference(changeable), "constantPart")), nullptr);
}

struct Faulty {
  std::string text = "a\xC3";
};
[[noreturn]] int raiseUndefinedKeyByName(const Faulty& /*object*/) {
  throw NSException(NSUndefinedKeyException, "no");
}
void describeHostClass(HostClass<Faulty>& faulty) {
  faulty.name("Faulty")
      .property("text", &Faulty::text)
      .property("copy", [](const Faulty& each) { return each.text; })
      .property("generic", [](const Faulty&) -> int { throw NSException(NSGenericException, "broken"); })
      .property("standard", [](const Faulty&) -> int { throw std::runtime_error("out of order"); })
      .property("foreign", [](const Faulty&) -> int { throw 5; })
      .property("undefined", raiseUndefinedKeyByName)
      .property("nothing", [](const Faulty&) { return Value(); })
      .property("noText", [](const Faulty&) -> const char* { return nullptr; });
  faulty.description([](const Faulty& each) { return each.text; });
}

TEST(HostObject, LetsExceptionsOfItsPropertiesPass) {
  Faulty faulty;
  const Value value = hostReference(faulty);
  EXPECT_EQ(raised([&] { (void)read(value, "generic"); }), "NSGenericException: broken");
  EXPECT_EQ(raised([&] { (void)read(value, "undefined"); }), "NSUndefinedKeyException: no");
  EXPECT_THROW((void)read(value, "standard"), std::runtime_error);
  EXPECT_THROW((void)read(value, "foreign"), int);
  EXPECT_TRUE(read(value, "nothing").isAbsent());
  EXPECT_TRUE(read(value, "noText").isNull());
}

// Whether the object has the property, which is read as for who writes it at once.
bool lend(const Value& object, const char* key, LentValue& lent) {
  Value holder = object;
  return NSKeyPath(key).lend(holder, lent);
}

TEST(HostObject, IsReadByAPathForWhoAdoptsTheValue) {
  Maker maker("Acme");
  const Value value = hostReference(maker);
  EXPECT_EQ(Value::adopt(NSKeyPath("name").read(value)).description(), "Acme");
  EXPECT_EQ(Value::adopt(NSKeyPath("founded").read(value)).intValue(), 1900);
  EXPECT_EQ(Value::adopt(NSKeyPath("name.length").read(value)).intValue(), 4);
  EXPECT_TRUE(NSKeyPath("owner").read(value).isNothing());
  EXPECT_TRUE(NSKeyPath("owner.name").read(value).isNothing());
}

// Each asks the next one.
struct Asking {
  Value next;
};

void describeHostClass(HostClass<Asking>& asking) {
  asking.name("Asking")
      .description([](const Asking& each) { return "before " + each.next.description(); })
      .lessThan([](const Asking& each, const Value& other) { return each.next.isLessThan(other); })
      .equal([](const Asking& each, const Asking& other) { return each.next.isEqual(other.next); },
             [](const Asking&) { return std::size_t{0}; });
}

TEST(HostObject, OfAChainEndsInALimitWhereEachAsksTheNext) {
  std::vector<Asking> links(200'000);
  for (std::size_t index = 1; index < links.size(); ++index) links[index].next = hostReference(links[index - 1]);
  std::vector<Asking> others(links.size());
  for (std::size_t index = 1; index < others.size(); ++index) others[index].next = hostReference(others[index - 1]);
  const Value chain = hostReference(links.back());
  const Value other = hostReference(others.back());
  EXPECT_EQ(outcomeOnStackOf(kSmallStack, [&] { (void)chain.description(); }), "stack");
  EXPECT_EQ(outcomeOnStackOf(kSmallStack, [&] { (void)chain.isEqual(other); }), "stack");
  EXPECT_EQ(outcomeOnStackOf(kSmallStack, [&] { (void)chain.isLessThan(other); }), "stack");
}

TEST(HostObject, RefusesTextThatIsNotUTF8) {
  Faulty faulty;
  const Value value = hostReference(faulty);
  const std::string expected = raised([] { (void)Value("a\xC3"); });
  EXPECT_NE(expected, "");
  EXPECT_EQ(raised([&] { (void)read(value, "text"); }), expected);
  EXPECT_EQ(raised([&] { (void)read(value, "copy"); }), expected);
  EXPECT_EQ(raised([&] { (void)value.description(); }), expected);
  LentValue lent;
  EXPECT_EQ(raised([&] { lend(value, "text", lent); }), expected);
}

TEST(HostObject, LendsTextsThatOutliveTheGetter) {
  Product product{.name = "a name that is longer than any short text", .note = "x"};
  const Value value = hostReference(product);
  struct Row {
    const char* key;
    bool isLent;
    const char* text;
  };
  const Row rows[] = {
      {"name", true, "a name that is longer than any short text"},    {"code", true, "a"},   {"note", true, "x"},
      {"label", false, "a name that is longer than any short text!"}, {"stock", false, "0"}, {"maker", false, "<null>"},
  };
  for (const Row& row : rows) {
    LentValue lent;
    EXPECT_TRUE(lend(value, row.key, lent)) << row.key;
    EXPECT_EQ(lent.isText(), row.isLent) << row.key;
    EXPECT_EQ(lent.isText() ? std::string(lent.text()) : lent.value().description(), row.text) << row.key;
  }
  LentValue lent;
  EXPECT_FALSE(lend(value, "other", lent));
  ASSERT_TRUE(lend(value, "name", lent));
  EXPECT_EQ(lent.text().data(), product.name.data());
}

TEST(HostObject, MayBeSharedBetweenThreadsWhereItsClassSaysSo) {
  Product product;
  Maker maker("Acme");
  const Value shared = NSArray::arrayWithObjects({hostReference(product)});
  shared.share();
  EXPECT_TRUE(shared.object()->isShared());
  EXPECT_EQ(raised([&] { Value(NSArray::arrayWithObjects({hostReference(maker)})).share(); }),
            "NSInvalidArgumentException: Maker cannot be shared between threads: it, or what it holds, is of a class "
            "that does not answer canBeShared() with true");
}

// A class that is counted itself.
class Cart final : public DescribedObject<Cart> {
 public:
  explicit Cart(int& alive) : first_(alive), items_(2, first_) {}

  int size() const { return 2; }
  const Part& first() const { return first_; }
  const std::vector<Part>& items() const { return items_; }
  std::span<const Part> view() const { return items_; }

  friend void describeHostClass(HostClass<Cart>& cart) {
    cart.name("Cart")
        .property("size", &Cart::size)
        .property("first", &Cart::first)
        .property("items", &Cart::items)
        .property("view", &Cart::view)
        .property("itself", [](Cart& each) -> Cart& { return each; })
        .description([](const Cart&) { return "a cart"; })
        .elements(&Cart::items)
        .canBeShared();
  }

 private:
  Part first_;
  std::vector<Part> items_;
};

TEST(DescribedObject, IsAnObjectOfItsDescription) {
  int alive = 0;
  {
    const Ref<Cart> cart = makeRef<Cart>(alive);
    const Value value = cart;
    EXPECT_STREQ(value.className(), "Cart");
    EXPECT_EQ(value.description(), "a cart");
    EXPECT_EQ(read(value, "size").intValue(), 2);
    EXPECT_TRUE(read(value, "itself").isIdenticalTo(value));
    EXPECT_EQ(hostObject<Cart>(value), cart.get());
    EXPECT_EQ(read(value, "items.@sum.number").intValue(), 14);
  }
  EXPECT_EQ(alive, 0);
}

TEST(DescribedObject, IsKeptByAReferenceToIt) {
  int alive = 0;
  {
    Ref<Cart> cart = makeRef<Cart>(alive);
    const Value changeable = hostReference(*cart);
    const Value constant = hostReference(std::as_const(*cart));
    const Value pointed = valueOf(cart.get());
    const Cart* const address = cart.get();
    cart = nullptr;
    for (const Value& value : {changeable, constant, pointed}) {
      EXPECT_EQ(value.description(), "a cart");
      EXPECT_EQ(hostObject<const Cart>(value), address);
    }
    EXPECT_EQ(hostObject<Cart>(changeable), address);
    EXPECT_EQ(hostObject<Cart>(constant), nullptr);
    EXPECT_GT(alive, 0);
  }
  EXPECT_EQ(alive, 0);
}

TEST(DescribedObject, LivesAsLongAsAPartOfIt) {
  int alive = 0;
  for (const char* path : {"first", "items"}) {
    {
      const Value part = read(Value(makeRef<Cart>(alive)), path);
      EXPECT_EQ(alive, 3) << path;
      EXPECT_EQ(raised([&] { part.share(); }), "") << path;
    }
    EXPECT_EQ(alive, 0) << path;
  }
  const Value walked = makeRef<Cart>(alive);
  const Ref<NSEnumerator> walk = walked.object()->objectEnumerator();
  EXPECT_EQ(read(walk->nextObject(), "number").intValue(), 7);
}

// The same that one thread has for itself.
class Basket final : public DescribedObject<Basket> {
 public:
  explicit Basket(int& alive) : first_(alive), items_(2, first_) {}

  friend void describeHostClass(HostClass<Basket>& basket) {
    basket.name("Basket")
        .property("first", [](const Basket& it) -> const Part& { return it.first_; })
        .property("items", [](const Basket& it) -> const std::vector<Part>& { return it.items_; })
        .property("view", [](const Basket& it) { return std::span<const Part>(it.items_); });
  }

 private:
  Part first_;
  std::vector<Part> items_;
};

TEST(DescribedObject, LendsPartsToOtherThreadsOnlyWhereItMayBeShared) {
  int alive = 0;
  const Value cart = makeRef<Cart>(alive);
  const Value basket = makeRef<Basket>(alive);
  const std::string refusal =
      "NSInvalidArgumentException: Part cannot be shared between threads: it, or what it holds, is of a class that "
      "does not answer canBeShared() with true";
  for (const char* path : {"items", "view"}) {
    const auto element = [&](const Value& holder) {
      return read(holder, path).object()->objectEnumerator()->nextObject();
    };
    EXPECT_EQ(raised([&] { element(cart).share(); }), "") << path;
    EXPECT_EQ(raised([&] { element(basket).share(); }), refusal) << path;
  }
  EXPECT_EQ(raised([&] { read(basket, "first").share(); }), refusal);
}

TEST(DescribedObject, IsSharedAsAConstant) {
  int alive = 0;
  const Ref<Cart> cart = makeRef<Cart>(alive);
  for (const Value& constant : {Value(Ref<const Cart>(cart)), hostReference(std::as_const(*cart))}) {
    EXPECT_EQ(raised([&] { constant.share(); }), "");
    EXPECT_TRUE(constant.object()->isShared());
  }
  EXPECT_EQ(raised([&] { Value(makeRef<const Basket>(alive)).share(); }),
            "NSInvalidArgumentException: Basket cannot be shared between threads: it, or what it holds, is of a class "
            "that does not answer canBeShared() with true");
}

// One that counts how often it is changed, and an object that lends it as a constant.
class Clicker final : public DescribedObject<Clicker> {
 public:
  int click() { return ++clicks; }

  friend void describeHostClass(HostClass<Clicker>& clicker) {
    clicker.name("Clicker").property("click", &Clicker::click).property("clicks", &Clicker::clicks);
  }

  int clicks = 0;
};

struct Lender {
  const Clicker& constant() const { return *clicker; }
  const Clicker* pointer() const { return clicker.get(); }
  Ref<const Clicker> referred() const { return clicker; }
  std::vector<const Clicker*> list() const { return {clicker.get()}; }

  friend void describeHostClass(HostClass<Lender>& lender) {
    lender.name("Lender")
        .property("constant", &Lender::constant)
        .property("pointer", &Lender::pointer)
        .property("referred", &Lender::referred)
        .property("list", &Lender::list);
  }

  Ref<Clicker> clicker = makeRef<Clicker>();
};

TEST(DescribedObject, StaysConstantWhereTheHostLendsItSo) {
  Lender lender;
  const Value lent = hostReference(lender);
  const Value element = read(lent, "list").object()->objectEnumerator()->nextObject();
  const std::vector<Value> constants = {read(lent, "constant"), read(lent, "pointer"), read(lent, "referred"), element,
                                        Ref<const Clicker>(lender.clicker)};
  for (const Value& constant : constants) {
    EXPECT_EQ(raised([&] { read(constant, "click"); }),
              "NSInvalidArgumentException: A property of Clicker cannot be read: its getter changes the object, which "
              "the host gave as a constant");
    EXPECT_EQ(read(constant, "clicks").intValue(), 0);
    EXPECT_TRUE(constant.isEqual(lender.clicker));
    EXPECT_EQ(hostObject<Clicker>(constant), nullptr);
    EXPECT_EQ(objectOf<Ref<const Clicker>>(constant), lender.clicker);
    EXPECT_NE(raised([&] { objectOf<Ref<Clicker>>(constant); }), "");
    // Lent as a constant once more, it is the same.
    EXPECT_TRUE(Value(constant.ref<const HostInstance>()).isIdenticalTo(constant));
  }
  EXPECT_EQ(read(Value(lender.clicker), "click").intValue(), 1);
  EXPECT_TRUE(Value(Ref<const Clicker>()).isAbsent());
  EXPECT_EQ(Value(Ref<const NSString>(NSString::stringWithUTF8("text"))).description(), "text");
}

TEST(DescribedObject, IsKeptByItsConstants) {
  int alive = 0;
  Value constant;
  {
    const Ref<const Cart> cart = makeRef<Cart>(alive);
    constant = cart;
  }
  EXPECT_EQ(alive, 3);
  EXPECT_EQ(read(constant, "size").intValue(), 2);
  constant.clear();
  EXPECT_EQ(alive, 0);
}

// One that answers its part in everything that holds a pointer.
struct Wrapper {
  friend void describeHostClass(HostClass<Wrapper>& wrapper) {
    wrapper.name("Wrapper")
        .property("optional", [](const Wrapper& it) { return std::optional<const Part*>(&it.part); })
        .property("vector", [](const Wrapper& it) { return std::vector<const Part*>{&it.part}; })
        .property("list", [](const Wrapper& it) { return std::list<const Part*>{&it.part}; })
        .property("set", [](const Wrapper& it) { return std::set<const Part*>{&it.part}; })
        .property("pair", [](const Wrapper& it) { return std::pair<const Part*, int>(&it.part, 1); })
        .property("tuple", [](const Wrapper& it) { return std::tuple<const Part*>(&it.part); })
        .property("tied",
                  [](const Wrapper& it) {
                    it.pointer = &it.part;
                    return std::tuple<const Part* const&>(it.pointer);
                  })
        .property("variant", [](const Wrapper& it) { return std::variant<const Part*, int>(&it.part); })
        .property("shared", [](const Wrapper& it) { return std::make_shared<std::vector<const Part*>>(1, &it.part); })
        .property("unique",
                  [](const Wrapper& it) { return std::make_unique<std::pair<const Part*, int>>(&it.part, 1); })
        .property("pairs", [](const Wrapper& it) {
          return std::vector<std::pair<const Part*, int>>{{&it.part, 1}};
        });
  }

  Part part;
  mutable const Part* pointer = nullptr;
};

TEST(HostObject, LivesAsLongAsAPartInsideWhateverItAnswers) {
  const auto firstOf = [](const Value& value) {
    return value.object()->kind() == ObjectKind::HostObject ? value : value.object()->objectEnumerator()->nextObject();
  };
  for (const char* key :
       {"optional", "vector", "list", "set", "pair", "tuple", "tied", "variant", "pairs", "shared", "unique"}) {
    int alive = 0;
    {
      Value part = firstOf(read(hostShared(std::make_shared<Wrapper>(Wrapper{Part(alive)})), key));
      if (std::string_view(key) == "pairs") part = firstOf(part);
      EXPECT_EQ(alive, 1) << key;
      EXPECT_EQ(read(part, "number").intValue(), 7) << key;
    }
    EXPECT_EQ(alive, 0) << key;
  }
}

// One whose end does what it is told to.
struct Nest {
  explicit Nest(std::function<void()> end) : onEnd(std::move(end)) {}
  Nest(const Nest&) = delete;
  Nest& operator=(const Nest&) = delete;
  ~Nest() { onEnd(); }

  friend void describeHostClass(HostClass<Nest>& nest) {
    nest.name("Nest").property("view", [](const Nest& it) { return std::span<const int>(&it.number, 1); });
  }

  int number = 1;
  std::function<void()> onEnd;
};

TEST(HostObject, HasEndedOnceAnotherOnesEndHasLetGoOfIt) {
  bool hasEndedInTime = false;
  const auto letGoOfLent = [](std::function<void()> end) {
    Value nest = hostShared(std::make_shared<Nest>(std::move(end)));
    Value view = read(nest, "view");
    nest.clear();
    view.clear();
  };
  letGoOfLent([&] {
    bool hasEnded = false;
    letGoOfLent([&] { hasEnded = true; });
    hasEndedInTime = hasEnded;
  });
  EXPECT_TRUE(hasEndedInTime);
}

// Counted itself, and kept by a smart pointer all the same.
class CountedPart final : public DescribedObject<CountedPart> {
 public:
  explicit CountedPart(int& alive) : alive_(alive) { ++alive_; }
  CountedPart(const CountedPart&) = delete;
  CountedPart& operator=(const CountedPart&) = delete;
  ~CountedPart() override { --alive_; }
  int number() const { return alive_; }

 private:
  int& alive_;
};
void describeHostClass(HostClass<CountedPart>& part) {
  part.name("CountedPart").property("number", &CountedPart::number);
}
struct PartMaker {
  int* alive;
};
void describeHostClass(HostClass<PartMaker>& maker) {
  maker.name("PartMaker")
      .property("shared", [](const PartMaker& it) { return std::make_shared<CountedPart>(*it.alive); })
      .property("unique", [](const PartMaker& it) { return std::make_unique<CountedPart>(*it.alive); });
}

// Counted plainly, and kept by a pointer to what is a part of it.
class PlainPart final : public DescribedObject<PlainPart> {
 public:
  std::vector<int> numbers = {1, 2};
  std::span<int> view{numbers};
};
void describeHostClass(HostClass<PlainPart>& part) {
  part.name("PlainPart");
}
struct PartLender {
  Ref<PlainPart> part = makeRef<PlainPart>();
};
void describeHostClass(HostClass<PartLender>& lender) {
  lender.name("PartLender")
      .property("view",
                [](const PartLender& it) {
                  const std::shared_ptr<PlainPart> owner = hostOwner<PlainPart>(Value(it.part));
                  return std::shared_ptr<std::span<int>>(owner, &owner->view);
                })
      .canBeShared();
}

TEST(DescribedObject, ThatCountsPlainlyIsNotSharedByAPartOfIt) {
  const Value lender = hostShared(std::make_shared<PartLender>());
  EXPECT_EQ(raisedName([&] { read(lender, "view").share(); }), "NSInvalidArgumentException");
}

// Lends a list that the owner which it was given keeps, too.
struct PartLink {
  std::vector<Part*> parts;
  mutable std::shared_ptr<const void> before;

  friend void describeHostClass(HostClass<PartLink>& link) {
    link.name("PartLink").canBeShared().property("parts", [](const PartLink& it) {
      return std::shared_ptr<const std::vector<Part*>>(std::move(it.before), &it.parts);
    });
  }
};

TEST(HostObject, MayBeKeptByAChainOfOwnersOfAnyLength) {
  int alive = 0;
  std::vector<std::shared_ptr<PartLink>> links;
  auto first = std::make_shared<Part>(alive);
  Part& part = *first;
  std::shared_ptr<const void> before = std::move(first);
  Value list;
  for (int link = 0; link < 100'000; ++link) {
    links.push_back(std::make_shared<PartLink>(PartLink{{&part}, std::move(before)}));
    list = read(hostShared(links.back()), "parts");
    before = hostOwner<Part>(list.object()->objectEnumerator()->nextObject());
  }
  const bool isShared = raisedName([&] { list.object()->objectEnumerator()->nextObject().share(); }).empty();
  EXPECT_TRUE(isShared);
  list.clear();
  EXPECT_EQ(alive, 1);
  EXPECT_EQ(links.front().use_count(), 2);
  before.reset();
  EXPECT_EQ(alive, 0);
  EXPECT_EQ(links.front().use_count(), 1);
}

// Lends parts, which come back to it.
struct PartPool {
  struct Return {
    PartPool* pool;
    void operator()(Part* part) const { pool->spare.emplace_back(part); }
  };

  explicit PartPool(int& alive) { spare.push_back(std::make_unique<Part>(alive)); }
  std::unique_ptr<Part, Return> take() {
    Part* const part = spare.back().release();
    spare.pop_back();
    return {part, Return{this}};
  }

  friend void describeHostClass(HostClass<PartPool>& pool) { pool.name("PartPool").property("take", &PartPool::take); }

  std::vector<std::unique_ptr<Part>> spare;
};

TEST(HostObject, LivesAsLongAsWhatItHasLentAndTakesBack) {
  int alive = 0;
  Value part = read(hostShared(std::make_shared<PartPool>(alive)), "take");
  EXPECT_EQ(read(part, "number").intValue(), 7);
  EXPECT_EQ(alive, 1);
  part.clear();
  EXPECT_EQ(alive, 0);
}

TEST(DescribedObject, IsKeptByTheSmartPointerThatAGetterAnswers) {
  int alive = 0;
  PartMaker maker{&alive};
  for (const char* const key : {"shared", "unique"}) {
    Value part = read(hostReference(maker), key);
    EXPECT_EQ(alive, 1) << key;
    EXPECT_EQ(read(part, "number").intValue(), 1) << key;
    part.clear();
    EXPECT_EQ(alive, 0) << key;
  }
}

}  // namespace

}  // namespace tavlo::test
