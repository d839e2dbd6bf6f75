#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <limits>
#include <map>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Foundation/Description.h"
#include "Foundation/HostObject.h"
#include "Foundation/LazyCollections.h"
#include "Foundation/NSArray.h"
#include "Foundation/NSDictionary.h"
#include "Foundation/NSKeyValueCoding.h"
#include "Source/KorTemplateCallableFunction.h"
#include "Source/KorTemplateCallbackStream.h"
#include "Source/KorTemplateExternalFunction.h"
#include "Source/KorTemplateRendering.h"
#include "Source/KorTemplateVariableExpression.h"
#include "Tests/Source/HostClasses.h"

// Types of a host that does what it should not, or what nobody expects.
namespace unruly {

struct Note {
  std::string_view text() const { return body; }
  double weighed() {
    if (whenRead) whenRead();
    return 1.5;
  }
  std::string titleOf(const Note& other) const { return other.body; }
  std::string renamed(Note& other) const { return other.body += "!"; }

  std::shared_ptr<void> receipt() const { return std::exchange(lastReceipt, nullptr); }

  std::string body;
  std::function<void()> whenRead = {};
  mutable std::shared_ptr<void> lastReceipt = {};
};
void describeHostClass(tavlo::HostClass<Note>& note) {
  note.name("Note")
      .property("text", &Note::text)
      .property("weight", &Note::weighed)
      .property("wide", [](const Note& each) { return std::u16string(each.body.begin(), each.body.end()); })
      .property("bytes", [](const Note& each) { return std::u8string(each.body.begin(), each.body.end()); })
      .property("brokenWide", [](const Note&) { return std::u16string(1, char16_t{0xD800}); })
      .method("titleOf:", &Note::titleOf)
      .method("renamed:", &Note::renamed)
      .method("receipt", &Note::receipt)
      .method("countOf:", [](Note&, const tavlo::Ref<tavlo::NSArray>& list) { return list->count(); });
}

struct Speechless {};
void describeHostClass(tavlo::HostClass<Speechless>& speechless) {
  speechless.name("Speechless").description([](const Speechless&) -> const char* { return nullptr; });
}

template <class T, std::size_t>
struct Small : std::vector<T> {
  using std::vector<T>::vector;
};
struct Names : std::vector<std::string_view> {
  using std::vector<std::string_view>::vector;
};

struct SilentException : std::exception {
  const char* what() const noexcept override { return nullptr; }
};

}  // namespace unruly

