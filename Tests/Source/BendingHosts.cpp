#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <unwind.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <new>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "Foundation/Description.h"
#include "Foundation/LazyCollections.h"
#include "Foundation/NSArray.h"
#include "Foundation/NSDictionary.h"
#include "Foundation/NSEnumerator.h"
#include "Foundation/NSSet.h"
#include "Source/KorTemplateCallableFunction.h"
#include "Source/KorTemplateCallbackStream.h"
#include "Source/KorTemplateReturnIndication.h"
#include "Source/KorTemplateStackFrame.h"
#include "Source/KorTemplateStringStream.h"
#include "Source/KorTemplateSyntaxErrorException.h"
#include "Source/KorTemplateWriteException.h"
#include "Tests/Source/HostClasses.h"
#include "Tests/Source/SmallThread.h"

// Hosts whose code is called from everywhere, and does there what nobody expects.
namespace tavlo::test {

namespace {

// What a host's code does when it is called.
struct Act {
  std::function<void()> body;
  int calls = 0;

  void operator()() {
    ++calls;
    const std::function<void()> running = body;  // which may replace itself
    if (running) running();
  }
};

class BendingEnumerator final : public NSEnumerator {
 public:
  explicit BendingEnumerator(Act& act) : act_(act) {}
  Value nextObject() override {
    if (left_-- == 0) return {};
    act_();
    return left_;
  }

 private:
  Act& act_;
  int left_ = 3;
};

// Acts wherever it is asked for something, and looks then whether it is still there.
class Bending final : public NSObject {
 public:
  explicit Bending(Act& act) : act_(act) {}

  void describe(Description& out) const override { out.part(acted()); }
  bool isEqual(const NSObject& other, std::int32_t /*depth*/) const override { return acted() == "" || &other == this; }
  std::size_t hash() const override { return 1; }
  std::optional<bool> isLessThan(const Value& /*other*/) const override { return acted().empty(); }
  std::optional<bool> isGreaterThan(const Value& /*other*/) const override { return acted().empty(); }
  Value valueForKey(const NSString& /*key*/) const override { return acted(); }
  Ref<NSEnumerator> objectEnumerator() const override {
    (void)acted();
    return makeRef<BendingEnumerator>(act_);
  }
  const char* className() const override { return "Bending"; }

 private:
  std::string acted() const {
    act_();
    return name_;
  }

  Act& act_;
  std::string name_ = "a name that is too long for any small buffer";
};

class BendingStream final : public KorTemplateStream {
 public:
  BendingStream(Act& writing, Act& flushing) : writing_(writing), flushing_(flushing) {}
  void write(const Text& text) override {
    writing_();
    written += text.view();
  }
  void flush() override { flushing_(); }
  const char* className() const override { return "BendingStream"; }

  std::string written;

