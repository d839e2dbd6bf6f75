#include <gtest/gtest.h>

#include "Foundation/NSArray.h"
#include "Foundation/NSEnumerator.h"
#include "Source/KorTemplateEnumerationStatement.h"
#include "Tests/Source/HostClasses.h"

// What a host does to scopes while a template runs in them.
namespace tavlo::test {

namespace {

// A stack with that many frames.
Ref<KorTemplateStack> stackOf(int frames) {
  const Ref<KorTemplateStack> stack = KorTemplateStack::stack();
  for (int frame = 0; frame < frames; ++frame) stack->push(KorTemplateStackFrame::stackFrame());
  return stack;
}

// Yields the numbers up to 3, and runs a host's code before each.
class RunningEnumerator final : public NSEnumerator {
 public:
  explicit RunningEnumerator(std::function<void(int)> body) : body_(std::move(body)) {}
  Value nextObject() override {
    body_(++number_);
    return number_ > 3 ? Value() : Value(number_);
  }

 private:
  std::function<void(int)> body_;
  int number_ = 0;
};

class RunningCollection final : public NSObject {
 public:
  explicit RunningCollection(std::function<void(int)> body) : body_(std::move(body)) {}
  Ref<NSEnumerator> objectEnumerator() const override { return makeRef<RunningEnumerator>(body_); }

