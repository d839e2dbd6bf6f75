#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <new>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>

#include "Foundation/LazyCollections.h"
#include "Foundation/NSArray.h"
#include "Source/KorTemplateCallableFunction.h"
#include "Source/KorTemplateReturnIndication.h"
#include "Tests/Source/HostClasses.h"

namespace tavlo::test {

namespace {

using testing::IsEmpty;

// What callables throw

// Of no family at all.
struct Foreign {
  int number;
};

// The kind of exception that a run ends with; "none" where it goes on.
std::string endOf(const Stage& stage, const char* text) {
  try {
    stage.run(text);
  } catch (const KorTemplateLimitException&) {
    return "limit";
  } catch (const NSException&) {
    return "family";
  } catch (const std::bad_alloc&) {
    return "memory";
  } catch (const std::length_error&) {
    return "length";
  } catch (const std::exception&) {
    return "standard";
  } catch (int number) {
    return "int " + std::to_string(number);
  } catch (const Foreign& foreign) {
    return "foreign " + std::to_string(foreign.number);
  }
  return "none";
}

TEST(AThrowingCallable, LeavesTheEnvironmentUsableWhateverItThrows) {
  struct Row {
    const char* what;
    std::function<void()> action;
    const char* end;
    const char* diagnostics;
  };
  const Row rows[] = {
      {"the family's", [] { throw NSException("Boom", "bang"); }, "none", "bang"},
      {"one without a reason", [] { throw NSException("Boom"); }, "none", "Boom"},
      {"the standard's", [] { throw std::runtime_error("what"); }, "none", "what"},
      {"a return", [] { throw KorTemplateReturnIndication::indicationWithReturnValue(1); }, "none",
       "KorTemplateReturnIndication"},
      {"an empty function", [] { std::function<void()>()(); }, "none", "bad_function_call"},
      {"a limit", [] { raiseLimit(KorTemplateLimit::ValueDepth, 5); }, "limit", ""},
      {"failed memory", [] { throw std::bad_alloc(); }, "memory", ""},
      {"a length", [] { throw std::length_error("long"); }, "length", ""},
      {"a number", [] { throw 42; }, "int 42", ""},
      {"a class of its own", [] { throw Foreign{7}; }, "foreign 7", ""},
  };
  for (const Row& row : rows) {
    const Stage stage;
    stage.environment->setFunction("boom", [&](int, std::string_view) { row.action(); });
    stage.environment->setFunction("add", [](int left, int right) { return left + right; });
    const char* const text =
        "a<? foreach ($i in $list) ?><? if (true) ?>b<?= boom(1, \"text\") ?><? endif ?><? endforeach ?>c";
    stage.set("list", NSArray::arrayWithObjects({1}));
    EXPECT_EQ(endOf(stage, text), row.end) << row.what;
    EXPECT_EQ(stage.text(), std::string_view(row.end) == "none" ? "abc" : "ab") << row.what;
    EXPECT_EQ(stage.diagnostics(), row.diagnostics) << row.what;
    EXPECT_EQ(stage.depth(), 1) << row.what;
    stage.output->writes.clear();
    EXPECT_EQ(endOf(stage, "<? function f($n) ?><? return add($n, 1) ?><? endfunction ?><?= f(2) ?>"), "none");
    EXPECT_EQ(stage.text(), "3") << row.what;
  }
}

TEST(AThrowingCallable, EndsItsOwnCallsToo) {
  const Stage stage;
  stage.environment->setFunction("boom", [] { throw 42; });
  for (int time = 0; time < 3; ++time) {
    EXPECT_EQ(endOf(stage, "<? function f() ?><? boom() ?><? endfunction ?><? if (true) ?><? f() ?><? endif ?>"),
              "int 42");
    EXPECT_EQ(stage.depth(), 1);
  }
  EXPECT_THAT(stage.errors->writes, IsEmpty());
}

TEST(AThrowingCallable, UsesUpNoDepthOfFunctions) {
  const Stage stage;
  KorTemplateLimits limits;
  limits.functionDepth = 3;
  stage.environment->setLimits(limits);
  stage.environment->setFunction("boom", [] { throw std::runtime_error("what"); });
  stage.run("<? boom() ?><? boom() ?><? boom() ?><? boom() ?><? boom() ?>a");
  EXPECT_EQ(stage.text(), "a");
  stage.environment->setFunction("again", [&](KorTemplateEnvironment& environment) {
    KorTemplate::compile("<? again() ?>")->executeWithEnvironment(&environment);
  });
  EXPECT_EQ(endOf(stage, "<? again() ?>"), "limit");
}

// Re-entry

TEST(ACallable, RunsTemplatesInItsOwnAndInOtherEnvironments) {
  const Stage stage;
  const Ref<KorTemplate> part = KorTemplate::compile("[<?= $x ?>]");
  stage.environment->setFunction(
      "include", [&](KorTemplateEnvironment& environment) { part->executeWithEnvironment(&environment); });
  stage.environment->setFunction("render", [&](std::string_view x) {
    const Stage inner;
    inner.set("x", x);
    part->executeWithEnvironment(inner.get());
    return inner.text();
  });
  stage.run("<? if (true) ?><? $x = 1 ?><? include() ?><? endif ?><? include() ?><?= render(\"in\" + \"ner\") ?>");
  EXPECT_EQ(stage.text(), "[1][][inner]");
  EXPECT_EQ(stage.depth(), 1);
}

TEST(ACallable, RunsTheSameTemplateThatCallsIt) {
  const Stage stage;
  const Ref<KorTemplate> whole = KorTemplate::compile("<?= $n ?><? if (down($n) > 0) ?>,<? again() ?><? endif ?>");
  int left = 4;
  stage.environment->setFunction("down", [&](int) { return left; });
  stage.environment->setFunction("again", [&](KorTemplateEnvironment& environment) {
    environment.setGlobal("n", --left);
    whole->executeWithEnvironment(&environment);
  });
  stage.set("n", left);
  whole->executeWithEnvironment(stage.get());
  EXPECT_EQ(stage.text(), "4,3,2,1,0");
}

TEST(ACallable, CallsItselfThroughATemplate) {
  const Stage stage;
  const Ref<KorTemplate> call = KorTemplate::compile("<? $result = fib($n) ?>");
  stage.environment->setFunction("fib", [&](KorTemplateEnvironment& environment, int n) -> int {
    if (n < 2) return n;
    const auto fib = [&](int smaller) {
      environment.setVariable("n", smaller);
      call->executeWithEnvironment(&environment);
      return environment.valueForGlobalVariableWithName("result").intValue();
    };
    const int first = fib(n - 1);
    return first + fib(n - 2);
  });
  stage.run("<?= fib(10) ?>");
  EXPECT_EQ(stage.text(), "55");
}

TEST(ACallable, SetsGlobalsAndDefinesFunctions) {
  const Stage stage;
  stage.environment->setFunction("prepare", [](KorTemplateEnvironment& environment, double price) {
    environment.setGlobal("price", price);
    environment.setFunction("net", [price] { return price / 2; });
    KorTemplate::compile("<? function gross() ?><? return $price ?><? endfunction ?>")
        ->executeWithEnvironment(&environment);
  });
  stage.run("<?= net() ?><? prepare(8) ?><?= net() ?>,<?= gross() ?>,<?= $price ?>");
  EXPECT_EQ(stage.text(), "4,8,8");
}

TEST(ACallable, ReplacesAndRemovesItselfWhileItRuns) {
  const Stage stage;
  auto alive = std::make_shared<std::string>("first");
  const std::weak_ptr<std::string> watched = alive;
  bool isAlive = false;
  stage.environment->setFunction("f", [kept = std::move(alive)](KorTemplateEnvironment& environment) {
    environment.setFunction("f", [] { return "second"; });
    environment.removeFunctionForName("f");
    environment.setFunction("f", [](KorTemplateEnvironment& inner) {
      inner.removeFunctionForName("f");
      return "third";
    });
    return *kept;  // its own capture, after it has been replaced
  });
  stage.environment->setFunction("look", [&] { isAlive = !watched.expired(); });
  stage.run("<?= f() ?>,<?= f() ?>,<?= f() ?><? look() ?>");
  EXPECT_EQ(stage.text(), "first,third,");
  EXPECT_TRUE(isAlive);
  EXPECT_TRUE(watched.expired());
}

TEST(ACallable, LivesWhileItIsCalledByTheHost) {
  const Stage stage;
  stage.environment->setFunction(
      "f", [kept = std::string("a text beyond small buffers, on the heap")](KorTemplateEnvironment& environment) {
        environment.removeFunctionForName("f");
        return kept;
      });
  KorTemplateFunction* const function = stage.environment->findFunction("f");
  EXPECT_EQ(function->invokeWithEnvironment(stage.get(), {}).description(), "a text beyond small buffers, on the heap");
  EXPECT_EQ(stage.environment->functionForName("f"), nullptr);
}

TEST(ACallable, KeepsItsTextsThoughTheirVariablesChange) {
  const Stage stage;
  stage.environment->setFunction("f", [](KorTemplateEnvironment& environment, std::string_view text) {
    environment.setGlobal("text", 0);
    environment.setVariable("text", 1);
    return std::string(text) + "!";
  });
  stage.set("text", std::string("a text beyond small buffers, on the heap"));
  stage.run("<?= f($text) ?> <?= $text ?>");
  EXPECT_EQ(stage.text(), "a text beyond small buffers, on the heap! 1");
}

// Reading the second argument empties what the first was read from.
TEST(ACallable, KeepsThePartsOfItsContainersThoughTheyChange) {
  const std::string text = "a text beyond small buffers, on the heap";
  const auto joined = [](auto&& parts) {
    std::string all;
    for (const auto& part : parts) all += std::string(part) + ";";
    return all;
  };
  const Stage stage;
  stage.environment->setFunction(
      "list", [&](const std::vector<std::string_view>& parts, const std::vector<int>&) { return joined(parts); });
  stage.environment->setFunction("pair", [](std::pair<std::string_view, std::string_view> parts,
                                            const std::vector<int>&) { return std::string(parts.second); });
  stage.environment->setFunction("lists", [&](const std::vector<std::vector<std::string_view>>& parts,
                                              const std::vector<int>&) { return joined(parts.at(0)); });
  stage.environment->setFunction(
      "map", [](const std::map<std::string_view, std::string_view>& parts, const std::vector<int>&) {
        return std::string(parts.begin()->first) + std::string(parts.begin()->second);
      });
  const Ref<NSMutableArray> list = NSMutableArray::array();
  const Ref<NSMutableArray> inner = NSMutableArray::array();
  const Ref<NSMutableArray> outer = NSMutableArray::array();
  const Ref<NSMutableDictionary> map = NSMutableDictionary::dictionary();
  stage.set("list", list);
  stage.set("outer", outer);
  stage.set("map", map);
  stage.set("clearing", lazyList([] { return std::size_t{1}; },
                                 [&](std::size_t) {
                                   for (const auto& one : {list, inner, outer}) one->removeAllObjects();
                                   map->removeAllObjects();
                                   return 1;
                                 }));
  for (const char* call : {"list($list", "pair($list", "lists($outer", "map($map"}) {
    for (int count = 0; count < 2; ++count) list->addObject(text);
    inner->addObject(text);
    outer->addObject(inner);
    map->setObjectForKey(text, "a key beyond small buffers, on the heap");
    stage.run("<?= " + std::string(call) + ", $clearing) ?>|");
    list->removeAllObjects();
  }
  EXPECT_EQ(stage.text(),
            text + ";" + text + ";|" + text + "|" + text + ";|a key beyond small buffers, on the heap" + text + "|");
}

TEST(ACallable, ReplacesStreamsAndStack) {
  const Stage stage;
  const Ref<RecordingStream> next = makeRef<RecordingStream>();
  stage.environment->setFunction("redirect", [&](KorTemplateEnvironment& environment) {
    environment.setOutputStream(next);
    environment.setErrorStream(next);
    throw std::runtime_error("heard");
  });
  stage.environment->setFunction("restack", [](KorTemplateEnvironment& environment, int number) {
    const Ref<KorTemplateStack> stack = KorTemplateStack::stack();
    stack->push(KorTemplateStackFrame::stackFrame());
    stack->push(KorTemplateStackFrame::stackFrame());
    environment.setStack(stack);
    environment.setGlobal("x", number);
  });
  stage.set("x", 1);
  stage.run("<?= $x ?><? if (true) ?><? restack(2) ?><? endif ?><?= $x ?><? redirect() ?>b");
  EXPECT_EQ(stage.text(), "12");
  EXPECT_EQ(next->joined("|"), "heard|b");
  EXPECT_EQ(stage.depth(), 1);
}

TEST(ACallable, MayTakeTheStreamsAndTheStackAway) {
  const Stage stage;
  stage.environment->setFunction("take", [](KorTemplateEnvironment& environment) {
    environment.setOutputStream(nullptr);
    environment.setErrorStream(nullptr);
    environment.setStack(nullptr);
    throw std::runtime_error("unheard");
  });
  stage.set("list", NSArray::arrayWithObjects({1, 2}));
  stage.run("a<? foreach ($i in $list) ?><?= take() ?><? endforeach ?><? take() ?>b");
  stage.run("<?= take() ?>");
  EXPECT_EQ(stage.text(), "a");
  EXPECT_THAT(stage.errors->writes, IsEmpty());
}

TEST(ACallable, OutlivesTheEnvironmentThatHeldIt) {
  Ref<KorTemplateFunction> function;
  {
    const Stage stage;
    stage.environment->setFunction("f",
                                   [kept = std::string("kept")](int number) { return kept + std::to_string(number); });
    function = stage.environment->functionForName("f");
  }
  const Stage other;
  other.environment->setFunctionForName(function, "g");
  other.run("<?= g(1) ?>,<?= g() ?>");
  EXPECT_EQ(other.text(), "kept1,");
  EXPECT_EQ(other.diagnostics(), "f. Incorrect number of arguments: 0 supplied, 1 expected.");
}

}  // namespace

}  // namespace tavlo::test