 private:
  Act& writing_;
  Act& flushing_;
};

struct Place {
  const char* what;
  const char* text;
  bool isCall = false;    // the host's function, whose exceptions become diagnostics
  bool isStream = false;  // which diagnostics are delivered through
};

const Place kPlaces[] = {
    {"the text of an object", "<?= $o ?>"},
    {"the text of a list", "<?= $list ?>"},
    {"the text of a dictionary", "<?= $entries ?>"},
    {"the text of a set", "<?= $set ?>"},
    {"a sum", "<? $x = ($o + \"a\") ?>"},
    {"a sum of many", "<?= \"a\" + $o + $list + \"b\" ?>"},
    {"equality", "<?= $o == $p ?>"},
    {"equality of lists", "<?= $list == $same ?>"},
    {"equality of dictionaries", "<?= $entries == $sameEntries ?>"},
    {"an order", "<?= $o < $p ?>"},
    {"the other order", "<?= $o >= $p ?>"},
    {"the largest", "<?= $list.@max ?>"},
    {"a key", "<?= $o.key ?>"},
    {"a key of a key", "<?= $entries.o.key.length ?>"},
    {"a key of a list", "<?= $list.key ?>"},
    {"an operator", "<?= $list.@unionOfObjects.key ?>"},
    {"distinct objects", "<?= $list.@distinctUnionOfObjects ?>"},
    {"a sum of keys", "<?= $list.@sum.key ?>"},
    {"the start of a walk", "<? foreach ($e in $o) ?><?= $e ?><? endforeach ?>"},
    {"a loop over a list", "<? foreach ($e in $list) ?><?= $e ?><? endforeach ?>"},
    {"a loop over a dictionary", "<? foreach ($e in $entries) ?><?= $e.key ?><? endforeach ?>"},
    {"the elements of a host's list", "<? foreach ($e in $lazy) ?><?= $e ?><? endforeach ?>"},
    {"the text of a host's list", "<?= $lazy ?>"},
    {"a host's dictionary", "<?= $lazyEntries.key ?><? foreach ($e in $lazyEntries) ?><?= $e ?><? endforeach ?>"},
    {"an undefined variable", "<?= $undefined ?>"},
    {"an undefined function", "<?= undefined(1) ?>"},
    {"a function", "<?= pick($o, $list) ?>", true},
    {"a callable", "<?= callable(1, \"a text\") ?>", true},
    {"an argument", "<?= callable(1, $o.key) ?>"},
    {"a write", "text<?= \"more\" ?>", false, true},
};

// A stage on which one act is called from each of the places.
struct BendingStage {
  BendingStage() {
    KorTemplateEnvironment& environment = *stage.environment;
    stream = makeRef<BendingStream>(writing, flushing);
    environment.setOutputStream(stream);
    stage.set("o", makeRef<Bending>(act));
    stage.set("p", makeRef<Bending>(act));
    setCollections();
    stage.set("lazy",
              lazyList([this] { return act(), std::size_t{2}; }, [this](std::size_t index) { return act(), index; }));
    stage.set("lazyEntries", lazyDictionary([this](std::string_view) { return act(), std::optional<int>(1); },
                                            [this] {
                                              return act(), std::vector<std::string>{"key", "other"};
                                            }));
    const Ref<KorTemplateObserver> observer = KorTemplateObserver::observer();
    observer->setCallback([this](const KorTemplateObservation&) { act(); });
    environment.setObserver(observer);
    stage.define("pick", [this](KorTemplateEnvironment*, ListArgument<Value> arguments) -> Value {
      act();
      return arguments[1];
    });
    environment.setFunction("callable", [this](int number, std::string_view text) {
      act();
      return std::string(text) + std::to_string(number);
    });
  }

  void setCollections() const {
    for (const char* name : {"list", "same"}) {
      const Ref<NSMutableArray> list = NSMutableArray::array();
      for (int count = 0; count < 3; ++count) list->addObject(makeRef<Bending>(act));
      list->addObject(std::string(100, 'x'));
      stage.set(name, list);
    }
    for (const char* name : {"entries", "sameEntries"}) {
      const Ref<NSMutableDictionary> entries = NSMutableDictionary::dictionary();
      for (const char* key : {"o", "q", "r"}) entries->setObjectForKey(makeRef<Bending>(act), std::string_view(key));
      stage.set(name, entries);
    }
    stage.set("set", NSSet::setWithObjects({makeRef<Bending>(act), makeRef<Bending>(act)}));
  }

  // The place alone, or inside a function, a loop and a branch.
  static Ref<KorTemplate> compile(const Place& place, bool isInside) {
    const std::string text = place.text;
    if (!isInside) return KorTemplate::compile(text);
    return KorTemplate::compile("<? function f($v, $w, $x, $y) ?><? foreach ($i in $v) ?><? if (true) ?>" + text +
                                "<? endif ?><? endforeach ?><? endfunction ?><? f($two, $o, $list, 4) ?>");
  }

  // Whatever has happened, an environment that is reset serves.
  void expectToServe() {
    act.body = writing.body = flushing.body = nullptr;
    stage.environment->setLimits({});
    stage.environment->reset();
    stage.environment->setOutputStream(stage.output);
    stage.output->writes.clear();
    stage.run("<? $n = 1 ?><? if ($n) ?><?= $n + 1 ?><? endif ?>");
    EXPECT_EQ(stage.text(), "2");
    EXPECT_EQ(stage.depth(), 1);
  }