namespace tavlo::test {

namespace {

using unruly::Note;

struct RaisedRow {
  const char* what;
  std::function<void()> raise;
  const char* reason;
};

const RaisedRow kRaised[] = {
    {"nothing to say", [] { throw unruly::SilentException(); }, "std::exception"},
    {"bytes that are no text", [] { throw std::runtime_error("a\xFF\xC3z"); }, "a\uFFFD\uFFFDz"},
    {"an exception of the family with such", [] { throw NSException("Odd\xFF", "b\xE2\x82"); }, "b\uFFFD\uFFFD"},
    {"a character and its end missing", [] { throw std::runtime_error("\u00e9\xC3"); }, "\u00e9\uFFFD"},
};

TEST(AnExceptionOfAHost, IsToldAsValidText) {
  for (const RaisedRow& row : kRaised) {
    const Stage stage;
    std::string told;
    stage.environment->setDiagnosticCallback([&](const KorTemplateFailure& failure) { told = failure.reason(); });
    stage.environment->setFunction("f", row.raise);
    stage.run("a<?= f() ?>b");
    EXPECT_EQ(stage.text(), "ab") << row.what;
    EXPECT_EQ(stage.diagnostics(), row.reason) << row.what;
    EXPECT_EQ(told, row.reason) << row.what;
  }
}

TEST(AnExceptionOfAHost, IsToldAsValidTextWhereItEndsTheExecution) {
  for (const RaisedRow& row : kRaised) {
    const Stage stage;
    Note note{.body = "n", .whenRead = row.raise};
    stage.environment->setGlobal("note", std::ref(note));
    const KorTemplateResult<void> result =
        KorTemplate::compile("<?= $note.weight ?>")->tryExecuteWithEnvironment(stage.get());
    ASSERT_FALSE(result) << row.what;
    EXPECT_EQ(result.failure().reason(), row.reason) << row.what;
    EXPECT_EQ(stage.environment->lastFailure()->reason(), row.reason) << row.what;
  }
}

TEST(ANameOfATemplate, IsToldAsValidText) {
  const Ref<KorTemplate> page = KorTemplate::compile("x", {.name = "p\xFF.html"});
  EXPECT_EQ(page->name(), "p\uFFFD.html");
}

TEST(ADescription, MayHaveNothingToSay) {
  const Stage stage;
  unruly::Speechless speechless;
  stage.environment->setGlobal("it", std::ref(speechless));
  stage.run("[<?= $it ?>]");
  EXPECT_EQ(stage.text(), "[]");
}

TEST(ATextProperty, MayBeOfEveryKindOfText) {
  const Stage stage;
  Note note{.body = "abc"};
  stage.environment->setGlobal("note", std::ref(note));
  stage.run("<?= $note.wide ?>,<?= $note.bytes ?>,<?= $note.wide.length ?>");
  EXPECT_EQ(stage.text(), "abc,abc,3");
  EXPECT_THAT(raisedBy([&] { stage.run("<?= $note.brokenWide ?>"); }),
              testing::StartsWith("NSInvalidArgumentException: "));
}

TEST(AStream, MayChangeTheObjectWhoseTextItIsGiven) {
  const std::string text(500, 'x');
  const Stage stage;
  Note note{.body = text};
  stage.output->onWrite = [&](const Text&) { std::string(1000, 'y').swap(note.body); };
  stage.environment->setGlobal("note", std::ref(note));
  stage.run("<?= $note.text ?>");
  EXPECT_EQ(stage.text(), text);
}

TEST(AStream, MayWriteWhileItIsGivenAText) {
  const Stage stage;
  Note note{.body = std::string(100, 'x')};
  stage.environment->setGlobal("note", std::ref(note));
  int left = 3;
  stage.output->onWrite = [&](const Text&) {
    if (left-- > 0) stage.run("<?= $note.text ?>");
  };
  stage.run("<?= $note.text ?>");
  EXPECT_EQ(stage.text(), std::string(400, 'x'));
}

TEST(ACallbackStream, DeliversATextThatItsCallbackHasChanged) {
  const Stage stage;
  const std::string text(200, 'x');
  Note note{.body = text};
  std::string delivered;
  const auto callback = [&](std::string_view piece) {
    std::string("gone").swap(note.body);
    delivered += piece;
  };
  stage.environment->setOutputStream(KorTemplateCallbackStream::streamWithCallback(callback, 100));
  stage.environment->setGlobal("note", std::ref(note));
  stage.run("abc<?= $note.text ?>");
  EXPECT_EQ(delivered, "abc" + text);
}

TEST(ALazyCollection, IsTakenWhereACopyOfItIsMade) {
  const Stage stage;
  const std::vector<int> numbers{1, 2, 3};
  const std::vector<std::vector<std::string>> nested{{"a", "b"}, {"c"}};
  const std::map<std::string, int> sizes{{"small", 1}, {"large", 2}};
  Note note;
  KorTemplateEnvironment& environment = *stage.environment;
  environment.setGlobal("numbers", std::cref(numbers));
  environment.setGlobal("nested", std::cref(nested));
  environment.setGlobal("sizes", std::cref(sizes));
  environment.setFunction("second", [](const std::vector<int>& list) { return list.at(1); });
  environment.setFunction("spanned", [](std::span<const int> list) { return list.size(); });
  environment.setFunction("third", [](const std::array<int, 3>& list) { return list[2]; });
  environment.setFunction("first", [](const std::tuple<int, int, int>& list) { return std::get<0>(list); });
  environment.setFunction("deep", [](const std::vector<std::vector<std::string>>& list) { return list[0][1]; });
  environment.setFunction("large", [](const std::map<std::string, int>& map) { return map.at("large"); });
  environment.setFunction("array", [](const Ref<NSArray>& list) { return list->count(); });
  environment.setFunction("dictionary", [](const Ref<NSDictionary>& entries) { return entries->count(); });
  environment.setFunctionForName(KorTemplateExternalFunction::functionWithSelectorTarget("countOf:", note), "countOf");
  stage.run(
      "<?= second($numbers) ?>,<?= spanned($numbers) ?>,<?= third($numbers) ?>,<?= first($numbers) ?>,"
      "<?= deep($nested) ?>,<?= large($sizes) ?>,<?= array($numbers) ?>,<?= dictionary($sizes) ?>,"
      "<?= countOf($numbers) ?>");
  EXPECT_EQ(stage.text(), "2,3,3,1,b,2,3,2,3");
  EXPECT_EQ(stage.diagnostics(), "");
}

TEST(ALazyCollection, IsRefusedWhereItsValuesWouldBeReferredTo) {
  const Stage stage;
  const std::vector<std::string> texts{"a"};
  stage.environment->setGlobal("texts", std::cref(texts));
  stage.environment->setFunction("f", [](const std::vector<std::string_view>& list) { return list.size(); });
  stage.run("<?= f($texts) ?>");
  EXPECT_EQ(stage.diagnostics(), "Incorrect type for array argument at index 2 of f. NSArray of NSString expected.");
}

TEST(ALazyCollection, MayClaimAnyLength) {
  const Stage stage;
  const Value list = lazyList([] { return std::numeric_limits<std::size_t>::max(); },
                              [](std::size_t index) -> std::size_t {
                                if (index > 3) throw NSException("Short", "there are no more");
                                return index;
                              });
  stage.set("list", list);
  EXPECT_EQ(raisedBy([&] { stage.run("<?= $list ?>"); }), "Short: there are no more");
}

TEST(AConstantObject, IsTakenWhereItIsOnlyRead) {
  const Stage stage;
  const Note note{.body = "n"};
  const std::vector<Note> notes{note, note};
  KorTemplateEnvironment& environment = *stage.environment;
  stage.set("note", hostReference(note));
  environment.setGlobal("notes", std::cref(notes));
  environment.setFunction("reference", [](const Note& each) { return each.body; });
  environment.setFunction("pointer", [](const Note* each) { return each->body; });
  environment.setFunction("copy", [](Note each) { return each.body += "c"; });
  environment.setFunction("optional", [](const std::optional<Note>& each) { return each->body; });
  environment.setFunction("list", [](const std::vector<Note>& each) { return each.size(); });
  environment.setFunction(
      "overload", [](const Note& each) { return each.body; },
      [](const Note& each, int count) { return each.body + std::to_string(count); });
  Note other;
  environment.setFunctionForName(KorTemplateExternalFunction::functionWithSelectorTarget("titleOf:", other), "titleOf");
  stage.run(
      "<?= reference($note) ?>,<?= pointer($note) ?>,<?= copy($note) ?>,<?= optional($note) ?>,<?= list($notes) ?>,"
      "<?= overload($note, 2) ?>,<?= titleOf($note) ?>");
  EXPECT_EQ(stage.text(), "n,n,nc,n,2,n2,n");
  EXPECT_EQ(stage.diagnostics(), "");
}

TEST(AConstantObject, IsRefusedWhereItMayBeChangedAndTheMessageSaysWhy) {
  const Stage stage;
  const Note note{.body = "n"};
  Note other;
  stage.set("note", hostReference(note));
  stage.environment->setFunction("change", [](Note& each) { each.body = "changed"; });
  stage.environment->setFunction("point", [](Note* each) { each->body = "changed"; });
  stage.environment->setFunctionForName(KorTemplateExternalFunction::functionWithSelectorTarget("renamed:", other),
                                        "rename");
  stage.run("<? change($note) ?><? point($note) ?><? rename($note) ?><? change(1) ?>");
  EXPECT_EQ(note.body, "n");
  EXPECT_EQ(stage.diagnostics(),
            "Incorrect type for Note argument at index 2 of change. Changeable Note expected.|"
            "Incorrect type for Note argument at index 2 of point. Changeable Note expected.|"
            "renamed:: incorrect object at index 2: Note supplied, Changeable Note expected.|"
            "Incorrect type for Note argument at index 2 of change. Note expected.");
}

// Runs what it holds when it ends.
struct AtItsEnd {
  explicit AtItsEnd(std::function<void()> action) : end(std::move(action)) {}
  AtItsEnd(const AtItsEnd&) = delete;
  AtItsEnd& operator=(const AtItsEnd&) = delete;
  ~AtItsEnd() { end(); }
  std::function<void()> end;
};

TEST(AnEnvironmentThatIsReset, StandsTheEndsOfWhatItHeld) {
  const std::pair<const char*, std::function<void(KorTemplateEnvironment&)>> rows[] = {
      {"takes the stack away", [](KorTemplateEnvironment& environment) { environment.setStack(nullptr); }},
      {"notes it anew", [](KorTemplateEnvironment& environment) { environment.remember(); }},
      {"resets it once more", [](KorTemplateEnvironment& environment) { environment.reset(); }},
      {"sets a global", [](KorTemplateEnvironment& environment) { environment.setGlobal("late", 1); }},
  };
  for (const auto& [what, action] : rows) {
    const Stage stage;
    auto ending = std::make_shared<AtItsEnd>([&stage, &run = action] { run(*stage.environment); });
    stage.set("list", lazyList([ending] { return std::size_t{1}; }, [](std::size_t index) { return index; }));
    for (int number = 0; number < 30; ++number) stage.set("g" + std::to_string(number), number);
    ending.reset();
    stage.environment->reset();
    stage.environment->setOutputStream(stage.output);
    stage.run("<?= $g1 ?><?= $late ?>ok");
    EXPECT_EQ(stage.text(), "ok") << what;
  }
}

// An object that runs the action when it ends.
Value endingWith(std::function<void()> action) {
  return lazyList([ending = std::make_shared<AtItsEnd>(std::move(action))] { return std::size_t{0}; },
                  [](std::size_t index) { return index; });
}

TEST(ASequenceWithoutAWalk, CannotBeEnumerated) {
  class Empty final : public LazySequence {
   public:
    Ref<NSEnumerator> objectEnumerator() const override { return nullptr; }
  };
  for (const char* const text : {"<? foreach ($e in $s) ?><? endforeach ?>", "<?= $s.n ?>", "<?= $s.@count ?>",
                                 "<?= $s.@sum ?>", "<?= $s.@sum.n ?>"}) {
    const Stage stage;
    stage.set("s", Value(makeRef<Empty>()));
    EXPECT_EQ(raisedBy([&] { stage.run(text); }),
              "NSGenericException: LazySequence cannot be enumerated because it does not respond to objectEnumerator")
        << text;
  }
}

// An invocation keeps its last result, of whatever type, until the next one.
TEST(AResultOfAMethod, MayCallTheMethodAgainWhenItEnds) {
  const Stage stage;
  Note note;
  stage.environment->setFunctionForName(KorTemplateExternalFunction::functionWithSelectorTarget("receipt", note),
                                        "pay");
  int ends = 0;
  note.lastReceipt = std::make_shared<AtItsEnd>([&] {
    ++ends;
    stage.run("<? pay() ?>");
  });
  for (int time = 0; time < 3; ++time) stage.run("<? pay() ?>");
  EXPECT_EQ(ends, 1);
  EXPECT_EQ(stage.diagnostics(), "");
}

TEST(AStack, StandsTheEndsOfWhatItPops) {
  const Stage stage;
  stage.environment->stack()->push(KorTemplateStackFrame::stackFrame());
  stage.environment->stack()->currentFrame()->setValueForVariableWithName(
      endingWith([&] { stage.environment->setStack(nullptr); }), "x");
  stage.environment->stack()->pop();
  EXPECT_EQ(stage.environment->stack(), nullptr);
}

// What ends deep inside other ends waits for the outermost one; not so what a template there makes.
TEST(ATemplateThatRunsInAnEnd, HoldsNothingThatItLetsGoOf) {
  for (int depth = 1; depth < 140; ++depth) {
    const Stage stage;
    int rows = 0;
    int mostRows = 0;
    stage.environment->setFunction("row", [&] {
      mostRows = std::max(mostRows, ++rows);
      return endingWith([&rows] { --rows; });
    });
    stage.set("list", NSArray::arrayWithObjects({1, 2, 3, 4, 5, 6, 7, 8}));
    int runs = 0;
    Value chain = endingWith([&] {
      ++runs;
      stage.run("<? foreach ($i in $list) ?><? $r = row() ?><? $r = null ?><? endforeach ?>");
    });
    for (int level = 1; level < depth; ++level) chain = NSArray::arrayWithObjects({chain});
    chain = Value();
    EXPECT_EQ(runs, 1);
    EXPECT_EQ(rows, 0);
    EXPECT_EQ(mostRows, 1) << depth;
  }
}

TEST(AFunction, MayTakeViewsInAContainerOfTheHosts) {
  const Stage stage;
  const Ref<NSMutableArray> list = NSMutableArray::array();
  for (int number = 0; number < 3; ++number) list->addObject("a text that lies on the heap " + std::to_string(number));
  stage.set("list", list);
  const auto lengthOf = [&](const auto& names) {
    list->removeAllObjects();
    std::string all;
    for (const std::string_view name : names) all += name;
    return all;
  };
  const std::string expected =
      "a text that lies on the heap 0a text that lies on the heap 1a text that lies on the heap 2";
  stage.environment->setFunction("small",
                                 [&](const unruly::Small<std::string_view, 4>& names) { return lengthOf(names); });
  stage.environment->setFunction("names", [&](const unruly::Names& names) { return lengthOf(names); });
  for (const char* const name : {"small", "names"}) {
    if (list->count() == 0) {
      for (int number = 0; number < 3; ++number) {
        list->addObject("a text that lies on the heap " + std::to_string(number));
      }
    }
    stage.output->writes.clear();
    stage.run(std::string("<?= ") + name + "($list) ?>");
    EXPECT_EQ(stage.output->joined(""), expected) << name;
  }
}

TEST(AFunction, MayTakeViewsDeepInContainers) {
  using Rows = std::vector<std::vector<std::vector<std::optional<std::string_view>>>>;
  const Stage stage;
  const Ref<NSMutableArray> cell = NSMutableArray::array();
  cell->addObject("a text that lies on the heap");
  const Value rows = NSArray::arrayWithObjects({NSArray::arrayWithObjects({Value(cell)})});
  stage.set("tables", NSArray::arrayWithObjects({NSDictionary::dictionaryWithEntries({{"rows", rows}})}));
  stage.environment->setFunction("f", [&](const std::vector<std::map<std::string, Rows>>& tables) {
    cell->removeAllObjects();
    return std::string(tables[0].at("rows")[0][0][0].value());
  });
  stage.run("<?= f($tables) ?>");
  EXPECT_EQ(stage.output->joined(""), "a text that lies on the heap");
}

// What it has made may refer to what it frees when it returns.
TEST(AnEnd, LetsGoAtOnceOfWhatItHasMade) {
  for (int depth = 1; depth < 300; ++depth) {
    int ends = 0;
    Value chain;
    for (int level = 0; level < depth; ++level) {
      chain = NSArray::arrayWithObjects({endingWith([&ends, next = chain] {
        const int before = ends;
        {
          const Stage stage;
          stage.set("list", NSArray::arrayWithObjects({NSArray::arrayWithObjects({endingWith([&ends] { ++ends; })})}));
          stage.environment->setFunction("kept", [guard = endingWith([&ends] { ++ends; })] { return guard; });
          stage.run("<? $x = kept() ?>");
        }
        EXPECT_EQ(ends, before + 2);
      })});
    }
    chain = Value();
    EXPECT_EQ(ends, 2 * depth);
  }
}

TEST(AnEnd, MakesAndLetsGoOfLongChains) {
  struct Link {
    static Value make(int length, int& ends) {
      Value chain = 0;
      for (int level = 0; level < length; ++level) {
        chain = endingWith([&ends, next = chain]() mutable {
          std::array<volatile char, 4096> ofTheStack;
          ofTheStack.front() = 1;
          ends += ofTheStack.front();
          const Value made = NSArray::arrayWithObjects({std::move(next)});  // and ends here, with all behind it
        });
      }
      return chain;
    }
  };
  int ends = 0;
  Link::make(100'000, ends) = Value();
  EXPECT_EQ(ends, 100'000);
}

TEST(AnEnd, MayCountItsObjectOnceMore) {
  class Object final : public NSObject {
   public:
    Object(Value next, int& ends) : next_(std::move(next)), ends_(ends) {}
    ~Object() override {
      const Value again = Ref<NSObject>::retaining(this);
      ++ends_;
    }

   private:
    Value next_;
    int& ends_;
  };
  int ends = 0;
  Value chain;
  for (int level = 0; level < 200; ++level) chain = makeRef<Object>(chain, ends);
  chain = Value();
  EXPECT_EQ(ends, 200);
}

TEST(AnEnvironment, MayEndWithWhatItLetsGoOf) {
  class Function final : public KorTemplateFunction {
   public:
    explicit Function(Value held) : held_(std::move(held)) {}
    Value invokeWithEnvironment(KorTemplateEnvironment* /*environment*/, ListArgument<Value> /*arguments*/) override {
      return Value::null();
    }
    bool isEqual(const NSObject& /*other*/, std::int32_t /*depth*/) const override { return true; }

   private:
    Value held_;
  };
  class Stream final : public KorTemplateStream {
   public:
    explicit Stream(Value held) : held_(std::move(held)) {}
    void write(const Text& /*text*/) override {}

   private:
    Value held_;
  };
  Ref<KorTemplateEnvironment> environment = KorTemplateEnvironment::environment();
  const auto ending = [&] { return endingWith([&environment] { environment = nullptr; }); };
  environment->setOutputStream(makeRef<Stream>(ending()));
  environment->setOutputStream(nullptr);
  EXPECT_EQ(environment, nullptr);
  environment = KorTemplateEnvironment::environment();
  for (const char* name : {"a", "b"}) environment->setFunctionForName(makeRef<Function>(ending()), name);
  environment->removeFunction(makeRef<Function>(Value::null()));
  EXPECT_EQ(environment, nullptr);
}

TEST(AnEnvironment, LivesUntilTheTemplateThatRunsInItHasEnded) {
  const Ref<RecordingStream> output = makeRef<RecordingStream>();
  Ref<KorTemplateEnvironment> environment = KorTemplateEnvironment::environment();
  environment->setOutputStream(output);
  environment->setFunction("letGo", [&] { environment = nullptr; });
  const Ref<KorTemplate> page = KorTemplate::compile("a<? letGo() ?>b");
  page->executeWithEnvironment(environment.get());
  EXPECT_EQ(output->joined(""), "ab");
  EXPECT_EQ(environment, nullptr);
}

// A text in Latin-1, as hosts have it that never thought of others.
constexpr const char* kLatin1 = "abcdefghijklmnopqrstuvwxyz0123456789caf\xE9";

TEST(TextsThatAreNoUTF8, AreRefusedFromADescription) {
  class Person final : public NSObject {
   public:
    void describe(Description& out) const override { out.part(kLatin1); }
  };
  const Stage stage;
  stage.set("person", makeRef<Person>());
  for (const char* const text : {"<?= $person ?>", "<? $s = ($person + \"\") ?>"}) {
    EXPECT_THAT(raisedBy([&] { stage.run(text); }), testing::HasSubstr("valid UTF-8")) << text;
  }
  EXPECT_EQ(stage.text(), "");
}

TEST(TextsThatAreNoUTF8, AreRefusedAsAClassName) {
  class Person final : public NSObject {
   public:
    const char* className() const override { return kLatin1; }
  };
  const Stage stage;
  stage.set("person", makeRef<Person>());
  EXPECT_THAT(raisedBy([&] { stage.run("<?= $person ?>"); }), testing::HasSubstr("valid UTF-8"));
}

TEST(TextsThatAreNoUTF8, AreRefusedAsAKeyPath) {
  const Value root = NSDictionary::dictionaryWithEntries({{"a", 1}});
  EXPECT_THAT(raisedBy([&] { (void)valueForKeyPath(root, kLatin1); }), testing::HasSubstr("valid UTF-8"));
  EXPECT_THAT(raisedBy([] { (void)makeRef<KorTemplateVariableExpression>(Name("a"), std::string_view(kLatin1)); }),
              testing::HasSubstr("valid UTF-8"));
}

// It includes a template that it compiles for that, and forgets.
class Including final : public KorTemplateStatement {
 public:
  explicit Including(std::string part) : part_(std::move(part)) {}

  void executeWithEnvironment(KorTemplateEnvironment* environment) override { executePublicly(*environment); }
  Completion execute(KorTemplateEnvironment& environment) override {
    try {
      (void)KorTemplate::compile(part_)->execute(environment);
    } catch (const NSException&) {
      EXPECT_EQ(environment.statement(), this);
    }
    throw NSException(NSGenericException, "No more parts");
  }
  Ref<KorTemplateStatement> copyWithZone(NSZone* /*zone*/) const override { return makeRef<Including>(part_); }

 private:
  std::string part_;
};

TEST(AHostsStatement, MayFailBehindATemplateThatIsGone) {
  for (const char* const part :
       {"\n\n<?= 2 ?>part", "\n\n<?= 2 ?>part<? 1 / 0 ?>", "\n\n<?= 2 ?>part<? if (true) ?><? 1 / 0 ?><? endif ?>"}) {
    const Stage stage;
    const Ref<KorTemplate> page = KorTemplate::compile("a<?= 1 ?>");
    page->addStatement(makeRef<Including>(part));
    const KorTemplateResult<void> result = page->tryExecuteWithEnvironment(stage.get());
    EXPECT_EQ(stage.text(), "a1\n\n2part");
    EXPECT_THAT(result.failure().text(), testing::HasSubstr("No more parts"));
  }
}

}  // namespace

}  // namespace tavlo::test
