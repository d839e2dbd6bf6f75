#include <gtest/gtest.h>

#include <chrono>
#include <cstddef>
#include <functional>
#include <iterator>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <tuple>
#include <unordered_map>
#include <utility>
#include <vector>

#include "Foundation/LazyCollections.h"
#include "Foundation/LazyDictionary.h"
#include "Foundation/LazyList.h"
#include "Foundation/NSArray.h"
#include "Foundation/NSDictionary.h"
#include "Foundation/NSEnumerator.h"
#include "Source/KorTemplateCallableFunction.h"
#include "Source/KorTemplateCallbackStream.h"
#include "Source/KorTemplateExternalFunction.h"
#include "Source/KorTemplateObserver.h"
#include "Tests/Source/HostClasses.h"

namespace tavlo {

namespace test {

// What the host converts itself.
struct CalledRow {
  static const std::function<void()>* act;
};
const std::function<void()>* CalledRow::act = nullptr;

}  // namespace test

template <>
struct ValueConversion<test::CalledRow> {
  static Value toValue(const test::CalledRow& /*row*/) {
    (*test::CalledRow::act)();
    return 1;
  }
  static std::optional<test::CalledRow> fromValue(const Value& /*value*/) {
    (*test::CalledRow::act)();
    return test::CalledRow();
  }
  static constexpr const char* kTypeName = "row";
  static constexpr const char* kExpected = "NSNumber";
};

}  // namespace tavlo

namespace tavlo::test {

namespace {

using namespace std::chrono_literals;

// An object whose class calls the host for all that it is asked.
struct Called {
  int call() const {
    (*act)();
    return 1;
  }
  const std::function<void()>* act;
  CalledRow row = {};
  std::optional<CalledRow> maybe = CalledRow();
  std::tuple<CalledRow, CalledRow, CalledRow, CalledRow, CalledRow, CalledRow> several = {};
};

void describeHostClass(HostClass<Called>& called) {
  called.name("Called")
      .property("price", &Called::call)
      .property("row", &Called::row)
      .property("maybe", &Called::maybe)
      .property("several", &Called::several)
      .method("weigh", &Called::call)
      .description([](const Called& each) { return each.call() == 1 ? "text" : ""; })
      .lessThan([](const Called& left, const Called& /*right*/) { return left.call() == 1; })
      .equal([](const Called& left, const Called& right) { return left.call() != right.call(); },
             [](const Called& each) { return static_cast<std::size_t>(each.call()); });
}

// The same for a class that derives from the root of all objects, and its walk.
class CalledObject final : public NSObject {
 public:
  explicit CalledObject(const std::function<void()>& act) : act_(act) {}

  void describe(Description& out) const override { out.part(after("text")); }
  bool isEqual(const NSObject& /*other*/, std::int32_t /*depth*/) const override { return after(false); }
  std::size_t hash() const override { return after(1); }
  std::optional<bool> isLessThan(const Value& /*other*/) const override { return after(true); }
  std::optional<bool> isGreaterThan(const Value& /*other*/) const override { return after(true); }
  Value valueForKey(const NSString& /*key*/) const override { return after(1); }
  Ref<NSEnumerator> objectEnumerator() const override { return after(makeRef<Walk>(*this)); }

 private:
  class Walk final : public NSEnumerator {
   public:
    explicit Walk(const CalledObject& walked) : walked_(walked) {}
    Value nextObject() override { return walked_.after(Value(1)); }

   private:
    const CalledObject& walked_;
  };

  template <class T>
  T after(T answer) const {
    act_();
    return answer;
  }

  const std::function<void()>& act_;
};

// A list of a host's own that calls it for each element.
class CalledList {
 public:
  class Iterator {
   public:
    using difference_type = std::ptrdiff_t;                     // NOLINT(readability-identifier-naming): the standard's
    using value_type = int;                                     // NOLINT(readability-identifier-naming)
    using iterator_category = std::random_access_iterator_tag;  // NOLINT(readability-identifier-naming)

    Iterator() = default;
    Iterator(const CalledList& list, std::size_t at) : list_(&list), at_(at) {}
    int operator*() const { return (*list_)[at_]; }
    Iterator& operator++() {
      ++at_;
      return *this;
    }
    Iterator operator++(int) {
      const Iterator old = *this;
      ++at_;
      return old;
    }
    bool operator==(const Iterator& other) const { return at_ == other.at_; }

