#include <gtest/gtest.h>

#include "Foundation/NSArray.h"
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

}  // namespace

}  // namespace tavlo::test
