#include <gtest/gtest.h>

#include <functional>
#include <list>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "Foundation/HostMethodTable.h"
#include "Foundation/HostObject.h"
#include "Foundation/LazyCollections.h"
#include "Source/KorTemplateCallableFunction.h"
#include "Source/KorTemplateExternalFunction.h"
#include "Tests/Source/HostClasses.h"

namespace tavlo::test {

// Texts that no string keeps in itself, so that a read of one that is gone shows.
struct Volume {
  std::string title = std::string(40, 't');
};

void describeHostClass(HostClass<Volume>& volume) {
  volume.name("Volume").property("title", &Volume::title).property("rename", [](Volume& renamed) {
    return renamed.title += '!';
  });
}

// The same that nobody can copy.
struct Manuscript : Volume {
  Manuscript() = default;
  Manuscript(const Manuscript&) = delete;
  Manuscript& operator=(const Manuscript&) = delete;
};

void describeHostClass(HostClass<Manuscript>& manuscript) {
  manuscript.name("Manuscript").inherits<Volume>();
}

// The same that is counted itself.
class Ledger : public DescribedObject<Ledger>, public Volume {
 public:
  std::string rename() { return title += '!'; }
};

void describeHostClass(HostClass<Ledger>& ledger) {
  ledger.name("Ledger").property("title", [](const Ledger& it) -> const std::string& { return it.title; });
  ledger.property("rename", &Ledger::rename);
}

struct Archive {
  explicit Archive(int& count) : alive(&count) {
    ++*alive;
    manuscripts.push_back(std::make_unique<Manuscript>());
  }
  Archive(const Archive&) = delete;
  Archive& operator=(const Archive&) = delete;
  ~Archive() { --*alive; }

  const std::vector<std::string>& list() const { return words; }
  std::vector<std::string>& changeableList() { return words; }
  const std::map<std::string, std::string>& dictionary() const { return named; }
  const std::set<std::string>& set() const { return members; }
  const std::list<int>& sequence() const { return numbers; }
  const std::u16string& wide() const { return wideText; }
  const std::u8string& bytes() const { return byteText; }
  const Volume& constant() const { return volume; }
  Volume& changeable() { return volume; }
  Volume* pointer() { return &volume; }
  const Volume* constantPointer() const { return &volume; }
  const Volume* nothing() const { return nullptr; }
  std::reference_wrapper<Volume> wrapped() { return volume; }
  std::optional<std::reference_wrapper<Volume>> optional() { return volume; }
  std::vector<Volume*> pointers() { return {&volume}; }
  std::pair<const Volume*, int> pair() const { return {&volume, 1}; }
  std::variant<Volume*, int> variant() { return &volume; }
  std::map<std::string, std::reference_wrapper<const std::vector<std::string>>> lists() { return {{"key", words}}; }
  const Manuscript& manuscript() const { return *manuscripts[0]; }
  const std::vector<std::unique_ptr<Manuscript>>& drafts() const { return manuscripts; }
  const Ledger* ledger() const { return counted.get(); }
  const Ledger& ledgerReference() const { return *counted; }
  Ref<const Ledger> ledgerReferred() const { return counted; }
  std::vector<const Ledger*> ledgers() const { return {counted.get()}; }

  const std::vector<std::string>& longer(const std::vector<std::string>& left,
                                         const std::vector<std::string>& right) const {
    return left.size() > right.size() ? left : right;
  }
  std::string titleOf(const Ledger& read) const { return read.title; }
  std::string titleAt(const Ledger* read) const { return read->title; }
  std::string titleBehind(const Ref<const Ledger>& read) const { return read->title; }
  void change(Ledger& changed) const { changed.title.clear(); }
  void changeAt(Ledger* changed) const { changed->title.clear(); }
  void changeBehind(const Ref<Ledger>& changed) const { changed->title.clear(); }