   private:
    const CalledList* list_ = nullptr;
    std::size_t at_ = 0;
  };
  using value_type = int;  // NOLINT(readability-identifier-naming)

  explicit CalledList(const std::function<void()>& act) : act_(&act) {}
  std::size_t size() const { return 1'000; }
  int operator[](std::size_t index) const {
    (*act_)();
    return static_cast<int>(index);
  }
  Iterator begin() const { return {*this, 0}; }
  Iterator end() const { return {*this, size()}; }

 private:
  const std::function<void()>* act_;
};

// One that is read by index.
struct CalledVector : std::vector<int> {
  explicit CalledVector(const std::function<void()>& called) : std::vector<int>(1'000), act(&called) {}
  const int& operator[](std::size_t index) const {
    (*act)();
    return std::vector<int>::operator[](index);
  }
  const std::function<void()>* act;
};

// The same for its size and for what is added.
struct CalledTarget : std::vector<int> {
  std::size_t size() const {
    (*act)();
    return std::vector<int>::size();
  }
  iterator insert(const_iterator place, int number) {
    (*act)();
    return std::vector<int>::insert(place, number);
  }
  static const std::function<void()>* act;
};
const std::function<void()>* CalledTarget::act = nullptr;

struct CalledMap : std::unordered_map<std::string, int> {
  std::size_t size() const {
    (*CalledTarget::act)();
    return std::unordered_map<std::string, int>::size();
  }
  void insert_or_assign(std::string key, int number) {
    (*CalledTarget::act)();
    std::unordered_map<std::string, int>::insert_or_assign(std::move(key), number);
  }
};

// A key that calls the host when it is made and when it is read.
struct CalledKey {
  CalledKey() = default;
  explicit CalledKey(std::string_view key) : text(key) { (*CalledTarget::act)(); }
  operator std::string_view() const {  // NOLINT(google-explicit-constructor): keys are texts
    (*CalledTarget::act)();
    return text;
  }
  bool operator<(const CalledKey& other) const { return text < other.text; }
  std::string text;
};

// A text of the host's own.
struct CalledText {
  operator std::string_view() const {  // NOLINT(google-explicit-constructor): that makes it a text
    (*CalledTarget::act)();
    return "text";
  }
};

// Collections of the host's own classes.
class CalledLazyList final : public LazyList {
 public:
  explicit CalledLazyList(const std::function<void()>& act) : act_(act) {}
  std::size_t count() const override { return 50; }
  Value elementAt(std::size_t index, ReusableInstances& /*reused*/) const override {
    act_();
    return index < 50 ? Value(index) : Value();
  }

 private:
  const std::function<void()>& act_;
};

class CalledLazyDictionary final : public LazyDictionary {
 public:
  explicit CalledLazyDictionary(const std::function<void()>& act) : act_(act) {}
  std::size_t count() const override { return 50; }
  Value objectForKey(std::string_view /*key*/) const override {
    act_();
    return 1;
  }
  std::unique_ptr<Walk> walk() const override { return std::make_unique<CalledWalk>(act_); }

 private:
  class CalledWalk final : public Walk {
   public:
    explicit CalledWalk(const std::function<void()>& act) : act_(act) {}
    bool next(std::string_view& key, Value& value, ReusableInstances& /*reused*/) override {
      act_();
      key_ = "key" + std::to_string(count_);
      key = key_;
      value = 1;
      return ++count_ <= 50;
    }

   private:
    const std::function<void()>& act_;
    std::string key_;
    int count_ = 0;
  };

  const std::function<void()>& act_;
};

// One that calls the host for all that goes through it.
class CalledStream final : public KorTemplateStream {
 public:
  explicit CalledStream(const std::function<void()>& act) : act_(act) {}
  void write(const Text& /*text*/) override { act_(); }
  void flush() override { act_(); }

