#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "Foundation/LazyCollections.h"
#include "Foundation/NSArray.h"
#include "Foundation/NSDictionary.h"
#include "Foundation/NSSet.h"
#include "Source/KorTemplateCallableFunction.h"
#include "Tests/Source/HostClasses.h"

namespace tavlo::test {

namespace {

// The loop's scope holds the last reference to an element, or to a variable of its body, and lets go of it between two
// iterations; what then ends exchanges the scope.
void exchangeScopesBetweenIterations(const char* body, const std::function<void(const Stage&)>& exchange) {
  bool isOn = true;
  const Stage stage;
  const Ref<NSMutableArray> list = NSMutableArray::array();
  for (int number = 0; number < 6; ++number) {
    list->addObject(makeRef<EndingObject>([&] {
      if (isOn) exchange(stage);
    }));
  }
  stage.set("list", list);
  stage.define("drop", [&](auto&&...) -> Value {
    if (list->count() > 0) list->removeObjectAtIndex(0);
    return NSNull::null();
  });
  stage.define("make", [&](auto&&...) -> Value {
    return makeRef<EndingObject>([&] {
      if (isOn) exchange(stage);
    });
  });
  (void)raisedBy([&] { stage.run(body); });
  isOn = false;
  list->removeAllObjects();
  EXPECT_EQ(stage.text().substr(0, 2), "01") << body;  // it went on after the first exchange
}

const char* const kBodies[] = {
    "<? foreach ($e in $list) ?><?= @@index ?><? drop() ?><? $x = @@index ?><? endforeach ?>",
    "<? foreach ($e in $list) ?><?= @@index ?><? $x = make() ?><? endforeach ?>",
};

TEST(AnElementThatEnds, MayFreeTheScopeItLayIn) {
  for (const char* body : kBodies) {
    exchangeScopesBetweenIterations(body, [](const Stage& stage) {
      const Ref<KorTemplateStack> stack = stage.environment->stack();
      {
        const Ref<KorTemplateStackFrame> frame = stack->currentFrame();
        stack->pop();
      }
      stack->push(KorTemplateStackFrame::stackFrame());
    });
  }
}

TEST(AnElementThatEnds, MayReplaceTheStack) {
  for (const char* body : kBodies) {
    exchangeScopesBetweenIterations(body, [](const Stage& stage) {
      const Ref<KorTemplateStack> stack = KorTemplateStack::stack();
      stack->push(KorTemplateStackFrame::stackFrame());
      stack->push(KorTemplateStackFrame::stackFrame());
      stage.environment->setStack(stack);
    });
  }
}

TEST(AnElementThatEnds, MayPopAndOpenScopes) {
  for (const char* body : kBodies) {
    exchangeScopesBetweenIterations(body, [](const Stage& stage) {
      stage.environment->stack()->pop();
      (void)stage.environment->stack()->pushNew();
      stage.run("<? if (true) ?><? $y = 1 ?><? endif ?>");
    });
  }
}

TEST(AnElementThatEnds, MayAssignManyVariables) {
  for (const char* body : kBodies) {
    exchangeScopesBetweenIterations(body, [](const Stage& stage) {
      for (int n = 0; n < 30; ++n) {
        stage.environment->stack()->currentFrame()->setValueForVariableWithName(n, "v" + std::to_string(n));
      }
    });
  }
}

// A host's own class of views.
class LentKey {
 public:
  explicit LentKey(std::string_view text) : data_(text.data()), size_(text.size()) {}
  operator std::string_view() const { return {data_, size_}; }  // NOLINT(*-explicit-constructor): as the standard's
  bool operator<(const LentKey& other) const { return std::string_view(*this) < std::string_view(other); }