  mutable Act act;
  Act writing;
  Act flushing;
  Stage stage;
  Ref<BendingStream> stream;
};

// A class of the host's own.
struct Own {};

// What the action raises, by its kind.
std::string caughtBy(const std::function<void()>& action) {
  try {
    action();
  } catch (const KorTemplateReturnIndication&) {
    return "return";
  } catch (const KorTemplateLimitException& exception) {
    return "limit: " + std::string(exception.what());
  } catch (const KorTemplateSyntaxErrorException& exception) {
    return "syntax: " + exception.description();
  } catch (const KorTemplateWriteException& exception) {
    return "write: " + exception.description();
  } catch (const NSException& exception) {
    return exception.name() + ": " + exception.description();
  } catch (const std::bad_alloc&) {
    return "bad_alloc";
  } catch (const std::length_error& exception) {
    return "length: " + std::string(exception.what());
  } catch (const std::exception& exception) {
    return "std: " + std::string(exception.what());
  } catch (const int number) {
    return std::to_string(number);
  } catch (const Own&) {
    return "own";
  }
  return "nothing";
}

struct RaisedKind {
  std::function<void()> raise;
  const char* diagnostic;  // where it is raised in a function; null where it passes
};

const RaisedKind kRaisedKinds[] = {
    {[] { throw NSException("Odd", "100%s %n %@ {}"); }, "100%s %n %@ {}"},
    {[] { throw NSException("OnlyAName"); }, "OnlyAName"},
    {[] { NSException::raise(NSRangeException, "beyond %d", 3); }, "beyond 3"},
    {[] { throw KorTemplateSyntaxErrorException::exceptionOnLine(3, "no text"); }, "Syntax error (line 3): no text"},
    {[] { throw KorTemplateWriteException("a stream", EIO); },
     "The text cannot be written to a stream: Input/output error"},
    {[] { throw KorTemplateReturnIndication(1); }, ""},
    {[] { throw KorTemplateLimitException(KorTemplateLimit::Steps, 5); }, nullptr},
    {[] { throw std::runtime_error("of the host"); }, "of the host"},
    {[] { throw std::bad_alloc(); }, nullptr},
    {[] { throw std::length_error("too long"); }, nullptr},
    {[] { throw 42; }, nullptr},
    {[] { throw Own(); }, nullptr},
};

class RaisingHost {
 public:
  RaisingHost(const Place& place, const RaisedKind& row, bool isInside)
      : place_(place), row_(row), isInside_(isInside) {}

  void check() {
    const std::string raised = caughtBy(row_.raise);
    SCOPED_TRACE(std::string(place_.what) + (isInside_ ? ", inside: " : ": ") + raised);
    BendingStage bending;
    bending.stage.set("two", NSArray::arrayWithObjects({1}));
    const Ref<KorTemplate> compiled = BendingStage::compile(place_, isInside_);
    Act& act = place_.isStream ? bending.writing : bending.act;
    act.body = row_.raise;
    const std::string caught = caughtBy([&] { compiled->executeWithEnvironment(bending.stage.get()); });
    EXPECT_GT(act.calls, 0);
    EXPECT_EQ(bending.stage.depth(), 1);
    if (place_.isCall || isInside_) {
      EXPECT_EQ(caught, row_.diagnostic == nullptr ? raised : "nothing");
      const std::string told = bending.stage.diagnostics();
      EXPECT_EQ(told.substr(0, told.find('|')), expectedDiagnostic(raised));
    } else {
      EXPECT_EQ(caught, raised == "return" ? "nothing" : raised);
      EXPECT_EQ(bending.stage.diagnostics(), "");
    }
    bending.expectToServe();
  }

 private:
  // What stands for a return of a template's own is any exception where a host's function raises it.
  std::string expectedDiagnostic(const std::string& raised) const {
    if (place_.isCall && raised == "return") return "KorTemplateReturnIndication";
    return row_.diagnostic == nullptr ? "" : row_.diagnostic;
  }