 private:
  const std::function<void()>& act_;
};

// What the host does may take any time: where that is over behind one call, there is no other.
TEST(ASlowHost, IsNotCalledOnceTheTimeIsOverOrTheExecutionCancelled) {
  const char* const texts[] = {
      "<? foreach ($e in $endless) ?><? f() ?><? endforeach ?>",
      "<? foreach ($e in $endless) ?><? weigh() ?><? endforeach ?>",
      "<? foreach ($e in $endless) ?><? $x = $called.price ?><? endforeach ?>",
      "<? foreach ($e in $endless) ?><? $x = $called < $other ?><? endforeach ?>",
      "<? foreach ($e in $endless) ?><? $x = $called == $other ?><? endforeach ?>",
      "<? foreach ($e in $endless) ?><? $x = \"\" + $called ?><? endforeach ?>",
      "<? foreach ($e in $list) ?><? endforeach ?>",
      "<? foreach ($e in $made) ?><? endforeach ?>",
      "<? foreach ($e in $endless) ?><? $x = $dictionary.key ?><? endforeach ?>",
      "<?= $list.@sum ?>",
      "<?= $callers.@sum.price ?>",
      "<? foreach ($e in $callers.@distinctUnionOfObjects) ?><? endforeach ?>",
      "<? foreach ($e in $endless) ?>a<? endforeach ?>",
      "<? foreach ($e in $endless) ?><? $x = $object.key ?><? endforeach ?>",
      "<? foreach ($e in $endless) ?><? $x = $object < 1 ?><? endforeach ?>",
      "<? foreach ($e in $endless) ?><? $x = $object > 1 ?><? endforeach ?>",
      "<? foreach ($e in $endless) ?><? $x = $object == $otherObject ?><? endforeach ?>",
      "<? foreach ($e in $endless) ?><? $x = \"\" + $object ?><? endforeach ?>",
      "<? foreach ($e in $object) ?><? endforeach ?>",
      "<?= \"\" + $objects ?>",
      "<? $x = $objects.key ?>",
      "<?= $objects.@max ?>",
      "<?= $objects.@min ?>",
      "<? foreach ($e in $objects.@distinctUnionOfObjects) ?><? endforeach ?>",
      "<?= $box ?>",
      "<? take($box) ?>",
      "<?= $callers.row.@count ?>",
      "<?= $callers.maybe.@count ?>",
      "<?= $called.several ?>",
      "<? takeSeveral(1, 2, 3, 4, 5, 6) ?>",
      "<? takeTuple($six) ?>",
      "<?= $rows ?>",
      "<?= $rows == $sameRows ?>",
      "<?= $rows.@max ?>",
      "<?= $namedRows ?>",
      "<?= $hashedRows ?>",
      "<?= $namedRows == $hashedRows ?>",
      "<? foreach ($e in $endless) ?><? $x = $namedRows.key1 ?><? endforeach ?>",
      "<?= $texts ?>",
      "<?= $ownList ?>",
      "<?= $ownList == $ownList2 ?>",
      "<? take($ownList) ?>",
      "<?= $ownList.@sum ?>",
      "<?= $ownDictionary ?>",
      "<?= $ownDictionary == $ownDictionary2 ?>",
      "<? fillMap($ownDictionary) ?>",
      "<? foreach ($e in $endless) ?><? $x = $ownDictionary.key ?><? endforeach ?>",
      "<? $x = box() ?>",
      "<? $x = boxes() ?>",
      "<?= $counted.@sum.@count ?>",
      "<?= $targets.@sum.@count ?>",
      "<?= $maps.@sum.@count ?>",
      "<?= $maps ?>",
      "<?= $keyed.@sum.@count ?>",
      "<?= $keyed ?>",
      "<?= $keyed == $otherKeyed ?>",
      "<? foreach ($begun in $sequences) ?><? foreach ($e in $begun) ?><? endforeach ?><? endforeach ?>",
      "<? fill($numbers) ?>",
      "<? fillMap($fields) ?>",
      "<? fillKeys($fields) ?>",
      "<? foreach ($e in $calledKeys) ?><? endforeach ?>",
      "<? foreach ($e in $endless) ?><? $x = $unknown ?><? endforeach ?>",
      "<? foreach ($e in $endless) ?><? $x = $fields.unknown ?><? endforeach ?>",
      "<? foreach ($e in $endless) ?><? $x = unknown() ?><? endforeach ?>",
      "<? function f() ?><?= 1 / 0 ?><? endfunction ?><? foreach ($e in $endless) ?><? $x = f() ?><? endforeach ?>",
  };
  for (const bool isCancelled : {false, true}) {
    for (const char* const text : texts) {
      int calls = 0;
      KorTemplateLimits limits;
      limits.time = 20ms;
      const Stage stage;
      const Ref<KorTemplateCancellation> cancellation = KorTemplateCancellation::cancellation();
      const std::function<void()> act = [&] {
        if (++calls != 3) return;
        if (isCancelled) return cancellation->cancel();
        std::this_thread::sleep_for(30ms);
      };
      Called called{&act};
      stage.set("endless", lazySequence([] { return std::optional<int>(1); }));
      stage.set("called", hostReference(called));
      stage.set("other", valueOf(Called{&act}));
      stage.set("callers", valueOf(std::vector<Called>(200, called)));
      stage.set("list", lazyList([] { return std::size_t{100'000}; },
                                 [&](std::size_t index) {
                                   act();
                                   return index;
                                 }));
      stage.set("made", lazySequence([&] {
                  act();
                  return std::optional<int>(1);
                }));
      stage.set("dictionary", lazyDictionary(
                                  [&](std::string_view /*key*/) {
                                    act();
                                    return 1;
                                  },
                                  [] { return std::vector<std::string>{"key"}; }));
      CalledTarget::act = &act;
      CalledRow::act = &act;
      const CalledTarget target;
      const CalledMap map;
      std::vector<Value> counted;
      std::vector<Value> keyed;
      std::vector<Value> sequences;
      std::vector<Value> targets;
      std::vector<Value> maps;
      for (int count = 0; count < 50; ++count) {
        counted.push_back(lazyList(
            [&] {
              act();
              return std::size_t{0};
            },
            [](std::size_t index) { return index; }));
        keyed.push_back(lazyDictionary([](std::string_view /*key*/) { return std::optional<int>(); },
                                       [&] {
                                         act();
                                         return std::vector<std::string>{};
                                       }));
        sequences.push_back(lazySequence([&] {
          act();
          return [] { return std::optional<int>(); };
        }));
        targets.push_back(lazyList(target));
        maps.push_back(lazyDictionary(map));
      }
      stage.set("counted", NSArray::arrayWithObjects(counted));
      stage.set("keyed", NSArray::arrayWithObjects(keyed));
      stage.set("otherKeyed", NSArray::arrayWithObjects(std::vector<Value>(keyed.rbegin(), keyed.rend())));
      stage.set("sequences", NSArray::arrayWithObjects(sequences));
      stage.set("targets", NSArray::arrayWithObjects(targets));
      stage.set("maps", NSArray::arrayWithObjects(maps));
      stage.set("numbers", valueOf(std::vector<int>(50, 1)));
      stage.set("six", valueOf(std::vector<int>(6, 1)));
      stage.environment->setFunction("takeSeveral",
                                     [](CalledRow, CalledRow, CalledRow, CalledRow, CalledRow, CalledRow) {});
      stage.environment->setFunction(
          "takeTuple", [](const std::tuple<CalledRow, CalledRow, CalledRow, CalledRow, CalledRow, CalledRow>&) {});
      stage.environment->setFunction("fill", [](const CalledTarget& /*numbers*/) {});
      stage.environment->setFunction("fillMap", [](const CalledMap& /*numbers*/) {});
      stage.environment->setFunction("fillKeys", [](const std::map<CalledKey, int>& /*numbers*/) {});
      stage.set("calledKeys",
                lazyDictionary([](std::string_view /*key*/) { return 1; }, [] { return std::vector<CalledKey>(50); }));
      stage.set("object", makeRef<CalledObject>(act));
      stage.set("otherObject", makeRef<CalledObject>(act));
      std::vector<Value> objects;
      for (int count = 0; count < 200; ++count) objects.emplace_back(makeRef<CalledObject>(act));
      stage.set("objects", NSArray::arrayWithObjects(objects));
      const Ref<NSMutableDictionary> fields = NSMutableDictionary::dictionary();
      for (int count = 0; count < 50; ++count) fields->setObjectForKey(count, "key" + std::to_string(count));
      stage.set("fields", fields);
      const Ref<KorTemplateObserver> observer = KorTemplateObserver::observer();
      observer->setCallback([&](const KorTemplateObservation&) { act(); });
      stage.environment->setObserver(observer);
      stage.environment->setDiagnosticCallback([&](const KorTemplateFailure&) { act(); });
      stage.environment->setErrorStream(makeRef<CalledStream>(act));
      const CalledList box(act);
      const CalledVector vector(act);
      stage.environment->setGlobal("box", std::cref(vector));
      const std::vector<CalledRow> rows(50);
      std::map<std::string, CalledRow> namedRows;
      for (int count = 0; count < 50; ++count) namedRows["key" + std::to_string(count)] = CalledRow();
      const std::unordered_map<std::string, CalledRow> hashedRows(namedRows.begin(), namedRows.end());
      const std::vector<CalledText> rowTexts(50);
      stage.environment->setGlobal("rows", std::cref(rows));
      stage.environment->setGlobal("sameRows", std::cref(rows));
      stage.environment->setGlobal("namedRows", std::cref(namedRows));
      stage.environment->setGlobal("hashedRows", std::cref(hashedRows));
      stage.environment->setGlobal("texts", std::cref(rowTexts));
      for (const char* const name : {"ownList", "ownList2"}) stage.set(name, makeRef<CalledLazyList>(act));
      for (const char* const name : {"ownDictionary", "ownDictionary2"}) {
        stage.set(name, makeRef<CalledLazyDictionary>(act));
      }
      stage.environment->setFunction("take", [](const std::vector<int>& /*numbers*/) {});
      stage.environment->setFunction("box", [&] { return box; });
      stage.environment->setFunction("boxes", [&] { return std::map<std::string, CalledList>{{"a", box}}; });
      stage.environment->setFunction("f", act);
      stage.environment->setFunctionForName(KorTemplateExternalFunction::functionWithSelectorTarget("weigh", called),
                                            "weigh");
      stage.environment->setOutputStream(
          KorTemplateCallbackStream::streamWithCallback([&](std::string_view) { act(); }));
      if (isCancelled) stage.environment->setCancellation(cancellation);
      if (!isCancelled) stage.environment->setLimits(limits);
      EXPECT_THROW(stage.run(text), KorTemplateLimitException) << text;
      EXPECT_LE(calls, 4) << text << (isCancelled ? ", cancelled" : "");
    }
  }
}

// Its streams deliver behind the time what they have gathered, which is told.
TEST(ASlowHost, DeliversWhatItsStreamsHaveGathered) {
  for (const int streams : {1, 20}) {
    int flushes = 0;
    const std::function<void()> act = [&] {
      ++flushes;
      std::this_thread::sleep_for(3ms);
    };
    const Stage stage;
    stage.environment->setFunction("replace", [&] { stage.environment->setOutputStream(makeRef<CalledStream>(act)); });
    stage.environment->setFunction("wait", [] { std::this_thread::sleep_for(30ms); });
    KorTemplateLimits limits;
    limits.time = 20ms;
    stage.environment->setLimits(limits);
    std::string text;
    for (int count = 0; count < streams; ++count) text += "<? replace() ?>";
    const std::string ending = streams == 1 ? "<? wait() ?>" : "";
    EXPECT_THROW(stage.run(text + ending), KorTemplateLimitException) << streams;
    EXPECT_EQ(flushes, streams);
  }
}

// The same for the host's own nodes.
TEST(ASlowHost, IsNotAskedForMoreNodesOnceTheTimeIsOver) {
  for (const bool isStatement : {false, true}) {
    int calls = 0;
    const std::function<void()> act = [&] {
      ++calls;
      std::this_thread::sleep_for(30ms);
    };
    const Ref<KorTemplate> made = KorTemplate::compile("");
    for (int count = 0; count < 50; ++count) {
      if (isStatement) {
        made->addStatement(makeRef<HostStatement>([&](KorTemplateEnvironment*) { act(); }));
      } else {
        made->addStatement(KorTemplateExpressionStatement::statementWithExpression(
            makeRef<HostExpression>([&](KorTemplateEnvironment*) {
              act();
              return 1;
            })));
      }
    }
    const Stage stage;
    KorTemplateLimits limits;
    limits.time = 20ms;
    stage.environment->setLimits(limits);
    EXPECT_THROW(made->executeWithEnvironment(stage.get()), KorTemplateLimitException);
    EXPECT_EQ(calls, 1) << isStatement;
  }
}

}  // namespace

}  // namespace tavlo::test