  int* alive;
  std::vector<std::string> words = {std::string(40, 'a'), std::string(40, 'b')};
  std::map<std::string, std::string> named = {{"key", std::string(40, 'm')}};
  std::set<std::string> members = {"one"};
  std::list<int> numbers = {1, 2};
  std::u16string wideText = u"wide";
  std::u8string byteText = u8"bytes";
  Volume volume;
  std::vector<std::unique_ptr<Manuscript>> manuscripts;
  Ref<Ledger> counted = makeRef<Ledger>();
};

void describeHostClass(HostClass<Archive>& archive) {
  archive.name("Archive")
      .method("list", &Archive::list)
      .method("changeableList", &Archive::changeableList)
      .method("words", &Archive::words)
      .method("dictionary", &Archive::dictionary)
      .method("set", &Archive::set)
      .method("sequence", &Archive::sequence)
      .method("wide", &Archive::wide)
      .method("bytes", &Archive::bytes)
      .method("constant", &Archive::constant)
      .method("volume", &Archive::volume)
      .method("changeable", &Archive::changeable)
      .method("pointer", &Archive::pointer)
      .method("constantPointer", &Archive::constantPointer)
      .method("nothing", &Archive::nothing)
      .method("wrapped", &Archive::wrapped)
      .method("optional", &Archive::optional)
      .method("pointers", &Archive::pointers)
      .method("pair", &Archive::pair)
      .method("variant", &Archive::variant)
      .method("lists", &Archive::lists)
      .method("manuscript", &Archive::manuscript)
      .method("drafts", &Archive::drafts)
      .method("ledger", &Archive::ledger)
      .method("ledgerReference", &Archive::ledgerReference)
      .method("ledgerReferred", &Archive::ledgerReferred)
      .method("ledgers", &Archive::ledgers)
      .method("longer:than:", &Archive::longer)
      .method("titleOf:", &Archive::titleOf)
      .method("titleAt:", &Archive::titleAt)
      .method("titleBehind:", &Archive::titleBehind)
      .method("change:", &Archive::change)
      .method("changeAt:", &Archive::changeAt)
      .method("changeBehind:", &Archive::changeBehind);
}

// One of the system's own objects, whose methods answer parts of it.
class CountedArchive final : public NSObject {
 public:
  explicit CountedArchive(int& alive) : archive_(alive) {}
  const char* className() const override { return "CountedArchive"; }
  BoundMethod methodForSelector(const Selector& selector) const override {
    static const HostMethodTable methods = HostMethodTable()
                                               .add<CountedArchive>("list", &CountedArchive::list)
                                               .add<CountedArchive>("changeable", &CountedArchive::changeable);
    return methods.find(selector, *this);
  }
  const std::vector<std::string>& list() const { return archive_.words; }
  Volume& changeable() { return archive_.volume; }

