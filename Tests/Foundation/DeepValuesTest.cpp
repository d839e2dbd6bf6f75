#include <gtest/gtest.h>

#include <cstdint>
#include <deque>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Foundation/HostObject.h"
#include "Foundation/KorTemplateLimits.h"
#include "Foundation/LazyCollections.h"
#include "Foundation/NSArray.h"
#include "Foundation/NSDictionary.h"
#include "Foundation/NSKeyValueCoding.h"
#include "Foundation/NSSet.h"
#include "Foundation/Value.h"
#include "Foundation/ValueConversion.h"
#include "Tests/Foundation/HostObjects.h"
#include "Tests/Foundation/Raised.h"
#include "Tests/Foundation/SmallStack.h"
#include "Tests/Memory/WorkBound.h"

namespace tavlo::test {

struct OwnList;
struct OwnPair;

}  // namespace tavlo::test

namespace tavlo {

template <>
struct ValueConversion<test::OwnList> {
  static Value toValue(const test::OwnList& list);
};
template <>
struct ValueConversion<test::OwnPair> {
  static Value toValue(const test::OwnPair& pair);
};

}  // namespace tavlo

namespace tavlo::test {

// Of a host's own, which convert themselves by what they hold.
struct OwnList {
  std::vector<OwnList> lists;
};
struct OwnPair {
  std::pair<const OwnPair*, int> next;
};

}  // namespace tavlo::test

namespace tavlo {

Value ValueConversion<test::OwnList>::toValue(const test::OwnList& list) {
  return valueOf(list.lists);
}
Value ValueConversion<test::OwnPair>::toValue(const test::OwnPair& pair) {
  return valueOf(std::pair<std::optional<test::OwnPair>, int>(
      pair.next.first == nullptr ? std::nullopt : std::optional<test::OwnPair>(*pair.next.first), pair.next.second));
}

}  // namespace tavlo

