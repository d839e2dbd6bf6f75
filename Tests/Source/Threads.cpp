#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "Foundation/HostObject.h"
#include "Foundation/NSArray.h"
#include "Foundation/NSDictionary.h"
#include "Source/KorTemplateCallableFunction.h"
#include "Source/KorTemplateLayer.h"
#include "Source/KorTemplateParser.h"
#include "Source/KorTemplateStringStream.h"
#include "Tests/Foundation/AmountOf.h"
#include "Tests/Source/HostClasses.h"

namespace tavlo::test {

namespace {

constexpr int kThreads = 8;
constexpr int kRounds = 20;

constexpr const char* kText =
    "<? function twice($v) ?><? if ((\"\" + $v) =~ /^a+$/) ?><? return $v + $v ?><? endif ?><? return 2 * $v ?><? "
    "endfunction ?>"
    "<? foreach ($e in $list) ?><?= @@index ?>:<?= twice($e.v) ?>,<? $last = $e ?>"
    "<? if ($e.v == \"aa\") ?>[<?= $last.v.length ?>]<? elseif ($e.v == 3) ?>three<? else ?>-<? endif ?><? endforeach "
    "?>"
    "<? function define() ?><? function inner() ?>in<? endfunction ?><? inner() ?><? endfunction ?><? define() ?>"
    "<?= missing($list) ?><?= twice() ?><?= $list.v.@count ?> \"lit\" <?= \"lit\" + 1 ?>";

Value sharedList() {
  return NSArray::arrayWithObjects({NSDictionary::dictionaryWithEntries({{"v", "aa"}}),
                                    NSDictionary::dictionaryWithEntries({{"v", 3}}),
                                    NSDictionary::dictionaryWithEntries({{"v", 4.5}})});
}

std::string rendered(KorTemplateStatement& compiled, const Value& list) {
  const Stage stage;
  const Ref<KorTemplateStringStream> stream = KorTemplateStringStream::stringStream();
  stage.environment->setOutputStream(stream);
  stage.set("list", list);
  for (int round = 0; round < kRounds; ++round) compiled.executeWithEnvironment(stage.get());
  return std::string(stream->buffer()->string()) + "|" + stage.diagnostics();
}

TEST(Threads, RunOneTemplateAtOnceEachWithAnEnvironmentOfItsOwn) {
  const Ref<KorTemplate> compiled = KorTemplate::compile(kText);
  const Value list = sharedList();
  const std::string expected = rendered(*compiled, list);
  ASSERT_EQ(expected.substr(0, 30), "0:aaaa,[2]1:6,three2:9,-in3 \"l");
  const Ref<KorTemplate> fresh = KorTemplate::compile(kText);  // nothing in it has run yet
  list.share();
  std::vector<std::string> results(kThreads);
  std::vector<std::thread> threads;
  for (int thread = 0; thread < kThreads; ++thread) {
    threads.emplace_back([&, thread] {
      results[static_cast<std::size_t>(thread)] = rendered(*fresh, thread % 2 == 0 ? list : sharedList());
    });
  }
  for (std::thread& thread : threads) thread.join();
  for (const std::string& result : results) EXPECT_EQ(result, expected);
}

// What all environments have in common, frozen.
Ref<KorTemplateLayer> sharedLayer() {
  const Ref<KorTemplateLayer> layer = KorTemplateLayer::layer();
  layer->setGlobal("list", sharedList());
  layer->share();
  return layer;
}

std::string renderedOnce(KorTemplate& compiled, const Ref<KorTemplateLayer>& layer) {
  const Stage stage;
  const Ref<KorTemplateStringStream> stream = KorTemplateStringStream::stringStream();
  stage.environment->setOutputStream(stream);
  stage.environment->setLayer(layer);
  compiled.executeWithEnvironment(stage.get());
  return std::string(stream->buffer()->string()) + "|" + stage.diagnostics();
}

// TAVLO_TEST_RENDERS=10000 does as many with the thread sanitizer as without it.
TEST(Threads, RenderOneTemplateThousandsOfTimesEachWithAnEnvironmentOfItsOwn) {
  const int renders = amountOf("TAVLO_TEST_RENDERS", 10'000, 300);
  const Ref<KorTemplate> compiled = KorTemplate::compile(kText);
  const Ref<KorTemplateLayer> layer = sharedLayer();
  const std::string expected = renderedOnce(*KorTemplate::compile(kText), layer);
  std::vector<int> wrong(kThreads);
  std::vector<std::thread> threads;
  for (int& count : wrong) {
    threads.emplace_back([&, renders] {
      for (int time = 0; time < renders; ++time) count += renderedOnce(*compiled, layer) == expected ? 0 : 1;
    });
  }
  for (std::thread& thread : threads) thread.join();
  for (const int count : wrong) EXPECT_EQ(count, 0);
}

// A host gives its own string to a node.
// Waits for some seconds at most.
bool isSoon(const std::atomic<bool>& happened) {
  for (int look = 0; look < 5'000 && !happened; ++look) std::this_thread::sleep_for(std::chrono::milliseconds(1));
  return happened;
}

struct Waiting {};
struct Unrelated {};
std::atomic<bool> isWaitingDescribed{false};
std::atomic<bool> isUnrelatedDescribed{false};

void describeHostClass(HostClass<Waiting>& description) {
  isWaitingDescribed = true;
  EXPECT_TRUE(isSoon(isUnrelatedDescribed));
  description.name("Waiting");
}
void describeHostClass(HostClass<Unrelated>& description) {
  description.name("Unrelated");
}

TEST(Threads, DescribeClassesThatHaveNothingToDoWithOneAnother) {
  std::thread waiting([] { (void)hostClass<Waiting>(); });
  EXPECT_TRUE(isSoon(isWaitingDescribed));
  (void)hostClass<Unrelated>();
  isUnrelatedDescribed = true;
  waiting.join();
}

struct Left {};
struct Right {};
std::atomic<bool> isLeftBegun{false};
std::atomic<bool> isRightBegun{false};

void describeHostClass(HostClass<Left>& description);
void describeHostClass(HostClass<Right>& description) {
  isRightBegun = true;
  EXPECT_TRUE(isSoon(isLeftBegun));
  (void)hostClass<Left>();
  description.name("Right");
}
void describeHostClass(HostClass<Left>& description) {
  isLeftBegun = true;
  EXPECT_TRUE(isSoon(isRightBegun));
  (void)hostClass<Right>();
  description.name("Left");
}

TEST(Threads, DoNotWaitForOneAnotherWhereTwoClassesAreDescribedByEachOther) {
  std::thread left([] { EXPECT_NE(raisedBy([] { (void)hostClass<Left>(); }), "nothing"); });
  EXPECT_NE(raisedBy([] { (void)hostClass<Right>(); }), "nothing");
  left.join();
}

TEST(Threads, RunATemplateMadeByHandAtOnce) {
  const std::string text = "a text beyond small buffers, on the heap";
  const Ref<KorTemplateFunctionCallExpression> call = makeRef<KorTemplateFunctionCallExpression>("same");
  call->addArgumentExpression(KorTemplateLiteralExpression::expressionWithLiteral(text));
  const Ref<KorTemplateLiteralExpression> other = KorTemplateLiteralExpression::expressionWithLiteral(1);
  other->setLiteral(text);
  const Ref<KorTemplate> made = makeRef<KorTemplate>();
  made->addStatement(makeRef<KorTemplateOutputStatement>(Ref<KorTemplateExpression>(call)));
  made->addStatement(makeRef<KorTemplateOutputStatement>(Ref<KorTemplateExpression>(other)));
  EXPECT_TRUE(other->literal().object()->isShared());
  std::vector<std::thread> threads;
  for (int thread = 0; thread < 2; ++thread) {
    threads.emplace_back([&] {
      const Stage stage;
      stage.environment->setFunction("same", [](const Value& value) { return value; });
      for (int run = 0; run < 10'000; ++run) made->executeWithEnvironment(stage.get());
    });
  }
  for (std::thread& thread : threads) thread.join();
  const Stage stage;
  stage.environment->setFunction("same", [](const Value& value) { return value; });
  made->executeWithEnvironment(stage.get());
  EXPECT_EQ(stage.text(), text + text);
}

TEST(Threads, CopyAndDescribeOneTemplateAtOnce) {
  const Ref<KorTemplate> compiled = KorTemplate::compile(kText);
  const Value list = sharedList();
  const std::string expected = rendered(*compiled->copyWithZone(), list);
  std::vector<std::string> results(kThreads);
  std::vector<std::size_t> lengths(kThreads);
  std::vector<std::thread> threads;
  for (int thread = 0; thread < kThreads; ++thread) {
    threads.emplace_back([&, index = static_cast<std::size_t>(thread)] {
      const Ref<KorTemplateStatement> copy = compiled->copyWithZone();
      lengths[index] = compiled->statements()[1]->description().size();
      results[index] = rendered(*copy, sharedList());
    });
  }
  for (std::thread& thread : threads) thread.join();
  for (const std::string& result : results) EXPECT_EQ(result, expected);
  for (const std::size_t length : lengths) EXPECT_EQ(length, lengths[0]);
}

TEST(Threads, TakeAnEnvironmentOverFromOneAnother) {
  const Stage stage;
  const Ref<KorTemplate> compiled = KorTemplate::compile("<? $n = ($n + 1) ?><? if (true) ?><?= $n ?>,<? endif ?>");
  stage.set("n", 0);
  for (int thread = 0; thread < 3; ++thread) {
    std::thread([&] { compiled->executeWithEnvironment(stage.get()); }).join();
  }
  compiled->executeWithEnvironment(stage.get());
  EXPECT_EQ(stage.text(), "1,2,3,4,");
}

// An object that is counted itself, which another one lends by plain references.
class Buoy final : public DescribedObject<Buoy> {
 public:
  explicit Buoy(int& ended) : ended_(ended) {}
  ~Buoy() override { ++ended_; }

  friend void describeHostClass(HostClass<Buoy>& buoy) {
    buoy.name("Buoy").property("depth", [](const Buoy&) { return 12; }).canBeShared();
  }

 private:
  int& ended_;
};

struct Harbour {
  friend void describeHostClass(HostClass<Harbour>& harbour) {
    harbour.name("Harbour")
        .property("constant", [](const Harbour& it) -> const Buoy& { return *it.buoy; })
        .property("changeable", [](const Harbour& it) -> Buoy& { return *it.buoy; })
        .property("pointer", [](const Harbour& it) -> const Buoy* { return it.buoy.get(); })
        .canBeShared();
  }
  Ref<Buoy> buoy;
};

TEST(Threads, CountWhatASharedObjectLends) {
  int ended = 0;
  {
    const Harbour harbour{makeRef<Buoy>(ended)};
    const Ref<KorTemplateLayer> layer = KorTemplateLayer::layer();
    layer->setGlobal("harbour", hostReference(harbour));
    layer->share();
    const Ref<KorTemplate> compiled = KorTemplate::compile(
        "<? foreach ($i in $numbers) ?><? $a = $harbour.constant.depth ?><? $b = $harbour.changeable.depth ?>"
        "<? $c = $harbour.pointer ?><? endforeach ?>");
    const auto run = [&] {
      const Stage stage;
      stage.environment->setLayer(layer);
      stage.set("numbers", valueOf(std::vector<int>(20'000, 1)));
      compiled->executeWithEnvironment(stage.get());
    };
    std::thread other(run);
    run();
    other.join();
    EXPECT_TRUE(harbour.buoy->hasOneReference());
    EXPECT_EQ(ended, 0);
  }
  EXPECT_EQ(ended, 1);
}

// Another thread may let go of a shared object at any moment; the end then takes the scopes away that are being left.
TEST(Threads, LetGoOfWhatAScopeHolds) {
  class TakingFrames final : public NSObject {
   public:
    explicit TakingFrames(KorTemplateEnvironment* environment)
        : environment_(environment), thread_(std::this_thread::get_id()) {}
    ~TakingFrames() override {
      if (std::this_thread::get_id() == thread_) environment_->stack()->frames().removeAll();
    }
    bool canBeShared() const override { return true; }

   private:
    KorTemplateEnvironment* environment_;
    std::thread::id thread_;
  };
  std::atomic<const NSObject*> lent{nullptr};
  std::atomic<bool> isOver{false};
  std::thread other([&] {
    for (unsigned round = 0; !isOver; ++round) {
      const NSObject* const object = lent.load();
      if (object == nullptr) continue;
      for (std::atomic<unsigned> wait = round % 200; wait > 0; --wait) {
      }
      object->release();
      lent.store(nullptr);
    }
  });
  for (const char* const text : {"<? foreach ($x in $list) ?><? lend() ?><? endforeach ?>",
                                 "<? if (true) ?><? $x = $list.@lastObject ?><? lend() ?><? endif ?>"}) {
    const Ref<KorTemplate> compiled = KorTemplate::compile(text);
    for (int round = 0; round < 1'000; ++round) {
      const Stage stage;
      const Ref<NSMutableArray> list = NSMutableArray::array();
      list->addObject(Value(makeRef<TakingFrames>(stage.get())));
      list->elements()[0].share();
      stage.set("list", list);
      stage.define("lend", [&](KorTemplateEnvironment*, ListArgument<Value>) -> Value {
        const NSObject* const object = list->elements()[0].object();
        if (object == nullptr) return 1;
        object->retain();
        list->replaceObjectAtIndex(0, 1);
        lent.store(object);
        return 1;
      });
      (void)compiled->tryExecuteWithEnvironment(stage.get());
      while (lent.load() != nullptr) {
      }
    }
  }
  isOver = true;
  other.join();
}

TEST(Threads, CompileOneSharedTextAtOnce) {
  const Ref<NSString> text = NSString::stringWithUTF8("a<?= $x ?>b<?= $y ?>c");
  Value(text).share();
  std::vector<std::thread> threads;
  for (int thread = 0; thread < kThreads; ++thread) {
    threads.emplace_back([&text] {
      for (int round = 0; round < 2'000; ++round) {
        const Ref<KorTemplateParser> parser = makeRef<KorTemplateParser>(text);
        while (parser->nextStatement() != nullptr) {
        }
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_TRUE(text->hasOneReference());
  EXPECT_EQ(text->view(), "a<?= $x ?>b<?= $y ?>c");
}

}  // namespace

}  // namespace tavlo::test
