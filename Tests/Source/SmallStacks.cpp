#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Foundation/Description.h"
#include "Foundation/HostMethodTable.h"
#include "Foundation/NSArray.h"
#include "Foundation/NSDictionary.h"
#include "Foundation/NSKeyValueCoding.h"
#include "Source/KorTemplateExternalFunction.h"
#include "Source/KorTemplateRendering.h"
#include "Tests/Foundation/Repeated.h"
#include "Tests/Foundation/SmallStack.h"
#include "Tests/Memory/WorkBound.h"
#include "Tests/Source/HostClasses.h"

namespace tavlo::test {

namespace {

constexpr std::size_t kKibibyte = 1024;

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define TAVLO_FRAMES_ARE_LARGE
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define TAVLO_FRAMES_ARE_LARGE
#endif
#endif

// Whether sanitizers make each level take more of the stack than it does for users.
#ifdef TAVLO_FRAMES_ARE_LARGE
constexpr bool kFramesAreLarge = true;
#else
constexpr bool kFramesAreLarge = false;
#endif

// How the body ends on a stack of that size: "well", with the limit of the "stack" or another one, or with the name of
// an exception. What is a signal ends the test.
std::string endOnStackOf(std::size_t bytes, const std::function<void()>& body) {
  return outcomeOnStackOf(bytes, [&] {
    try {
      body();
    } catch (const NSException& exception) {
      ADD_FAILURE() << exception.name() << ": " << exception.description();
    }
  });
}

struct DeepText {
  const char* what;
  const char* before;
  const char* open;
  const char* middle;
  const char* close;
  const char* after;