namespace tavlo::test {

namespace {

constexpr int kDeepest = 1000;
constexpr int kFarDeeper = 1'000'000;

using Wrap = Value (*)(const Value&);

Value inList(const Value& value) {
  return NSArray::arrayWithObjects({value});
}
Value inDictionary(const Value& value) {
  return NSDictionary::dictionaryWithEntries({{"a", value}});
}
Value inSet(const Value& value) {
  return NSSet::setWithObjects({value});
}
Value inSetInList(const Value& value) {
  return inList(inSet(value));
}

Value nested(Wrap wrap, const Value& innermost, int depth) {
  Value value = innermost;
  for (int level = 0; level < depth; ++level) value = wrap(value);
  return value;
}

struct WrapRow {
  const char* what;
  Wrap wrap;
  int collections;  // that one wrapping adds
};

const WrapRow kWraps[] = {
    {"lists", inList, 1},
    {"dictionaries", inDictionary, 1},
    {"sets", inSet, 1},
    {"lists and sets by turns", inSetInList, 2},
};

TEST(DeepValues, AreDescribedDownToTheBound) {
  for (const WrapRow& row : kWraps) {
    const Value deepest = nested(row.wrap, 1, kDeepest / row.collections);
    EXPECT_FALSE(deepest.description().empty()) << row.what;
    const Value deeper = inList(deepest);
    EXPECT_EQ(limitReached([&] { (void)deeper.description(); }), KorTemplateLimit::ValueDepth) << row.what;
  }
}

TEST(DeepValues, AreComparedDownToTheBound) {
  for (const WrapRow& row : kWraps) {
    const Value left = nested(row.wrap, 1, kDeepest / row.collections);
    const Value right = nested(row.wrap, 1, kDeepest / row.collections);
    EXPECT_TRUE(left.isEqual(right)) << row.what;
    EXPECT_FALSE(left.isEqual(nested(row.wrap, 2, kDeepest / row.collections))) << row.what;
    const Value leftDeeper = inList(left);
    const Value rightDeeper = inList(right);
    EXPECT_EQ(limitReached([&] { (void)leftDeeper.isEqual(rightDeeper); }), KorTemplateLimit::ValueDepth) << row.what;
  }
}

TEST(DeepValues, AreFreedDescribedAndComparedWithoutRecursion) {
  struct Outcome {
    std::optional<KorTemplateLimit> described;
    std::optional<KorTemplateLimit> compared;
    std::uint64_t bound = 0;
    int alive = 0;
  };
  for (const Wrap wrap : {inList, inDictionary}) {
    Outcome outcome;
    runOnStackOf(kSmallStack, [&outcome, wrap] {
      const Value left = nested(wrap, makeRef<Tracked>(outcome.alive), kFarDeeper);
      const Value right = nested(wrap, makeRef<Tracked>(outcome.alive), kFarDeeper);
      const WorkBound bound("deep values");
      outcome.described = limitReached([&] { (void)left.description(); });
      outcome.compared = limitReached([&] { (void)left.isEqual(right); });
      try {
        (void)left.isEqual(right);
      } catch (const KorTemplateLimitException& exception) {
        outcome.bound = exception.value();
      }
    });
    EXPECT_EQ(outcome.described, KorTemplateLimit::ValueDepth);
    EXPECT_EQ(outcome.compared, KorTemplateLimit::ValueDepth);
    EXPECT_EQ(outcome.bound, 1000U);
    EXPECT_EQ(outcome.alive, 0);
  }
}

TEST(DeepValues, OfSetsAreFreedWithoutRecursion) {
  int alive = 0;
  runOnStackOf(kSmallStack, [&alive] { (void)nested(inSet, makeRef<Tracked>(alive), kFarDeeper); });
  EXPECT_EQ(alive, 0);
}

TEST(DeepValues, WithManyBranchesAreFreedToTheLast) {
  int alive = 0;
  runOnStackOf(kSmallStack, [&alive] {
    Value value = makeRef<Tracked>(alive);
    for (int level = 0; level < 100'000; ++level) {
      value = NSArray::arrayWithObjects({makeRef<Tracked>(alive), value, makeRef<Tracked>(alive)});
    }
  });
  EXPECT_EQ(alive, 0);
}

TEST(DeepValues, EndWithALimitWhereTheirKeysAreAskedFor) {
  std::optional<KorTemplateLimit> asked;
  std::optional<KorTemplateLimit> summed;
  runOnStackOf(kSmallStack, [&] {
    const Value value = nested(inList, "abc", kFarDeeper);
    const WorkBound bound("key paths");
    asked = limitReached([&] { (void)valueForKeyPath(value, "length"); });
    std::string path = "@sum";
    for (int level = 1; level < kFarDeeper / 10; ++level) path += ".@sum";
    summed = limitReached([&] { (void)valueForKeyPath(value, path); });
  });
  EXPECT_EQ(asked, KorTemplateLimit::Stack);
  EXPECT_EQ(summed, KorTemplateLimit::Stack);
}

TEST(DeepValues, AreHashedWithoutRecursion) {
  bool same = false;
  runOnStackOf(kSmallStack, [&same] {
    same = nested(inList, 1, kFarDeeper).hash() == nested(inList, 1.0, kFarDeeper).hash() &&
           nested(inDictionary, 1, kFarDeeper).hash() == nested(inDictionary, true, kFarDeeper).hash();
  });
  EXPECT_TRUE(same);
}

TEST(DeepValues, ThatAreEqualAreOneMemberOfASet) {
  for (const WrapRow& row : kWraps) {
    for (const int depth : {1, 7, 8, 9, 10, 20, 400}) {
      const std::vector<Value> values = {nested(row.wrap, 1, depth),         nested(row.wrap, 1.0, depth),
                                         nested(row.wrap, true, depth),      nested(row.wrap, 2, depth),
                                         nested(row.wrap, 1, depth + 1),     nested(row.wrap, "1", depth),
                                         nested(row.wrap, inList(1), depth), nested(row.wrap, 2.0, depth)};
      const std::size_t different = row.wrap == inList ? 4 : 5;  // a list in lists is the list one deeper
      const Ref<NSSet> set = NSSet::setWithObjects(values);
      EXPECT_EQ(set->count(), different) << row.what << " " << depth;
      for (const Value& value : values) EXPECT_TRUE(set->containsObject(value)) << row.what << " " << depth;
      EXPECT_FALSE(set->containsObject(nested(row.wrap, 3, depth))) << row.what << " " << depth;
      const Value distinct = valueForKeyPath(NSArray::arrayWithObjects(values), "@distinctUnionOfObjects");
      EXPECT_TRUE(distinct.isEqual(NSArray::arrayWithObjects(set->members()))) << row.what << " " << depth;
    }
  }
}

TEST(DeepValues, HashAlikeWhateverTheOrderOfTheirKeysAndMembers) {
  const auto one = [](const Value& value) {
    return NSDictionary::dictionaryWithEntries({{"a", value}, {"b", NSSet::setWithObjects({1, value, "x"})}});
  };
  const auto other = [](const Value& value) {
    return NSDictionary::dictionaryWithEntries({{"b", NSSet::setWithObjects({"x", value, 1.0})}, {"a", value}});
  };
  Value left = 5;
  Value right = 5.0;
  for (int depth = 0; depth < 12; ++depth) {
    left = one(left);
    right = other(right);
    EXPECT_EQ(left.hash(), right.hash()) << depth;
    EXPECT_EQ(NSSet::setWithObjects({left, right})->count(), 1U) << depth;
  }
}

TEST(DeepValues, GoIntoASetWithoutRecursionAndDeeperOnesEndWithALimit) {
  constexpr int kDeeper = 100 * kDeepest;
  std::size_t count = 0;
  std::optional<KorTemplateLimit> limit;
  runOnStackOf(kSmallStack, [&] {
    const WorkBound bound("a set");
    const Value deep = nested(inList, 1, kDeeper);
    count = NSSet::setWithObjects({deep, deep, nested(inList, 1, 3), 1})->count();
    limit = limitReached([&] { (void)NSSet::setWithObjects({deep, nested(inList, 1, kDeeper)}); });
  });
  EXPECT_EQ(count, 3U);
  EXPECT_EQ(limit, KorTemplateLimit::ValueDepth);
}

// Whatever is done with a value ends well or with a limit, however little stack there is.
TEST(DeepValues, EndCleanlyOnSmallStacks) {
  struct Row {
    const char* what;
    void (*use)(const Value& value, const Value& other);
  };
  const Row rows[] = {
      {"describe", [](const Value& value, const Value&) { (void)value.description(); }},
      {"compare", [](const Value& value, const Value& other) { (void)value.isEqual(other); }},
      {"hash", [](const Value& value, const Value&) { (void)value.hash(); }},
      {"gather",
       [](const Value& value, const Value& other) {
         (void)NSSet::setWithObjects({value, other});
       }},
      {"read", [](const Value& value, const Value&) { (void)raised([&] { (void)valueForKeyPath(value, "a.a.a"); }); }},
      {"sum", [](const Value& value, const Value&) { (void)raised([&] { (void)valueForKeyPath(value, "@sum.a"); }); }},
      {"order", [](const Value& value, const Value& other) { (void)value.isLessThan(other); }},
      {"share", [](const Value& value, const Value&) { value.share(); }},
  };
  for (const std::size_t kibibytes : {128, 256}) {
    for (const WrapRow& wrap : kWraps) {
      for (const int depth : {kDeepest / 2, 20 * kDeepest}) {
        Value value = nested(wrap.wrap, 1, depth);
        Value other = nested(wrap.wrap, 1, depth);
        for (const Row& row : rows) {
          const WorkBound bound(row.what);
          const std::string end = outcomeOnStackOf(kibibytes * 1024, [&] { row.use(value, other); });
          const bool isClean = end == "well" || end == "stack" || depth > kDeepest / 2;
          EXPECT_TRUE(isClean) << row.what << " " << wrap.what << ": " << end;
        }
        EXPECT_EQ(outcomeOnStackOf(kibibytes * 1024, [&] { value = other = Value(); }), "well") << wrap.what;
      }
    }
  }
}

// A chain of a host's objects, each of which asks the next one in whatever it is asked.
struct ChainLink {
  ChainLink* next = nullptr;