  const Place& place_;
  const RaisedKind& row_;
  bool isInside_;
};

TEST(AHostThatRaisesAnything, EndsWhatItShouldAndNoMore) {
  for (const Place& place : kPlaces) {
    for (const RaisedKind& row : kRaisedKinds) {
      for (const bool isInside : {false, true}) RaisingHost(place, row, isInside).check();
    }
  }
}

struct Meddling {
  const char* what;
  std::function<void(BendingStage&)> meddle;
};

const Meddling kMeddlings[] = {
    {"empties the collections",
     [](BendingStage& bending) {
       for (const char* name : {"list", "same"}) {
         const Value list = bending.stage.global(name);
         if (auto* array = const_cast<NSMutableArray*>(list.as<NSMutableArray>())) array->removeAllObjects();
       }
       for (const char* name : {"entries", "sameEntries"}) {
         const Value entries = bending.stage.global(name);
         if (auto* object = const_cast<NSMutableDictionary*>(entries.as<NSMutableDictionary>()))
           object->removeAllObjects();
       }
     }},
    {"lets the collections grow",
     [](BendingStage& bending) {
       const Value list = bending.stage.global("list");
       auto* array = const_cast<NSMutableArray*>(list.as<NSMutableArray>());
       for (int count = 0; array != nullptr && array->count() < 60 && count < 20; ++count)
         array->insertObjectAtIndex(count, 0);
     }},
    {"lets go of all values",
     [](BendingStage& bending) {
       for (const Name& name : bending.stage.environment->globalVariableNames()) bending.stage.set(name, Value::null());
     }},
    {"replaces all values", [](BendingStage& bending) { bending.setCollections(); }},
    {"replaces the stack",
     [](BendingStage& bending) {
       const Ref<KorTemplateStack> stack = KorTemplateStack::stack();
       stack->push(KorTemplateStackFrame::stackFrame());
       bending.stage.environment->setStack(stack);
     }},
    {"takes the stack away", [](BendingStage& bending) { bending.stage.environment->setStack(nullptr); }},
    {"pops a frame",
     [](BendingStage& bending) {
       if (const Ref<KorTemplateStack> stack = bending.stage.environment->stack()) stack->pop();
     }},
    {"pops every frame",
     [](BendingStage& bending) {
       const Ref<KorTemplateStack> stack = bending.stage.environment->stack();
       while (stack != nullptr && stack->frames().count() > 0) stack->pop();
     }},
    {"takes the frames out by hand",
     [](BendingStage& bending) {
       const Ref<KorTemplateStack> stack = bending.stage.environment->stack();
       while (stack != nullptr && stack->frames().count() > 0) stack->frames().removeAt(0);
     }},
    {"pushes frames",
     [](BendingStage& bending) {
       if (const Ref<KorTemplateStack> stack = bending.stage.environment->stack()) {
         stack->push(KorTemplateStackFrame::stackFrame());
       }
     }},
    {"replaces the streams",
     [](BendingStage& bending) {
       bending.stage.environment->setOutputStream(makeRef<BendingStream>(bending.writing, bending.flushing));
       bending.stage.environment->setErrorStream(makeRef<RecordingStream>());
     }},
    {"takes the streams away",
     [](BendingStage& bending) {
       bending.stage.environment->setOutputStream(nullptr);
       bending.stage.environment->setErrorStream(nullptr);
     }},
    {"removes the functions",
     [](BendingStage& bending) {
       for (const Name& name : bending.stage.environment->functionNames()) {
         bending.stage.environment->removeFunctionForName(name);
       }
     }},
    {"takes the observer away", [](BendingStage& bending) { bending.stage.environment->setObserver(nullptr); }},
    {"sets many variables",
     [](BendingStage& bending) {
       for (int number = 0; number < 40; ++number) {
         KorTemplateStackFrame* const frame =
             bending.stage.environment->stack() == nullptr ? nullptr : bending.stage.environment->stack()->current();
         if (frame != nullptr) frame->setValueForVariableWithName(number, "many" + std::to_string(number));
       }
     }},
    {"runs a template",
     [](BendingStage& bending) {
       bending.stage.run(
           "<? $o = 1 ?><? function f() ?><? endfunction ?><? foreach ($e in $two) ?><?= f() ?><? endforeach ?>");
     }},
    {"sets limits and cancels",
     [](BendingStage& bending) {
       bending.stage.environment->setLimits({.functionDepth = 1, .steps = 1});
       bending.stage.environment->setCancellation(nullptr);
     }},
    {"resets the environment", [](BendingStage& bending) { bending.stage.environment->reset(); }},
};

// What it raises is nobody's business here: that it ends, and that nothing is used that is gone.
TEST(AHostThatChangesEverything, BreaksNothing) {
  for (const Place& place : kPlaces) {
    for (const Meddling& meddling : kMeddlings) {
      for (const bool isInside : {false, true}) {
        SCOPED_TRACE(std::string(place.what) + (isInside ? ", inside: " : ": ") + meddling.what);
        BendingStage bending;
        bending.stage.set("two", NSArray::arrayWithObjects({1, 2}));
        const Ref<KorTemplate> compiled = BendingStage::compile(place, isInside);
        Act& act = place.isStream ? bending.writing : bending.act;
        bool isAtIt = false;
        act.body = [&] {
          if (std::exchange(isAtIt, true)) return;
          meddling.meddle(bending);
          isAtIt = false;
        };
        (void)caughtBy([&] { compiled->executeWithEnvironment(bending.stage.get()); });
        EXPECT_GT(act.calls, 0);
        bending.expectToServe();
      }
    }
  }
}

// A template that runs itself from within, without end, ends in a limit on whatever way it does.
TEST(AHostThatTakesTheFrameAway, MayDoSoWhereAnOldValueEnds) {
  struct Row {
    const char* what;
    void (*take)(KorTemplateStack& stack);
  };
  const Row rows[] = {
      {"pop", [](KorTemplateStack& stack) { stack.pop(); }},
      {"remove", [](KorTemplateStack& stack) { stack.frames().removeAt(0); }},
      {"set", [](KorTemplateStack& stack) { stack.frames().set({}); }},
  };
  for (const Row& row : rows) {
    const Stage stage;
    stage.set("x", makeRef<EndingObject>([&] {
                const Ref<KorTemplateStack> stack = stage.environment->stack();
                row.take(*stack);
                stack->push(KorTemplateStackFrame::stackFrame());
              }));
    stage.run("<? $x = 1 ?><? $y = 2 ?>[<?= $x ?><?= $y ?>]");
    EXPECT_EQ(stage.text(), "[2]") << row.what;
    EXPECT_EQ(stage.depth(), 1) << row.what;
  }
}

struct EndingThread {
  const Stage& stage;
  const char* text;
};

// Runs the template on a thread that the template ends.
void runToTheEndOfAThread(const Stage& stage, const char* text) {
  EndingThread ending{stage, text};
  pthread_t thread{};
  ASSERT_EQ(pthread_create(
                &thread, nullptr,
                [](void* argument) -> void* {
                  const auto* const what = static_cast<const EndingThread*>(argument);
                  (void)KorTemplate::compile(what->text)->tryExecuteWithEnvironment(what->stage.environment.get());
                  return argument;
                },
                &ending),
            0);
  void* answer = &ending;
  ASSERT_EQ(pthread_join(thread, &answer), 0);
  EXPECT_EQ(answer, nullptr) << "the thread has not ended where it should";
}

TEST(AHostThatEndsItsThread, LeavesAnEnvironmentForOthers) {
  for (const char* const text : {"a<?= leave() ?>b", "a<? function f() ?><? leave() ?><? endfunction ?><?= f() ?>b",
                                 "a<? foreach ($x in $l) ?><? if (true) ?><?= leave() ?><? endif ?><? endforeach ?>"}) {
    const Stage stage;
    stage.environment->setFunction("leave", [] { pthread_exit(nullptr); });
    stage.set("l", NSArray::arrayWithObjects({1, 2}));
    runToTheEndOfAThread(stage, text);
    EXPECT_EQ(stage.text(), "a") << text;
    EXPECT_EQ(stage.depth(), 1) << text;
    stage.run("c");
    EXPECT_EQ(stage.text(), "ac") << text;
  }
}

TEST(AHostThatEndsItsThread, MayDoSoWhereTheOutputOfAFailureIsDelivered) {
  const Stage stage;
  stage.environment->setOutputStream(
      KorTemplateCallbackStream::streamWithCallback([](std::string_view) { pthread_exit(nullptr); }));
  runToTheEndOfAThread(stage, "text<?= 1 < \"a\" ?>");
  stage.environment->setOutputStream(stage.output);
  stage.run("c");
  EXPECT_EQ(stage.depth(), 1);
  EXPECT_THAT(stage.text(), testing::EndsWith("c"));
}

TEST(AHostThatEndsItsThread, MayDoSoInATemplateThatTellsOfAFailure) {
  const Stage stage;
  stage.environment->setFunction("fail", []() -> int { throw std::runtime_error("a failure"); });
  stage.environment->setFunction("leave", [] { pthread_exit(nullptr); });
  const Ref<KorTemplate> report = KorTemplate::compile("<? leave() ?>");
  stage.environment->setDiagnosticCallback(
      [&](const KorTemplateFailure&) { report->executeWithEnvironment(stage.get()); });
  runToTheEndOfAThread(stage, "text<?= fail() ?>");
  stage.environment->setDiagnosticCallback(nullptr);
  stage.run("c");
  EXPECT_EQ(stage.depth(), 1);
  EXPECT_EQ(stage.diagnostics(), "a failure");
  EXPECT_THAT(stage.text(), testing::EndsWith("c"));
}

// An exception as the runtimes of other languages raise theirs.
[[noreturn]] void raiseForeign() {
  auto exception = std::make_unique<_Unwind_Exception>();
  std::memcpy(&exception->exception_class, "TAVLTEST", sizeof exception->exception_class);
  exception->exception_cleanup = [](_Unwind_Reason_Code, _Unwind_Exception* raised) { delete raised; };
  _Unwind_RaiseException(exception.release());
  std::abort();
}

TEST(AHostOfAnotherLanguage, RaisesWhatPassesAndLeavesWhatWasWritten) {
  for (const char* const text : {"a<?= raise() ?>b", "a<? function f() ?><? raise() ?><? endfunction ?><?= f() ?>b",
                                 "a<? foreach ($x in $l) ?><? if (true) ?><?= raise() ?><? endif ?><? endforeach ?>"}) {
    const Stage stage;
    std::string delivered;
    stage.environment->setOutputStream(KorTemplateStringStream::stringStreamAppendingTo(delivered));
    stage.environment->setFunction("raise", raiseForeign);
    stage.set("l", NSArray::arrayWithObjects({1, 2}));
    bool hasPassed = false;
    try {
      stage.run(text);
    } catch (const std::exception&) {
      ADD_FAILURE() << text;
    } catch (...) {
      hasPassed = true;
    }
    EXPECT_TRUE(hasPassed) << text;
    EXPECT_EQ(delivered, "a") << text;
    EXPECT_EQ(stage.depth(), 1) << text;
    EXPECT_EQ(stage.environment->lastFailure()->reason(), "The thread ends, or the host has raised what is not of C++");
    stage.run("c");
    EXPECT_EQ(delivered, "ac") << text;
  }
}

TEST(AHostOfAnotherLanguage, MayRaiseAgainWhereItsOutputIsDelivered) {
  const Stage stage;
  int writes = 0;
  stage.environment->setOutputStream(KorTemplateCallbackStream::streamWithCallback([&](std::string_view) {
    ++writes;
    raiseForeign();
  }));
  stage.environment->setFunction("raise", raiseForeign);
  bool hasPassed = false;
  try {
    stage.run("a<?= raise() ?>b");
  } catch (...) {
    hasPassed = true;
  }
  EXPECT_TRUE(hasPassed);
  EXPECT_GE(writes, 1);
  stage.environment->setOutputStream(stage.output);
  stage.run("c");
  EXPECT_EQ(stage.text(), "c");
}

TEST(AHostThatRendersWithoutEnd, EndsInALimit) {
  for (const Place& place : kPlaces) {
    for (const bool isInside : {false, true}) {
      runOnSmallThread([&] {
        SCOPED_TRACE(std::string(place.what) + (isInside ? ", inside" : ""));
        BendingStage bending;
        bending.stage.set("two", NSArray::arrayWithObjects({1}));
        const Ref<KorTemplate> compiled = BendingStage::compile(place, isInside);
        Act& act = place.isStream ? bending.writing : bending.act;
        act.body = [&] { compiled->executeWithEnvironment(bending.stage.get()); };
        EXPECT_EQ(caughtBy([&] { compiled->executeWithEnvironment(bending.stage.get()); }).substr(0, 6), "limit:");
        EXPECT_EQ(bending.stage.depth(), 1);
        bending.expectToServe();
      });
    }
  }
}

// The same where each run has an environment of its own, which counts nothing of the others.
TEST(AHostThatRendersWithoutEnd, EndsInALimitInEverNewEnvironments) {
  runOnSmallThread([] {
    std::function<void()> render;
    const Ref<KorTemplate> compiled = KorTemplate::compile("<? if (true) ?><?= again() ?><? endif ?>");
    render = [&] {
      const Stage stage;
      stage.environment->setFunction("again", [&] { render(); });
      compiled->executeWithEnvironment(stage.get());
    };
    EXPECT_EQ(caughtBy(render).substr(0, 6), "limit:");
    EXPECT_EQ(caughtBy([] { (void)KorTemplate::compile("text"); }), "nothing");
  });
}

// The same from a stream that is delivered to, at the end of a template that does nothing.
TEST(AHostThatRendersWithoutEnd, EndsInALimitWhereItsStreamsDeliver) {
  class Rendering final : public KorTemplateStream {
   public:
    explicit Rendering(const Ref<KorTemplate>& page) : page_(page) {}
    void write(const Text& /*text*/) override {}
    void flush() override {
      const Ref<KorTemplateEnvironment> environment = KorTemplateEnvironment::environment();
      environment->setOutputStream(makeRef<Rendering>(page_));
      page_->executeWithEnvironment(environment.get());
    }

   private:
    Ref<KorTemplate> page_;
  };
  runOnSmallThread([] {
    const Stage stage;
    const Ref<KorTemplate> page = KorTemplate::compile("x");
    stage.environment->setOutputStream(makeRef<Rendering>(page));
    EXPECT_EQ(caughtBy([&] { page->executeWithEnvironment(stage.get()); }).substr(0, 6), "limit:");
  });
}

// Format characters in a text of somebody's own are characters like any other, wherever the text is told of.
TEST(FormatCharacters, AreTextEverywhere) {
  struct Row {
    const char* text;
    const char* raised;
  };
  const Row rows[] = {
      {"<?= '%s%n' ?>",
       "KorTemplateSyntaxErrorException: Syntax error (line 1): '%s%n'. Expected literal, variable or sub-expression"},
      {"<? foreach ($e in \"%s%n%@{}\") ?><? endforeach ?>",
       "NSGenericException: NSString cannot be enumerated because it does not respond to objectEnumerator"},
      {"<?= \"%s%n%@{}\" < 1 ?>", "NSGenericException: %s%n%@{} does not implement isLessThan:"},
      {"<?= 1 =~ \"%n\" ?>", "NSGenericException: Left side of match operator is 1. String expected"},
      {"<?= \"%s%n%@{}\" =~ \"a\" ?>",
       "NSGenericException: Right side of match operator is %s%n%@{}. Regular expression expected"},
      {"<?= \"%s%n\" = 1 ?>", "NSGenericException: Left side of assignment operator is %s%n. Variable name expected"},
  };
  for (const Row& row : rows) {
    const Stage stage;
    EXPECT_EQ(raisedBy([&] { stage.run(row.text); }), row.raised) << row.text;
  }
}

}  // namespace

}  // namespace tavlo::test
