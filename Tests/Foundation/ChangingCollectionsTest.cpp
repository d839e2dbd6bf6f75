#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "Foundation/NSArray.h"
#include "Foundation/NSDictionary.h"
#include "Foundation/NSKeyValueCoding.h"
#include "Foundation/NSSet.h"
#include "Tests/Foundation/HostObjects.h"

// Collections that a host's code changes while they are compared or read.
namespace tavlo::test {

namespace {

// Runs a host's code whenever it is compared or asked for a key; equal to all of its kind.
class Meddler final : public NSObject {
 public:
  explicit Meddler(std::function<void()> meddle) : meddle_(std::move(meddle)) {}
  bool isEqual(const NSObject& other, std::int32_t /*depth*/) const override {
    const std::string before = name_;
    meddle_();
    EXPECT_EQ(name_, before);  // both are still there
    const auto* meddler = dynamic_cast<const Meddler*>(&other);
    return meddler != nullptr && meddler->name_ == name_;
  }
  std::size_t hash() const override { return 1; }
  Value valueForKey(const NSString& /*key*/) const override {
    const std::string before = name_;
    meddle_();
    EXPECT_EQ(name_, before);
    return name_;
  }

 private:
  std::function<void()> meddle_;
  std::string name_ = "a name that is too long for any small buffer";
};

// Two lists that begin with such an object each, the second's end known by a count.
struct TwoLists {
  explicit TwoLists(std::function<void(TwoLists&)> meddle) {
    for (const Ref<NSMutableArray>& list : {left, right}) {
      list->addObject(makeRef<Meddler>([this, meddle] { meddle(*this); }));
      list->addObject(std::string(100, 'x'));
      list->addObject(makeRef<Tracked>(alive));
    }
  }

