#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include "Foundation/NSArray.h"
#include "Tests/Memory/WorkBound.h"
#include "Tests/Source/HostClasses.h"

// What frames remember of the frames below, and what it costs.
namespace tavlo::test {

namespace {

// A function "deep" of so many calls inside one another, none of whose scopes holds a variable, around the text.
void runInsideEmptyScopes(const Stage& stage, int depth, const std::string& text) {
  const Ref<KorTemplate> innermost = KorTemplate::compile(text);
  int left = depth;
  stage.define("innermost", [&](KorTemplateEnvironment* environment, ListArgument<Value>) -> Value {
    innermost->executeWithEnvironment(environment);
    return NSNull::null();
  });
  stage.define("goesOn", [&](auto&&...) -> Value { return --left > 0; });
  stage.run(
      "<? function deep() ?><? if (goesOn()) ?><? deep() ?><? else ?><? innermost() ?><? endif ?><? endfunction ?>"
      "<? deep() ?>");
}

// The processor time of a loop in an environment whose scope lies above so many empty ones.
double secondsAboveEmptyScopes(int depth, const std::string& body) {
  const Ref<KorTemplate> compiled = KorTemplate::compile("<? foreach ($e in $list) ?>" + body + "<? endforeach ?>");
  double least = 1e9;
  for (int round = 0; round < 3; ++round) {
    const Stage stage;
    stage.set("list", NSArray::arrayWithObjects(std::vector<Value>(2000, Value(1))));
    stage.set("global", 1);
    for (int scope = 0; scope < depth; ++scope) stage.environment->stack()->push(KorTemplateStackFrame::stackFrame());
    const double start = processorSeconds();
    compiled->executeWithEnvironment(stage.get());
    least = std::min(least, processorSeconds() - start);
  }
  return least;
}

// With a walk through all empty scopes behind every assignment the deep ones would take hundreds of times as long.
TEST(FrameLinks, CostNothingWhereManyScopesAssignAboveManyEmptyOnes) {
  const std::string bodies[] = {
      "<? if ($global) ?><? $a = $global ?><? $b = $global ?><? endif ?><? if ($global) ?><? $c = $global ?><? endif "
      "?>",
      "<? if ($global) ?><? if ($global) ?><? $a = $global ?><? endif ?><? $b = $global ?><? endif ?><? $c = $global "
      "?>",
      "<? if ($global) ?><? if ($global) ?><? endif ?><? if ($global) ?><? $d = $global ?><? endif ?><? endif ?>",
  };
  for (const std::string& body : bodies) {
    const double shallow = secondsAboveEmptyScopes(2, body);
    EXPECT_LT(secondsAboveEmptyScopes(100'000, body), 10 * shallow + 0.02) << body;
  }
}

TEST(FrameLinks, AreRightWhereScopesAssignAboveManyEmptyOnes) {
  const Stage stage;
  stage.set("global", "g");
  runInsideEmptyScopes(
      stage, 100,
      "<? if (true) ?><? if (true) ?><?= $a ?><? endif ?><? $a = 1 ?><?= $global ?>"
      "<? if (true) ?><?= $a ?><? $a = 2 ?><?= $a ?><?= $global ?><? endif ?><?= $a ?><? endif ?>[<?= $a ?>]");
  EXPECT_EQ(stage.text(), "g12g1[]");
}

// Popped frames that a host keeps have no frame below them any more, in whatever order they and the stack are dropped.
TEST(FrameLinks, AreGoneFromFramesThatAHostKeeps) {
  const std::vector<std::vector<std::size_t>> orders = {{0, 1, 2}, {2, 1, 0}, {1, 0, 2},
                                                        {1, 2, 0}, {0, 2, 1}, {2, 0, 1}};
  for (const std::vector<std::size_t>& order : orders) {
    for (const int pops : {0, 1, 2, 3}) {
      Ref<KorTemplateStack> stack = KorTemplateStack::stack();
      std::vector<Ref<KorTemplateStackFrame>> frames;
      for (const char* name : {"a", "b", "c"}) {
        frames.push_back(KorTemplateStackFrame::stackFrame());
        stack->push(frames.back());
        frames.back()->setValueForVariableWithName(std::string(100, 'x'), name);
      }
      EXPECT_TRUE(frames[2]->isVariableDefinedWithName("a"));
      for (int pop = 0; pop < pops; ++pop) stack->pop();
      stack = nullptr;
      for (const std::size_t index : order) {
        for (const Ref<KorTemplateStackFrame>& frame : frames) {
          if (frame == nullptr) continue;
          int found = 0;
          for (const char* name : {"a", "b", "c"}) found += frame->isVariableDefinedWithName(name) ? 1 : 0;
          EXPECT_EQ(found, 1) << "behind " << pops << " pops";
          EXPECT_EQ(frame->parentFrame(), nullptr) << "behind " << pops << " pops";
        }
        frames[index] = nullptr;
      }
    }
  }
}

// The number that the value is; -1 for an absent one.
int numberIn(const Value& value) {
  return value.isAbsent() ? -1 : value.intValue();
}

// What a lookup must find: the number in the nearest of the frames, from the last one down, that has the name.
int numberByWalking(const std::vector<Ref<KorTemplateStackFrame>>& frames, const Name& name) {
  for (auto frame = frames.rbegin(); frame != frames.rend(); ++frame) {
    if (const Value value = (*frame)->valueForLocalVariableWithName(name); !value.isAbsent()) return numberIn(value);
  }
  return -1;
}

// Frames are pushed and popped, and gain and lose variables at every height, while lookups remember what they passed.
TEST(FrameLinks, FindInDeepStacksWhatAWalkThroughAllFramesFinds) {
  std::mt19937 random(7);
  const auto below = [&random](std::size_t bound) { return static_cast<std::size_t>(random() % bound); };
  std::vector<Name> names;
  for (int index = 0; index < 100; ++index) names.emplace_back("name" + std::to_string(index));
  const Ref<KorTemplateStack> stack = KorTemplateStack::stack();
  std::vector<Ref<KorTemplateStackFrame>> frames;
  std::vector<Ref<KorTemplateStackFrame>> popped;
  for (int step = 0; step < 60'000; ++step) {
    const std::size_t action = below(16);
    const std::size_t depth = 100 + 200 * (static_cast<std::size_t>(step) / 5'000 % 3);
    if (frames.empty() || (action < 5 && frames.size() < depth)) {
      const bool isOld = !popped.empty() && below(2) == 0;
      frames.push_back(isOld ? popped.back() : KorTemplateStackFrame::stackFrame());
      if (isOld) popped.pop_back();
      stack->push(frames.back());
    } else if (action < 7 || frames.size() > depth) {
      stack->pop();
      popped.push_back(frames.back());
      frames.pop_back();
    } else if (action == 7) {
      frames[below(frames.size())]->setValueForVariableWithName(step, names[below(names.size())]);
    } else if (action == 8) {
      frames.back()->setValueForVariableWithName(step, names[below(4)]);
    } else {
      const Name& name = names[below(names.size())];
      ASSERT_EQ(numberIn(frames.back()->valueForVariableWithName(name)), numberByWalking(frames, name)) << step;
    }
    if (!popped.empty() && below(50) == 0) {
      const Name& name = names[below(names.size())];
      const Ref<KorTemplateStackFrame>& alone = popped[below(popped.size())];
      ASSERT_EQ(numberIn(alone->valueForVariableWithName(name)), numberIn(alone->valueForLocalVariableWithName(name)))
          << step;
    }
  }
}

// Scopes are used again with the names that stood in them, of which more and more are other ones.
TEST(FrameLinks, FindANameThatComesBackAmongManyNewOnes) {
  const Stage stage;
  std::string functions;
  std::string calls;
  for (int index = 0; index < 100; ++index) {
    const std::string name = "f" + std::to_string(index);
    functions += "<? function " + name + "($" + name + ", $same) ?><? if (true) ?><? $own = 1 ?><?= $same ?>";
    functions += "<? endif ?><? endfunction ?>";
    calls += "<? " + name + "(0, \"x\") ?>";
  }
  stage.run(functions + calls);
  EXPECT_EQ(stage.text(), std::string(100, 'x'));
}

TEST(FrameLinks, ThatLeadBackEndAReadingAllTheSame) {
  for (const bool hasVariables : {false, true}) {
    const Ref<KorTemplateStackFrame> first = KorTemplateStackFrame::stackFrame();
    const Ref<KorTemplateStackFrame> second = KorTemplateStackFrame::stackFrame();
    if (hasVariables) first->setValueForVariableWithName(1, "a");
    if (hasVariables) second->setValueForVariableWithName(2, "b");
    const Ref<KorTemplateStack> stack = KorTemplateStack::stack();
    for (const Ref<KorTemplateStackFrame>& frame : {first, second, first}) stack->push(frame);
    EXPECT_EQ(first->parentFrame(), second.get());
    EXPECT_EQ(second->parentFrame(), first.get());
    EXPECT_TRUE(first->valueForVariableWithName("missing").isAbsent());
    EXPECT_FALSE(second->isVariableDefinedWithName("missing"));
    EXPECT_EQ(first->isVariableDefinedWithName("b"), hasVariables);
    const Stage stage;
    stage.environment->setStack(stack);
    stage.run("<?= $missing ?>,<? if ($missing) ?>a<? else ?>b<?= $missing + 1 ?><? endif ?>");
    EXPECT_EQ(stage.text(), ",b<null>1");
  }
}

}  // namespace

}  // namespace tavlo::test