  std::string text(std::size_t levels) const {
    return before + repeated(open, levels) + middle + repeated(close, levels) + after;
  }
};

const DeepText kBlocks[] = {
    {"ifs", "", "<? if ($one) ?>", "<?= $one ?>", "<? endif ?>", ""},
    {"ifs with variables", "", "<? if ($one) ?><? $x = $one ?>", "<?= $x ?>", "<? endif ?>", ""},
    {"false branches", "", "<? if ($none) ?><? else ?>", "<?= $one ?>", "<? endif ?>", ""},
    {"loops", "", "<? foreach ($i in $list) ?>", "<?= $one ?>", "<? endforeach ?>", ""},
};

const DeepText kExpressions[] = {
    {"parentheses", "<?= ", "(", "$one", ")", " ?>"},
    {"sums", "<?= ", "(0 + ", "$one", ")", " ?>"},
    {"sums to the left", "<?= ", "(", "$one", " + 0)", " ?>"},
    {"arguments", "<?= ", "same(", "$one", ")", " ?>"},
    {"host arguments", "<?= ", "host(", "$one", ")", " ?>"},
    {"assignments", "<?= 1 ?><? ", "$a = (", "$one", ")", " ?>"},
    {"searches", "<? ", "(\"1\" =~ /1/ && ", "true", ")", " ?><?= 1 ?>"},
};

void prepare(const Stage& stage) {
  stage.set("one", 1);
  stage.set("none", Value::null());
  stage.set("list", NSArray::arrayWithObjects({1}));
  stage.define("host", [](KorTemplateEnvironment*, ListArgument<Value> arguments) -> Value {
    return arguments.begin() == arguments.end() ? Value::null() : *arguments.begin();
  });
  stage.run("<? function same($x) ?><? return $x ?><? endfunction ?>");
}

// Compiles, runs, copies, describes and frees the template.
void useTemplate(const std::string& text) {
  const Stage stage;
  prepare(stage);
  const Ref<KorTemplate> compiled = KorTemplate::compile(text);
  compiled->executeWithEnvironment(stage.get());
  EXPECT_EQ(stage.text(), "1") << text.substr(0, 30);
  (void)compiled->statements()[0]->description();
  const Ref<KorTemplateStatement> copy = compiled->copyWithZone();
  copy->executeWithEnvironment(stage.get());  // without the arguments of calls, which are not copied
}

// A function that calls itself, each time inside of what the body opens.
struct DeepCalls {
  const char* what;
  const char* body;
};

const DeepCalls kCalls[] = {
    {"a call as a statement", "<? f($n - 1) ?>"},
    {"a call that is written", "<?= f($n - 1) ?>"},
    {"a call inside an expression", "<? $x = 1 + (2 * f($n - 1)) ?>"},
    {"a call inside of blocks",
     "<? foreach ($i in $list) ?><? if (true) ?><?= f($n - 1) ?><? endif ?><? endforeach ?>"},
    {"a call as an argument", "<? same(f($n - 1)) ?>"},
    {"a call that returns", "<? return f($n - 1) ?>"},
    {"a call by the host", "<? again($n - 1) ?>"},
    {"a call by a template that the host runs", "<? run($n - 1) ?>"},
};

void callSoDeep(const DeepCalls& row, int depth) {
  const Stage stage;
  prepare(stage);
  stage.define("again", [](KorTemplateEnvironment* environment, ListArgument<Value> arguments) -> Value {
    return call("f", {literal(arguments[0])})->evaluateWithEnvironment(environment);
  });
  const Ref<KorTemplate> caller = KorTemplate::compile("<? f($m) ?>");
  stage.define("run", [&](KorTemplateEnvironment* environment, ListArgument<Value> arguments) -> Value {
    stage.set("m", arguments[0]);
    caller->executeWithEnvironment(environment);
    return 1;
  });
  stage.run(std::string("<? function f($n) ?><? if ($n > 1) ?>") + row.body +
            "<? endif ?><? return 1 ?><? endfunction ?>");
  stage.run("<? f(" + std::to_string(depth) + ") ?>");
  EXPECT_EQ(stage.diagnostics(), "") << row.what;
}

constexpr std::size_t kUsualStack = 8 * kKibibyte * kKibibyte;

TEST(Stacks, OfTheUsualSizeHoldAThousandBlocks) {
  for (const DeepText& row : kBlocks) {
    const std::string end = endOnStackOf(kUsualStack, [&] { useTemplate(row.text(1'000)); });
    EXPECT_TRUE(end == "well" || (kFramesAreLarge && end == "stack")) << row.what << ": " << end;
  }
}

TEST(Stacks, OfTheUsualSizeHoldAThousandParentheses) {
  for (const DeepText& row : kExpressions) {
    const std::string end = endOnStackOf(kUsualStack, [&] { useTemplate(row.text(999)); });
    EXPECT_TRUE(end == "well" || (kFramesAreLarge && end == "stack")) << row.what << ": " << end;
  }
}

TEST(Stacks, OfTheUsualSizeHoldAThousandFunctions) {
  for (const DeepCalls& row : kCalls) {
    // A function of the host's is one of those that run.
    const bool isByHost =
        std::string_view(row.what).ends_with("the host") || std::string_view(row.what).ends_with("host runs");
    const std::string end = endOnStackOf(kUsualStack, [&] { callSoDeep(row, isByHost ? 500 : 1'000); });
    EXPECT_TRUE(end == "well" || (kFramesAreLarge && end == "stack")) << row.what << ": " << end;
  }
}

TEST(Stacks, OfAQuarterOfAMebibyteHold150BlocksAndFunctions) {
  for (const DeepText& row : kBlocks) {
    const std::string end = endOnStackOf(256 * kKibibyte, [&] { useTemplate(row.text(150)); });
    EXPECT_TRUE(end == "well" || (kFramesAreLarge && end == "stack")) << row.what << ": " << end;
  }
  for (const DeepCalls& row : {kCalls[0], kCalls[1], kCalls[5]}) {
    const std::string end = endOnStackOf(256 * kKibibyte, [&] { callSoDeep(row, 150); });
    EXPECT_TRUE(end == "well" || (kFramesAreLarge && end == "stack")) << row.what << ": " << end;
  }
}

// What was compiled with more room is used with less.
void expectCleanEndsOf(const DeepText& row, std::size_t stack) {
  const std::string deep = row.text(990);
  const Stage stage;
  prepare(stage);
  const Ref<KorTemplate> compiled = KorTemplate::compile(deep);
  Ref<KorTemplateStatement> copy = compiled->copyWithZone();
  const std::function<void()> uses[] = {
      [&] { useTemplate(deep); },
      [&] { compiled->executeWithEnvironment(stage.get()); },
      [&] { (void)compiled->statements()[0]->description(); },
      [&] { (void)compiled->copyWithZone(); },
      [&] { copy = nullptr; },
  };
  for (const std::function<void()>& use : uses) {
    const WorkBound bound(row.what);
    const std::string end = endOnStackOf(stack, use);
    EXPECT_TRUE(end == "well" || end == "stack") << row.what << ": " << end;
  }
  EXPECT_EQ(stage.depth(), 1) << row.what;
  EXPECT_EQ(endOnStackOf(stack, [] { useTemplate("<? if (1) ?><?= same((1)) ?><? endif ?>"); }), "well");
}

TEST(SmallStacks, EndWhatIsNestedCleanly) {
  for (const std::size_t kibibytes : {128, 256}) {
    for (const DeepText& row : kBlocks) expectCleanEndsOf(row, kibibytes * kKibibyte);
    for (const DeepText& row : kExpressions) expectCleanEndsOf(row, kibibytes * kKibibyte);
  }
}

TEST(SmallStacks, EndFunctionsInsideOneAnotherCleanly) {
  for (const std::size_t kibibytes : {128, 256}) {
    for (const DeepCalls& row : kCalls) {
      for (const int depth : {50, 900, 100'000}) {
        const WorkBound bound(row.what);
        const std::string end = endOnStackOf(kibibytes * kKibibyte, [&] { callSoDeep(row, depth); });
        EXPECT_TRUE(end == "well" || end == "stack" || end.ends_with("inside one another")) << row.what << ": " << end;
      }
    }
  }
}

// Each rendering is one of its own, with an environment of its own, inside of a function of the one around it.
std::string renderInside(int depth) {
  const Stage stage;
  prepare(stage);
  stage.define("inner", [depth](auto&&...) -> Value { return depth == 0 ? "end" : renderInside(depth - 1); });
  const Ref<KorTemplateStringStream> text = KorTemplateStringStream::stringStream();
  stage.environment->setOutputStream(text);
  stage.run("<?= inner() ?>");
  return std::string(text->buffer()->string());
}

TEST(SmallStacks, EndRenderingsInsideOneAnotherCleanly) {
  for (const std::size_t kibibytes : {128, 256}) {
    for (const int depth : {3, 1'000}) {
      std::string rendered;
      const std::string end = endOnStackOf(kibibytes * kKibibyte, [&] { rendered = renderInside(depth); });
      EXPECT_TRUE((end == "well" && rendered == "end") || (end == "stack" && depth > 3)) << depth << ": " << end;
    }
  }
}

TEST(SmallStacks, HoldChainsOfAnyLength) {
  constexpr int kLinks = 20'000;
  const std::string chains[] = {
      "<? 0" + repeated(" + 1", kLinks) + " ?><?= 1 ?>",
      "<? \"\"" + repeated(" + \"a\"", kLinks) + " ?><?= 1 ?>",
      "<? 1" + repeated(" * 2 - $one == 3 && $one", kLinks / 4) + " ?><?= 1 ?>",
      "<? if ($none) ?>a" + repeated("<? elseif ($none) ?>b", kLinks) + "<? else ?>1<? endif ?>",
      "<?= 1 ?><? if ($none) ?>" + repeated("<?= $one ?>x", kLinks) + "<? endif ?>",
  };
  for (const std::string& text : chains) {
    const WorkBound bound(text.substr(0, 20));
    EXPECT_EQ(endOnStackOf(128 * kKibibyte, [&] { useTemplate(text); }), "well") << text.substr(0, 20);
  }
}

TEST(SmallStacks, EndWhatIsDoneWithDeepValuesCleanly) {
  Value lists = 1;
  Value dictionaries = 1;
  for (int level = 0; level < 990; ++level) {
    lists = NSArray::arrayWithObjects({lists});
    dictionaries = NSDictionary::dictionaryWithEntries({{"a", dictionaries}});
  }
  const char* const uses[] = {"<?= $v ?>",
                              "<? $x = \"\" + $v ?>",
                              "<? $x = ($v == $w) ?>",
                              "<?= $v.@count ?>",
                              "<?= $v.a ?>",
                              "<?= $v.a.a.a.a ?>",
                              "<? $v =~ /1/ ?>",
                              "<? $v < $w ?>",
                              "<?= $v.@sum.a ?>",
                              "<?= $v.@max.a ?>",
                              "<?= $v.length ?>",
                              "<? if ($v) ?><? endif ?>",
                              "<?= $v.@distinctUnionOfObjects ?>"};
  for (const std::size_t kibibytes : {128, 256}) {
    for (const Value& value : {lists, dictionaries}) {
      for (const char* const use : uses) {
        const std::string end = outcomeOnStackOf(kibibytes * kKibibyte, [&] {
          const Stage stage;
          stage.set("v", value);
          stage.set("w", NSArray::arrayWithObjects({value}));
          (void)raisedBy([&] { stage.run(use); });
        });
        EXPECT_TRUE(end == "well" || end == "stack") << use << ": " << end;
      }
    }
  }
}

// A host's object that answers by what it wraps, and counts itself as a level where it compares. Each of its functions
// takes so many bytes of the stack.
template <std::size_t kBytes>
class Wrapper final : public NSObject {
 public:
  explicit Wrapper(Value inner) : inner_(std::move(inner)) {}

  bool isEqual(const NSObject& other, std::int32_t depth) const override {
    const auto* const wrapper = dynamic_cast<const Wrapper*>(&other);
    return taking([&] { return wrapper != nullptr && inner_.isEqual(wrapper->inner_, depth + 1); });
  }
  std::optional<bool> isLessThan(const Value& other) const override {
    const auto* const wrapper = dynamic_cast<const Wrapper*>(other.object());
    return taking([&] { return wrapper == nullptr ? std::nullopt : inner_.isLessThan(wrapper->inner_); });
  }
  std::size_t hash() const override {
    return taking([&] { return inner_.hash() + 1; });
  }
  void describe(Description& out) const override {
    out.part(taking([&] { return inner_.description(); }));
  }
  bool findValueForKey(const NSString& key, Value& value) const override {
    return taking([&] { return tavlo::findValueForKey(inner_, key, value); });
  }
  const char* className() const override { return "Wrapper"; }

 private:
  template <class Body>
  [[gnu::noinline]] static auto taking(const Body& body) {
    volatile char room[kBytes];
    for (std::size_t at = 0; at < kBytes; at += 1024) room[at] = 1;
    auto answer = body();
    return room[0] == 1 ? answer : throw std::logic_error("the frame was overwritten");
  }

  Value inner_;
};

template <std::size_t kBytes>
Value wrapped(int times, bool isInLists) {
  Value value = 1;
  for (int time = 0; time < times; ++time) {
    if (isInLists) value = NSArray::arrayWithObjects({value});
    value = makeRef<Wrapper<kBytes>>(value);
  }
  return value;
}

template <std::size_t kBytes>
void useWrapped(std::size_t bytesOfStack, std::uint64_t stackLeft, int times) {
  for (const bool isInLists : {false, true}) {
    for (const char* const use :
         {"<? $x = ($a == $b) ?>", "<? $x = ($a < $b) ?>", "<? $x = $list.@distinctUnionOfObjects ?>",
          "<? $x = \"\" + $a ?>", "<?= $a.key ?>"}) {
      const std::string end = outcomeOnStackOf(bytesOfStack, [&] {
        const Stage stage;
        KorTemplateLimits limits;
        limits.stackLeft = stackLeft;
        limits.valueDepth = 1'000'000;
        stage.environment->setLimits(limits);
        stage.set("a", wrapped<kBytes>(times, isInLists));
        stage.set("b", wrapped<kBytes>(times, isInLists));
        stage.set("list", NSArray::arrayWithObjects({stage.global("a"), stage.global("b")}));
        stage.run(use);
      });
      EXPECT_EQ(end, "stack") << use << ", in lists: " << isInLists;
    }
  }
}

// A method by selector that calls itself again by C++: its function, or an invocation.
class Descending final : public NSObject {
 public:
  Descending() {
    methods_.addMethod("down:",
                       HostMethod::of<Descending>([](Descending& it, const Value& left) { return it.down(left); }));
  }
  const char* className() const override { return "Descending"; }
  BoundMethod methodForSelector(const Selector& selector) const override {
    return methods_.find(selector, const_cast<Descending*>(this));  // NOLINT(*-const-cast): the method changes nothing
  }

  Ref<KorTemplateFunction> function;  // in whose place an invocation is made where it is absent
  KorTemplateEnvironment* environment = nullptr;

 private:
  Value down(const Value& left) {
    const Value less = left.intValue() - 1;
    if (left.intValue() == 0) return 0;
    if (function != nullptr) return function->invokeWithEnvironment(environment, {less});
    const auto invocation = NSInvocation::invocationWithMethodSignature(methodSignatureForSelector("down:"));
    invocation->setSelector("down:");
    invocation->setArgument<Value>(less, 2);
    invocation->invokeWithTarget(this);
    return invocation->getReturnValue<Value>();
  }

  HostMethodTable methods_;
};

TEST(SmallStacks, AreGuardedWhereAMethodCallsItself) {
  for (const bool isByFunction : {false, true}) {
    const std::string end = outcomeOnStackOf(256 * kKibibyte, [&] {
      const Stage stage;
      const Ref<Descending> target = makeRef<Descending>();
      stage.environment->setFunctionForName(KorTemplateExternalFunction::functionWithSelectorTarget("down:", *target),
                                            "down");
      target->environment = stage.get();
      if (isByFunction) target->function = stage.environment->functionForName("down");
      stage.run("<? down(100000) ?>");
    });
    EXPECT_EQ(end, "stack") << isByFunction;
  }
}

TEST(SmallStacks, AreGuardedWhereAHostsObjectsAskOneAnother) {
  useWrapped<200>(256 * kKibibyte, KorTemplateLimits{}.stackLeft, 5'000);
}

TEST(SmallStacks, HaveAsMuchLeftForAHostsObjectsAsTheLimitsSay) {
  useWrapped<200 * kKibibyte>(8 * kKibibyte * kKibibyte, 1024 * kKibibyte, 100);
}

}  // namespace

}  // namespace tavlo::test