  friend void describeHostClass(HostClass<ChainLink>& link) {
    link.name("ChainLink")
        .elements(&ChainLink::next)
        .equal([](const ChainLink& one, const ChainLink& other) { return &one == &other; },
               [](const ChainLink& each) { return each.next == nullptr ? std::size_t{1} : valueOf(each.next).hash(); })
        .property("last", [](const ChainLink& each) -> Value {
          return each.next == nullptr ? Value(1) : valueForKeyPath(valueOf(each.next), "last");
        });
  }
};

TEST(DeepChainsOfHostsObjects, EndWithALimitWhateverTheyAreAsked) {
  std::deque<ChainLink> links(200'000);
  for (std::size_t index = 0; index + 1 < links.size(); ++index) links[index].next = &links[index + 1];
  const Value chain = valueOf(&links.front());
  EXPECT_EQ(outcomeOnStackOf(kSmallStack, [&] { (void)chain.hash(); }), "stack");
  EXPECT_EQ(outcomeOnStackOf(kSmallStack, [&] { (void)valueForKeyPath(chain, "last"); }), "stack");
  EXPECT_EQ(outcomeOnStackOf(kSmallStack, [&] { (void)chain.object()->objectEnumerator(); }), "stack");
}

// Each of which asks the one before in whatever it is asked.
TEST(DeepChainsOfLazyCollections, EndWithALimitWhateverTheyAreAsked) {
  using Use = std::function<Value(const Value&)>;
  const std::pair<const char*, Use> uses[] = {
      {"description", [](const Value& value) { return Value(value.description()); }},
      {"hash", [](const Value& value) { return Value(static_cast<std::uint64_t>(value.hash())); }},
      {"equality", [](const Value& value) { return Value(value.isEqual(plainValue(value))); }},
      {"plain value", [](const Value& value) { return plainValue(value); }},
      {"key", [](const Value& value) { return valueForKeyPath(value, "a"); }},
  };
  for (const auto& row : uses) {
    const Use& use = row.second;
    std::vector<Value> lists = {NSArray::arrayWithObjects({1})};
    std::vector<Value> dictionaries = {NSDictionary::dictionaryWithEntries({{"a", 1}})};
    constexpr std::size_t kLinks = 100'000;
    lists.reserve(kLinks);
    dictionaries.reserve(kLinks);
    while (lists.size() < kLinks) {
      const Value& list = lists.back();
      lists.push_back(
          lazyList([] { return 1; }, [&list, &use](std::size_t index) { return index == 0 ? use(list) : Value(); }));
      const Value& dictionary = dictionaries.back();
      dictionaries.push_back(lazyDictionary([&dictionary, &use](std::string_view) { return use(dictionary); },
                                            [] { return std::vector<std::string>{"a"}; }));
    }
    for (const Value& chain : {lists.back(), dictionaries.back()}) {
      EXPECT_EQ(outcomeOnStackOf(kSmallStack, [&] { (void)use(chain); }), "stack") << row.first << chain.className();
    }
  }
}

TEST(DeepTypesOfTheHosts, EndWithALimitWhereTheyAreConverted) {
  constexpr int kLevels = 100'000;
  OwnList list;
  std::vector<OwnPair> pairs(kLevels);
  for (int level = 1; level < kLevels; ++level) {
    OwnList outer;
    outer.lists.resize(1);
    std::swap(outer.lists[0], list);
    std::swap(outer, list);
    pairs[level].next.first = &pairs[level - 1];
  }
  EXPECT_EQ(outcomeOnStackOf(kSmallStack, [&] { (void)valueOf(list); }), "stack");
  EXPECT_EQ(outcomeOnStackOf(kSmallStack, [&] { (void)valueOf(pairs.back()); }), "stack");
  while (!list.lists.empty()) {  // level by level
    OwnList inner;
    std::swap(inner, list.lists[0]);
    std::swap(inner, list);
  }
}

TEST(DeepChainsOfHostsObjects, EndWithALimitWhereScopesAskTheOnesAround) {
  Value scope = NSDictionary::dictionaryWithEntries({{"x", 1}});
  for (int depth = 0; depth < 100'000; ++depth) {
    scope = lazyDictionary([outer = scope](std::string_view key) { return valueForKeyPath(outer, key); },
                           [] { return std::vector<std::string>(); });
  }
  EXPECT_EQ(outcomeOnStackOf(kSmallStack, [&] { (void)valueForKeyPath(scope, "x"); }), "stack");
}

}  // namespace

}  // namespace tavlo::test