 private:
  std::function<void(int)> body_;
};

TEST(ALoopWithoutAStack, PopsTheStackThatItsBodyPutsIn) {
  struct Row {
    int frames;  // of the stack that is put in
    const char* written;
    const char* raised;
    int framesLeft;
  };
  const std::string empty = failedAssertion("Stack frame is empty");
  const Row rows[] = {
      {0, "1", empty.c_str(), 0}, {1, "123", "nothing", 0}, {2, "123", "nothing", 1}, {5, "123", "nothing", 4}};
  for (const Row& row : rows) {
    const Stage stage;
    const Ref<KorTemplateStack> next = stackOf(row.frames);
    int iterations = 0;
    const Ref<KorTemplateEnumerationStatement> loop = makeRef<KorTemplateEnumerationStatement>();
    loop->setExpression(literal(NSArray::arrayWithObjects({1, 2, 3})));
    loop->addLoopStatement(makeRef<HostStatement>([&](KorTemplateEnvironment* environment) {
      environment->setStack(next);
      output(++iterations)->executeWithEnvironment(environment);
    }));
    stage.environment->setStack(nullptr);
    EXPECT_EQ(raisedBy([&] { loop->executeWithEnvironment(stage.get()); }), row.raised) << row.frames;
    EXPECT_EQ(stage.text(), row.written) << row.frames;
    EXPECT_EQ(next->frames().count(), row.framesLeft) << row.frames;
  }
}

TEST(ALoopWithoutAStack, OpensItsScopesOnTheStackThatAnEnumeratorPutsIn) {
  for (const int when : {1, 2, 3, 4}) {
    const Stage stage;
    const Ref<KorTemplateStack> next = stackOf(0);
    stage.set("list", makeRef<RunningCollection>([&](int number) {
                if (number == when) stage.environment->setStack(next);
              }));
    const Ref<KorTemplate> loop = KorTemplate::compile("<? foreach ($e in $list) ?>[<?= $e ?>]<? endforeach ?>");
    const Value list = stage.global("list");
    as<KorTemplateEnumerationStatement>(loop->statements()[0]).setExpression(literal(list));
    stage.environment->setStack(nullptr);
    loop->executeWithEnvironment(stage.get());
    const char* const written[] = {"[1][2][3]", "[][2][3]", "[][][3]", "[][][]"};
    EXPECT_EQ(stage.text(), written[when - 1]) << when;
    EXPECT_EQ(next->frames().count(), 0) << when;
  }
}

// The frame that stands where the loop's own stood may be the very same object.
TEST(ALoopWhoseScopeIsExchanged, BindsTheNextElementAllTheSame) {
  struct Row {
    const char* what;
    void (*exchange)(KorTemplateStack& stack);
  };
  const Row rows[] = {
      {"for one of the engine",
       [](KorTemplateStack& stack) {
         stack.pop();
         (void)stack.pushNew();
       }},
      {"for itself",
       [](KorTemplateStack& stack) {
         const Ref<KorTemplateStackFrame> frame = stack.currentFrame();
         stack.pop();
         stack.push(frame);
       }},
      {"for one of the host's",
       [](KorTemplateStack& stack) {
         stack.pop();
         stack.push(KorTemplateStackFrame::stackFrame());
       }},
      {"twice",
       [](KorTemplateStack& stack) {
         stack.pop();
         (void)stack.pushNew();
         stack.pop();
         (void)stack.pushNew();
       }},
      {"for one on top of another",
       [](KorTemplateStack& stack) {
         stack.pop();
         (void)stack.pushNew();
         (void)stack.pushNew();
         stack.pop();
       }},
  };
  for (const Row& row : rows) {
    const Stage stage;
    stage.set("list", NSArray::arrayWithObjects({"a", "b", "c"}));
    stage.define("exchange", [&](KorTemplateEnvironment* environment, ListArgument<Value>) -> Value {
      row.exchange(*environment->stack());
      return NSNull::null();
    });
    stage.run(
        "<? foreach ($e in $list) ?><?= @@index ?><?= $e ?><? exchange() ?><? $x = $e ?><? endforeach ?>[<?= $x ?>]");
    EXPECT_EQ(stage.text(), "0a1b2c[]") << row.what;
    EXPECT_EQ(stage.depth(), 1) << row.what;
  }
}

TEST(AScopesEnd, LetsItsVariablesUseTheStack) {
  struct Row {
    const char* what;
    const char* text;  // a scope that holds a variable whose end runs the host's code
  };
  const Row rows[] = {
      {"of a branch", "<? if (true) ?><? $x = make() ?><? endif ?>"},
      {"of a loop", "<? foreach ($e in $one) ?><? $x = make() ?><? endforeach ?>"},
      {"of a function", "<? function f($x) ?><? $y = 1 ?><? endfunction ?><? f(make()) ?>"},
      {"of a list in a branch", "<? if (true) ?><? $x = makeList() ?><? $y = 1 ?><? endif ?>"},
      {"of a branch that fails", "<? function f() ?><? $x = make() ?><? 1 / 0 ?><? endfunction ?><? f() ?>"},
  };
  for (const Row& row : rows) {
    const Stage stage;
    int ends = 0;
    const auto end = [&] {
      ++ends;
      stage.run("<? if (true) ?><? $y = \"i\" ?><? if (true) ?><? $z = \"n\" ?><?= $y + $z ?><? endif ?><? endif ?>");
      const Ref<KorTemplateStack>& stack = stage.environment->stack();
      stack->push(KorTemplateStackFrame::stackFrame());
      stack->currentFrame()->setValueForVariableWithName("kept", "y");
      stage.run("(<?= $y ?>)");
      stack->pop();
    };
    stage.define("make", [&](auto&&...) -> Value { return makeRef<EndingObject>(end); });
    stage.define("makeList",
                 [&](auto&&...) -> Value { return NSArray::arrayWithObjects({makeRef<EndingObject>(end)}); });
    stage.set("one", NSArray::arrayWithObjects({1}));
    stage.run(row.text);
    EXPECT_EQ(ends, 1) << row.what;
    EXPECT_EQ(stage.text(), "in(kept)") << row.what;
    EXPECT_EQ(stage.depth(), 1) << row.what;
    stage.run("<? if (true) ?>[<?= $x ?><?= $y ?><?= $z ?>]<? endif ?>");
    EXPECT_EQ(stage.text(), "in(kept)[]") << row.what;
  }
}

// The last of the two is what ends the object, and the loop's own scope is gone then.
TEST(AScopesEnd, MayTakeTheScopeOfALoopWhereTwoOfItsVariablesHoldOneObject) {
  for (const char* body : {"<? $y = make() ?><? $z = $y ?>", "<? $x = make() ?><? $z = $x ?>", "<? $x = make() ?>"}) {
    const Stage stage;
    int ends = 0;
    stage.define("make", [&](auto&&...) -> Value {
      return makeRef<EndingObject>([&] {
        ++ends;
        const Ref<KorTemplateStack>& stack = stage.environment->stack();
        const Ref<KorTemplateStackFrame> kept = stack->currentFrame();
        while (stack->currentFrame() != nullptr) stack->pop();
        stack->push(kept);
      });
    });
    stage.set("list", NSArray::arrayWithObjects({1, 2, 3}));
    stage.run(std::string("<? foreach ($x in $list) ?>") + body + "<? endforeach ?>");
    EXPECT_GE(ends, 1) << body;
  }
}

TEST(AScopesEnd, LeavesTheScopeThatAVariableOpensMeanwhile) {
  const Stage stage;
  stage.define("make", [&](auto&&...) -> Value {
    return makeRef<EndingObject>([&] {
      const Ref<KorTemplateStackFrame> frame = KorTemplateStackFrame::stackFrame();
      stage.environment->stack()->push(frame);
      frame->setValueForVariableWithName("kept", "y");
    });
  });
  stage.run("<? if (true) ?><? $a = 1 ?><? $x = make() ?><? $b = 2 ?><? endif ?>[<?= $y ?><?= $x ?>]");
  EXPECT_EQ(stage.text(), "[kept]");
  EXPECT_EQ(stage.depth(), 2);
}

}  // namespace

}  // namespace tavlo::test