 private:
  const char* data_;
  std::size_t size_;
};

// The keys of a map that the program empties meanwhile are views of texts that end with their entries.
template <class Map>
std::string loopOverViewsThatEnd() {
  std::map<std::string, std::unique_ptr<std::string>> texts;
  Map map;
  const auto keyOf = [](std::string_view text) { return typename Map::key_type(text); };
  for (const char* key : {"a", "b", "c"}) {
    texts[key] = std::make_unique<std::string>(std::string(60, *key));
    map[keyOf(*texts[key])] = *key;
  }
  const Stage stage;
  stage.environment->setGlobal("map", std::cref(map));
  stage.environment->setFunction("drop", [&](int element) {
    const std::string key(1, static_cast<char>(element));
    map.erase(keyOf(*texts[key]));
    texts.erase(key);
  });
  stage.run("<? foreach ($e in $map) ?>.<? drop($e) ?><? endforeach ?>");
  return stage.text();
}

TEST(AMapsKeysThatAreViews, MayEndWhileALoopGoesOn) {
  EXPECT_EQ((loopOverViewsThatEnd<std::map<std::string_view, int>>()), "...");
  EXPECT_EQ((loopOverViewsThatEnd<std::unordered_map<std::string_view, int>>()), "...");
  struct View : std::string_view {
    using std::string_view::string_view;
    View(std::string_view text) : std::string_view(text) {}  // NOLINT(*-explicit-constructor): as the other
  };
  EXPECT_EQ((loopOverViewsThatEnd<std::map<View, int>>()), "...");
  EXPECT_EQ((loopOverViewsThatEnd<std::map<LentKey, int>>()), "...");
}

// What is shared between threads lends its elements to a loop.

Value sharedListOf(std::vector<Value> elements) {
  const Value list = makeRef<NSArray>(std::move(elements));
  list.share();
  return list;
}

TEST(AnElementOfASharedList, MayBeKeptLongerThanTheList) {
  Ref<KorTemplateStackFrame> frame;
  Ref<KorTemplateStackFrame> copy;
  Value element;
  Value local;
  {
    const Stage stage;
    stage.set("list", sharedListOf({"a text beyond small buffers, on the heap"}));
    stage.define("keep", [&](KorTemplateEnvironment* environment, ListArgument<Value>) -> Value {
      frame = environment->stack()->currentFrame();
      copy = frame->copyWithZone();
      element = frame->valueForVariableWithName("e");
      local = frame->valueForLocalVariableWithName("e");
      return NSNull::null();
    });
    stage.run("<? foreach ($e in $list) ?><? keep() ?><? endforeach ?>");
    stage.set("list", 0);
  }
  const std::string text = "a text beyond small buffers, on the heap";
  EXPECT_EQ(element.description(), text);
  EXPECT_EQ(local.description(), text);
  EXPECT_EQ(copy->valueForVariableWithName("e").description(), text);
  EXPECT_EQ(frame->valueForVariableWithName("e").description(), text);
}

TEST(AnElementOfASharedList, MayBeAssignedAnsweredAndCollected) {
  const Stage stage;
  stage.run("<? function same($x) ?><? return $x ?><? endfunction ?>");
  stage.define("last", [&](KorTemplateEnvironment*, ListArgument<Value> arguments) -> Value {
    stage.set("last", arguments[0]);
    return arguments[0];
  });
  stage.set("list", sharedListOf({NSArray::arrayWithObjects({"one text beyond small buffers, on the heap"}),
                                  NSArray::arrayWithObjects({"another text beyond small buffers"})}));
  stage.run(
      "<? foreach ($e in $list) ?><? foreach ($t in last($e)) ?><? $copy = same($t) ?><? endforeach ?>"
      "<?= @@index ?><? endforeach ?>");
  stage.set("list", 0);
  EXPECT_EQ(stage.text(), "01");
  EXPECT_EQ(stage.global("last").description(), "(\n    \"another text beyond small buffers\"\n)");
}

TEST(AnElementOfASharedList, StandsInItsScopeBesideTheIndexAlone) {
  const Stage stage;
  std::vector<std::string> names;
  stage.define("look", [&](KorTemplateEnvironment* environment, ListArgument<Value>) -> Value {
    const Ref<KorTemplateStackFrame> frame = environment->stack()->currentFrame();
    for (const Ref<KorTemplateStackFrame>& seen : {frame, frame->copyWithZone()}) {
      for (const Name& name : seen->localVariableNames()) names.emplace_back(name.view());
    }
    return NSNull::null();
  });
  stage.set("list", sharedListOf({1}));
  stage.run("<? foreach ($e in $list) ?><? look() ?><? endforeach ?>");
  EXPECT_EQ(names, (std::vector<std::string>{"e", "@@index", "e", "@@index"}));
}

TEST(ASharedCollection, LendsItsElementsWhateverItsKind) {
  const Stage stage;
  const Value set = makeRef<NSSet>(std::vector<Value>{"s"});
  const Value dictionary = NSDictionary::dictionaryWithEntries({{"k", "d"}, {"l", "e"}});
  set.share();
  dictionary.share();
  stage.set("list", sharedListOf({"l", set, dictionary}));
  stage.run(
      "<? foreach ($e in $list) ?><? if (@@index > 0) ?><? foreach ($f in $e) ?>[<?= @@index + $f ?>]"
      "<? $own = $f ?><? endforeach ?><? else ?><?= $e ?><? endif ?><? $own = $e ?><? endforeach ?>");
  EXPECT_EQ(stage.text(), "l[0s][0d][1e]");
}

// The list ends with the scope that a host has made the first one, and its end looks at the scope.
TEST(ASharedCollection, EndsAfterWhatItHasLent) {
  const Stage stage;
  std::string seen;
  const auto end = [&] {
    const Ref<KorTemplateStackFrame> frame = stage.environment->stack()->currentFrame();
    if (frame != nullptr) seen += "[" + frame->valueForVariableWithName("e").description() + "]";
  };
  class SharedEnding final : public NSObject {
   public:
    explicit SharedEnding(std::function<void()> body) : body_(std::move(body)) {}
    ~SharedEnding() override { body_(); }
    bool canBeShared() const override { return true; }

   private:
    std::function<void()> body_;
  };
  stage.set("list", sharedListOf({"a text beyond small buffers, on the heap", makeRef<SharedEnding>(end)}));
  stage.define("leave", [&](KorTemplateEnvironment* environment, ListArgument<Value>) -> Value {
    stage.set("list", 0);
    environment->stack()->currentFrame()->setValueForVariableWithName(0, "after");
    throw std::string("left");
  });
  EXPECT_THROW(stage.run("<? foreach ($e in $list) ?><? leave() ?><? endforeach ?>"), std::string);
  EXPECT_EQ(seen, "[(null)]");
}

}  // namespace

}  // namespace tavlo::test