  int alive = 0;
  Ref<NSMutableArray> left = NSMutableArray::array();
  Ref<NSMutableArray> right = NSMutableArray::array();
};

struct ListRow {
  const char* what;
  std::function<void(TwoLists&)> meddle;
  bool equal;
  int alive;  // objects in the lists, in the end
};

std::vector<ListRow> listRows() {
  return {
      {"clears the left list", [](TwoLists& lists) { lists.left->removeAllObjects(); }, false, 1},
      {"clears the right list", [](TwoLists& lists) { lists.right->removeAllObjects(); }, false, 1},
      {"clears both",
       [](TwoLists& lists) {
         lists.left->removeAllObjects();
         lists.right->removeAllObjects();
       },
       true, 0},
      {"shortens both",
       [](TwoLists& lists) {
         while (lists.left->count() > 1) lists.left->removeObjectAtIndex(1);
         while (lists.right->count() > 1) lists.right->removeObjectAtIndex(1);
       },
       true, 0},
      {"lengthens the left list",
       [](TwoLists& lists) {
         for (int number = 0; number < 100; ++number) lists.left->addObject(number);
       },
       false, 2},
      {"replaces what is compared",
       [](TwoLists& lists) {
         for (std::size_t index = 0; index < 3; ++index) {
           lists.left->replaceObjectAtIndex(index, 1);
           lists.right->replaceObjectAtIndex(index, 1);
         }
       },
       true, 0},
  };
}

TEST(ListsThatChange, AreComparedAsFarAsTheyGo) {
  for (const ListRow& row : listRows()) {
    TwoLists lists(row.meddle);
    EXPECT_EQ(lists.left->isEqual(*lists.right), row.equal) << row.what;
    EXPECT_EQ(lists.alive, row.alive) << row.what;
  }
}

TEST(ListsThatChange, HoldTheListsInsideThemWhileThoseAreCompared) {
  const Ref<NSMutableArray> left = NSMutableArray::array();
  const Ref<NSMutableArray> right = NSMutableArray::array();
  int alive = 0;
  for (const Ref<NSMutableArray>& list : {left, right}) {
    const Value meddler = makeRef<Meddler>([&] {
      left->removeAllObjects();
      right->removeAllObjects();
    });
    list->addObject(NSArray::arrayWithObjects({meddler, std::string(100, 'x'), makeRef<Tracked>(alive)}));
  }
  EXPECT_FALSE(left->isEqual(*right));
  EXPECT_EQ(alive, 0);
}

TEST(DictionariesThatChange, AreComparedAsFarAsTheyGo) {
  struct Row {
    const char* what;
    bool clearsLeft;
    bool clearsRight;
    int alive;
  };
  const Row rows[] = {{"the left one", true, false, 1}, {"the right one", false, true, 1}, {"both", true, true, 0}};
  for (const Row& row : rows) {
    int alive = 0;
    int meddled = 0;
    const Ref<NSMutableDictionary> left = NSMutableDictionary::dictionary();
    const Ref<NSMutableDictionary> right = NSMutableDictionary::dictionary();
    for (const Ref<NSMutableDictionary>& dictionary : {left, right}) {
      dictionary->setObjectForKey(makeRef<Meddler>([&] {
                                    ++meddled;
                                    if (row.clearsLeft) left->removeAllObjects();
                                    if (row.clearsRight) right->removeAllObjects();
                                  }),
                                  "first");
      dictionary->setObjectForKey(makeRef<Tracked>(alive), "second");
    }
    (void)left->isEqual(*right);
    EXPECT_EQ(meddled, 1) << row.what;
    EXPECT_EQ(alive, row.alive) << row.what;
  }
}

TEST(DictionariesThatChange, WhileTheyGrowAreComparedToTheirNewEnd) {
  const Ref<NSMutableDictionary> left = NSMutableDictionary::dictionary();
  const Ref<NSMutableDictionary> right = NSMutableDictionary::dictionary();
  for (const Ref<NSMutableDictionary>& dictionary : {left, right}) {
    dictionary->setObjectForKey(makeRef<Meddler>([&] {
                                  for (int number = 0; number < 100; ++number) {
                                    left->setObjectForKey(number, std::to_string(number));
                                    right->setObjectForKey(number, std::to_string(number));
                                  }
                                  right->setObjectForKey("other", "99");
                                }),
                                "first");
  }
  EXPECT_FALSE(left->isEqual(*right));
  for (const Ref<NSMutableDictionary>& dictionary : {left, right}) dictionary->removeAllObjects();
}

TEST(SetsThatAreLetGoOf, AreHeldWhileTheyAreCompared) {
  const Ref<NSMutableArray> left = NSMutableArray::array();
  const Ref<NSMutableArray> right = NSMutableArray::array();
  int alive = 0;
  for (const Ref<NSMutableArray>& list : {left, right}) {
    const Value meddler = makeRef<Meddler>([&] {
      left->removeAllObjects();
      right->removeAllObjects();
    });
    list->addObject(NSSet::setWithObjects({meddler, makeRef<Tracked>(alive)}));
  }
  (void)left->isEqual(*right);
  EXPECT_EQ(alive, 0);
  EXPECT_EQ(left->count(), 0U);
}

TEST(ListsThatChange, AnswerForTheKeysOfWhatTheyHoldAtEachStep) {
  for (const char* path : {"name", "@unionOfObjects.name", "@sum.length", "@count.x", "@distinctUnionOfObjects.name"}) {
    int alive = 0;
    const Ref<NSMutableArray> list = NSMutableArray::array();
    for (int number = 0; number < 2; ++number) {
      list->addObject(makeRef<Meddler>([&] {
        if (list->count() == 3) list->removeAllObjects();
      }));
    }
    list->addObject(makeRef<Tracked>(alive));
    const Value value = valueForKeyPath(list, path);
    const bool isCount = std::string_view(path) == "@count.x";
    EXPECT_EQ(alive, isCount ? 1 : 0) << path;
    EXPECT_EQ(value.intValue(), isCount ? 3 : 0) << path;
    list->removeAllObjects();
  }
}

}  // namespace

}  // namespace tavlo::test