 private:
  Archive archive_;
};

namespace {

using Function = KorTemplateExternalFunction;

// What the template writes once the function, and the host's reference to its target, are gone.
std::string laterText(const Ref<Function>& function, const std::string& text) {
  const Stage stage;
  stage.environment->setFunctionForName(function, "f");
  stage.run("<? $x = f() ?>");
  stage.environment->removeFunctionForName("f");
  stage.run(text);
  return stage.text() + stage.diagnostics();
}

TEST(ExternalFunctions, AnswerWhatOutlivesTheirTarget) {
  struct Row {
    std::string selector;
    std::string text;
    std::string expected;
  };
  const std::string a(40, 'a');
  const std::string title(40, 't');
  for (const Row& row : std::vector<Row>{
           {"list", "<?= $x.@count ?> <?= $x.@min ?>", "2 " + a},
           {"changeableList", "<?= $x.@count ?> <?= $x.@min ?>", "2 " + a},
           {"words", "<?= $x.@count ?> <?= $x.@min ?>", "2 " + a},
           {"dictionary", "<?= $x.key ?>", std::string(40, 'm')},
           {"constant", "<?= $x.title ?>", title},
           {"volume", "<?= $x.title ?>", title},
           {"changeable", "<?= $x.title ?>", title},
           {"pointer", "<?= $x.title ?>", title},
           {"constantPointer", "<?= $x.title ?>", title},
           {"wrapped", "<?= $x.title ?>", title},
           {"optional", "<?= $x.title ?>", title},
           {"pointers", "<?= $x.@max.title ?>", title},
           {"pair", "<? foreach ($y in $x) ?><?= $y.title ?><? return ?><? endforeach ?>", title},
           {"variant", "<?= $x.title ?>", title},
           {"lists", "<?= $x.key.@min ?>", a},
           {"manuscript", "<?= $x.title ?>", title},
           {"drafts", "<? foreach ($y in $x) ?><?= $y.title ?><? endforeach ?>", title},
           {"ledger", "<?= $x.title ?>", title},
       }) {
    int alive = 0;
    EXPECT_EQ(laterText(Function::functionWithSelectorOwning(Selector(row.selector), std::make_shared<Archive>(alive)),
                        row.text),
              row.expected)
        << row.selector;
    EXPECT_EQ(alive, 0) << row.selector;
  }
  for (const Row& row : std::vector<Row>{{"list", "<?= $x.@min ?>", a}, {"changeable", "<?= $x.title ?>", title}}) {
    int alive = 0;
    EXPECT_EQ(laterText(Function::functionWithSelectorOwning(Selector(row.selector), makeRef<CountedArchive>(alive)),
                        row.text),
              row.expected)
        << row.selector;
    EXPECT_EQ(alive, 0) << row.selector;
  }
}

TEST(ExternalFunctions, AnswerTextsSetsAndListsByReferenceAsByValue) {
  int alive = 0;
  Archive archive(alive);
  const Stage stage;
  const auto bind = [&](const char* selector, auto method) {
    stage.environment->setFunctionForName(Function::functionWithSelectorTarget(selector, archive), "bySelector");
    stage.environment->setFunction("byMember", method, &archive);
    stage.run("<?= bySelector() == byMember() ?> <?= bySelector() ?>|");
  };
  bind("wide", &Archive::wide);
  bind("bytes", &Archive::bytes);
  bind("set", &Archive::set);
  bind("sequence", &Archive::sequence);
  EXPECT_EQ(stage.text(), "1 wide|1 bytes|1 {(\n    one\n)}|1 (\n    1,\n    2\n)|");
  EXPECT_EQ(stage.diagnostics(), "");
}

TEST(ExternalFunctions, AnswerWhatTheyWereGiven) {
  int alive = 0;
  Archive archive(alive);
  const Stage stage;
  stage.environment->setFunctionForName(Function::functionWithSelectorTarget("longer:than:", archive), "longer");
  stage.environment->setGlobal("one", std::vector<std::string>{std::string(40, 'c')});
  stage.environment->setGlobal("two", std::vector<std::string>{std::string(40, 'd'), std::string(40, 'e')});
  stage.run("<? $x = longer($one, $two) ?>");
  stage.run("<?= $x.@count ?> <?= $x.@max ?>");
  EXPECT_EQ(stage.text(), "2 " + std::string(40, 'e'));
}

TEST(ExternalFunctions, AnswerNullForANullPointer) {
  int alive = 0;
  Archive archive(alive);
  const Stage stage;
  stage.environment->setFunctionForName(Function::functionWithSelectorTarget("nothing", archive), "f");
  stage.run("<?= f() == null ?>");
  EXPECT_EQ(stage.text(), "1");
}

TEST(ExternalFunctions, AnswerTheHostsOwnObjectOnlyWhereItMayChange) {
  int alive = 0;
  Archive archive(alive);
  const Stage stage;
  const auto renameBy = [&](const char* selector) {
    stage.environment->setFunctionForName(Function::functionWithSelectorTarget(Selector(selector), archive), "f");
    stage.run("<? $x = f() ?><? $x.rename ?>");
    return archive.volume.title.size();
  };
  EXPECT_EQ(renameBy("constant"), 40u);
  EXPECT_EQ(renameBy("volume"), 40u);
  EXPECT_EQ(raisedBy([&] { renameBy("constantPointer"); }),
            "NSInvalidArgumentException: A property of Volume cannot be read: its getter changes the object, which the "
            "host gave as a constant");
  EXPECT_EQ(archive.volume.title.size(), 40u);
  EXPECT_EQ(renameBy("changeable"), 41u);
  EXPECT_EQ(renameBy("pointer"), 42u);
  EXPECT_EQ(renameBy("wrapped"), 43u);
}

TEST(ExternalFunctions, KeepConstantWhatIsCountedItself) {
  int alive = 0;
  Archive archive(alive);
  const Stage stage;
  stage.environment->setFunctionForName(Function::functionWithSelectorTarget("titleOf:", archive), "titleOf");
  stage.environment->setFunctionForName(Function::functionWithSelectorTarget("titleAt:", archive), "titleAt");
  stage.environment->setFunctionForName(Function::functionWithSelectorTarget("titleBehind:", archive), "titleBehind");
  stage.environment->setFunctionForName(Function::functionWithSelectorTarget("change:", archive), "change");
  stage.environment->setFunctionForName(Function::functionWithSelectorTarget("changeAt:", archive), "changeAt");
  stage.environment->setFunctionForName(Function::functionWithSelectorTarget("changeBehind:", archive), "changeBehind");
  stage.environment->setFunction("read", [](const Ledger& read) { return read.title; });
  stage.environment->setFunction("readReferred", [](const Ref<const Ledger>& read) { return read->title; });
  stage.environment->setFunction("clear", [](Ledger& changed) { changed.title.clear(); });
  const std::string constant =
      "NSInvalidArgumentException: A property of Ledger cannot be read: its getter changes the object, which the host "
      "gave as a constant";
  for (const char* selector : {"ledger", "ledgerReference", "ledgerReferred"}) {
    stage.environment->setFunctionForName(Function::functionWithSelectorTarget(Selector(selector), archive), "f");
    stage.errors->writes.clear();
    stage.output->writes.clear();
    stage.run(
        "<? $x = f() ?><?= titleOf($x) == titleAt($x) ?><?= titleBehind($x) == read($x) ?>"
        "<?= readReferred($x) == $x.title ?>");
    EXPECT_EQ(stage.text() + stage.diagnostics(), "111") << selector;
    EXPECT_EQ(raisedBy([&] { stage.run("<?= $x.rename ?>"); }), constant) << selector;
    stage.run("<? change($x) ?><? changeAt($x) ?><? changeBehind($x) ?><? clear($x) ?>");
    EXPECT_EQ(stage.diagnostics(),
              "change:: incorrect object at index 2: Ledger supplied, Changeable Ledger expected."
              "|changeAt:: incorrect object at index 2: Ledger supplied, Changeable Ledger expected."
              "|changeBehind:: incorrect object at index 2: Ledger supplied, Changeable Ledger expected."
              "|Incorrect type for Ledger argument at index 2 of clear. Changeable Ledger expected.")
        << selector;
  }
  stage.errors->writes.clear();
  stage.environment->setFunctionForName(Function::functionWithSelectorTarget("ledgers", archive), "f");
  EXPECT_EQ(raisedBy([&] { stage.run("<? foreach ($x in f()) ?><?= $x.rename ?><? endforeach ?>"); }), constant);
  EXPECT_EQ(archive.counted->title.size(), 40u);
  // What may change does so still.
  stage.set("mine", archive.counted);
  stage.run("<? $mine.rename ?><? changeBehind($mine) ?><? clear($mine) ?>");
  EXPECT_EQ(stage.diagnostics(), "");
  EXPECT_EQ(archive.counted->title, "");
}

TEST(NSInvocation, AnswersAConstantObjectAsOne) {
  int alive = 0;
  Archive archive(alive);
  const Value target = hostReference(archive);
  const Ref<NSObject> object = target.ref<NSObject>();
  const Ref<NSInvocation> invocation = makeRef<NSInvocation>(object->methodSignatureForSelector("ledger"));
  invocation->setSelector("ledger");
  invocation->invokeWithTarget(object.get());
  EXPECT_EQ(invocation->getReturnValue<Ref<const Ledger>>(), archive.counted);
  EXPECT_EQ(invocation->getReturnValue<Ref<Ledger>>(), nullptr);
}

}  // namespace

}  // namespace tavlo::test
