#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Foundation/LazyCollections.h"
#include "Foundation/NSArray.h"
#include "Foundation/NSDictionary.h"
#include "Foundation/NSKeyValueCoding.h"
#include "Foundation/NSSet.h"
#include "Source/KorTemplateCallableFunction.h"
#include "Source/KorTemplateCallbackStream.h"
#include "Source/KorTemplateLayer.h"
#include "Tests/Source/HostClasses.h"

namespace tavlo::test {

namespace {

// A host's object that acts whenever it is asked something.
class ActingObject final : public NSObject {
 public:
  explicit ActingObject(std::function<void()> act) : act_(std::move(act)) {}

  bool isEqual(const NSObject& /*other*/, std::int32_t /*depth*/) const override {
    act();
    return true;
  }
  std::size_t hash() const override {
    act();
    return 5;
  }
  bool findValueForKey(const NSString& /*key*/, Value& value) const override {
    act();
    value = 1;
    return true;
  }
  bool canBeShared() const override {
    act();
    return true;
  }
  const char* className() const override { return "ActingObject"; }

 private:
  void act() const {
    const std::function<void()> act = act_;  // which may end this object
    act();
  }

  std::function<void()> act_;
};

Value acting(const std::function<void()>& act) {
  return makeRef<ActingObject>(act);
}

// What a host's code that is asked on the way lets go of lives until the answer is there; the sanitizers would see
// otherwise.
TEST(TheLastReference, ToAValueMayGoWhileItIsCompared) {
  Value value;
  const auto letGo = [&value] { value = Value(); };
  const std::function<Value()> makes[] = {
      [&] {
        return Value(NSArray::arrayWithObjects({acting(letGo), acting(letGo)}));
      },
      [&] {
        return Value(NSDictionary::dictionaryWithEntries({{"a", acting(letGo)}, {"b", acting(letGo)}}));
      },
      [&] { return Value(lazyList([] { return std::size_t{2}; }, [&](std::size_t) { return acting(letGo); })); },
  };
  for (const std::function<Value()>& make : makes) {
    value = make();
    const Value other = make();
    EXPECT_TRUE(value.isEqual(other));
    value = make();
    EXPECT_TRUE(other.isEqual(value));
  }
}

TEST(TheLastReference, ToAValueMayGoWhileItIsRead) {
  Value value;
  const auto letGo = [&value] { value = Value(); };
  value = NSArray::arrayWithObjects({acting(letGo), acting(letGo)});
  Value result;
  EXPECT_TRUE(findValueForKey(value, *NSString::stringWithUTF8("key"), result));
  const auto list = [&] {
    return Value(lazyList([] { return std::size_t{3}; },
                          [&](std::size_t index) {
                            if (index == 1) letGo();
                            return static_cast<int>(index);
                          }));
  };
  value = list();
  EXPECT_EQ(plainValue(value).description(), "(\n    0,\n    1,\n    2\n)");
  value = list();
  EXPECT_EQ(objectOf<std::vector<int>>(value), (std::vector<int>{0, 1, 2}));
}

TEST(TheLastReference, ToASetMayGoWhileItIsSearched) {
  Ref<NSSet> set;
  set = NSSet::setWithObjects({acting([&] { set = nullptr; })});
  const Ref<NSSet> other = NSSet::setWithObjects({acting([] {})});
  EXPECT_TRUE(set->containsObject(other->members()[0]));
}

TEST(TheLastReference, ToAFunctionMayGoWhileItIsSought) {
  class EqualFunction final : public KorTemplateFunction {
   public:
    explicit EqualFunction(Ref<KorTemplateFunction>& sought) : sought_(sought) {}
    Value invokeWithEnvironment(KorTemplateEnvironment*, ListArgument<Value>) override { return 1; }
    bool isEqual(const NSObject& /*other*/, std::int32_t /*depth*/) const override {
      sought_ = nullptr;
      return false;
    }

   private:
    Ref<KorTemplateFunction>& sought_;
  };
  const Stage stage;
  Ref<KorTemplateFunction> sought;
  for (const char* const name : {"a", "b"}) {
    stage.environment->setFunctionForName(makeRef<EqualFunction>(sought), name);
  }
  sought = makeRef<EqualFunction>(sought);
  stage.environment->removeFunction(sought);
  EXPECT_NE(stage.environment->functionForName("a"), nullptr);
}

TEST(TheLastReference, ToAStreamMayGoWhileItsCallbackRuns) {
  Ref<KorTemplateStream> stream;
  std::string text;
  const auto make = [&](std::size_t capacity) {
    stream = KorTemplateCallbackStream::streamWithCallback(
        [&](std::string_view piece) {
          stream = nullptr;
          text += piece;
        },
        capacity);
  };
  make(100);
  stream->write("abc");
  stream->flush();
  make(2);
  stream->write("a");
  stream->write("de");
  EXPECT_EQ(text, "abcade");
}

TEST(TheLastReference, ToALayerMayGoWhileItIsShared) {
  Ref<KorTemplateLayer> layer = KorTemplateLayer::layer();
  layer->setGlobal("a", acting([&] { layer = nullptr; }));
  layer->share();
  EXPECT_EQ(layer, nullptr);
}

TEST(TheLastReference, ToAnEnumeratorMayGoWhileItsGeneratorRuns) {
  Ref<NSEnumerator> enumerator;
  const Value sequence = lazySequence([&] {
    return [&] {
      enumerator = nullptr;
      return std::optional<int>();
    };
  });
  enumerator = sequence.object()->objectEnumerator();
  EXPECT_TRUE(enumerator->nextObject().isAbsent());
}

TEST(ASet, IsMadeOfMembersThatTheHostAddsTo) {
  std::vector<Value> members;
  for (int number = 0; number < 5; ++number) members.push_back(acting([&] { members.resize(members.size() + 50, 1); }));
  EXPECT_GE(makeRef<NSSet>(members)->count(), 2U);
}

}  // namespace

}  // namespace tavlo::test
