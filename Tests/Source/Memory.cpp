#include "Tests/Memory/FailingMemory.h"

#ifndef TAVLO_MEMORY_IS_HIDDEN

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "Foundation/NSArray.h"
#include "Foundation/NSDictionary.h"
#include "Source/KorTemplateStringStream.h"
#include "Tests/Foundation/Repeated.h"
#include "Tests/Source/HostClasses.h"

namespace tavlo::test {

namespace {

#ifndef TAVLO_MEMORY_IS_WATCHED  // there each object comes from the heap, and is larger

// Where all of the text is one expression, each byte may be a token, or two of them a node.
constexpr std::int64_t kBytesOfDenseByte = 80;

// A pattern is compiled where so much can be had, which is given back untouched.
constexpr std::int64_t kBytesOfPatternByte = 1200;
// Of what is made once for good, such as a part of the table of names.
constexpr std::int64_t kBytesMadeOnce = 1024;

// A template of any length.
struct LongText {
  const char* what;
  const char* before;
  const char* piece;
  const char* after = "";
  std::int64_t bytesOfByte = 20;  // that compiling may take for each of the text

  std::string text(std::size_t bytes) const {
    return before + repeated(piece, bytes / std::string_view(piece).size()) + after;
  }
};

const LongText kLongTexts[] = {
    {"text", "", "some words of text\n"},
    {"text of any language", "", "\xC3\xA4\xE2\x82\xAC\xF0\x9D\x84\x9E"},
    {"blocks", "", "text <?= $name ?> and more text, "},
    {"blocks that are strings", "", "<?= \"some text\" ?>"},
    {"short blocks", "", "<?= $x ?>"},
    {"the shortest blocks", "", "<?1?>"},
    {"ifs", "", "<? if ($a) ?>x<? else ?>y<? endif ?>"},
    {"elseifs", "<? if ($a) ?>", "<? elseif ($b) ?>x", "<? endif ?>", 22},
    {"loops", "", "<? foreach ($i in $list) ?>x<? endforeach ?>"},
    {"functions", "", "<? function f($a, $b) ?><? return $a ?><? endfunction ?>"},
    {"a sum", "<?= 1", " + 1", " ?>", kBytesOfDenseByte},
    {"a sum without spaces", "<?= 1", "+1", " ?>", kBytesOfDenseByte},
    {"a chain of all operators", "<?= 1", " + 1 * 2 - $a == 3 && $b", " ?>", kBytesOfDenseByte},
    {"a concatenation", "<?= \"\"", " + \"text\"", " ?>", kBytesOfDenseByte},
    {"pairs", "<?= (1)", " + (1)", " ?>", kBytesOfDenseByte},
    {"calls", "<?= f()", " + f()", " ?>", kBytesOfDenseByte},
    {"arguments", "<?= f(1", ", 1", ") ?>", kBytesOfDenseByte},
    {"parameters", "<? function f($a", ", $b", ") ?><? endfunction ?>", kBytesOfDenseByte},
    {"a string", "<?= \"", "text", "\" ?>"},
    {"a string of escapes", "<?= \"", "\\\"", "\" ?>"},
    {"digits", "<?= ", "9", " ?>"},
    {"a key path", "<?= $a", ".b", " ?>", kBytesOfDenseByte},
    {"a word", "<?= ", "w", "() ?>"},
    {"a block of white space", "<?= 1", " ", " ?>"},
    {"text that is no UTF-8 at its end", "", "text", "\xFF"},
    {"a block that never closes", "<?= 1", " + 1", "", kBytesOfDenseByte},
    {"a string that never closes", "<?= \"", "text"},
    {"blocks, and one that is wrong", "", "<?= $x ?>", "<?= 1 1 ?>"},
    {"an if that never ends", "<? if ($a) ?>", "<?= $x ?>"},
    {"blocks that never close", "", "<?", "", kBytesOfDenseByte},
    {"operands without operators", "<? ", "1 ", "?>", kBytesOfDenseByte},
    {"unknown characters", "<? ", "^", " ?>", kBytesOfDenseByte},
    {"slashes", "<? ", "/", " ?>", kBytesOfPatternByte},
    {"quotes", "<? ", "\"", " ?>", kBytesOfDenseByte},
    {"parentheses that never close", "<? ", "(", " ?>", kBytesOfDenseByte},
    {"parentheses that never open", "<? ", ")", " ?>", kBytesOfDenseByte},
};

TEST(Memory, OfACompilationIsInProportionToTheText) {
  constexpr std::int64_t kBytes = std::int64_t{4} * 1024 * 1024;
  // What a thread keeps for the next one is there from here on.
  (void)KorTemplate::tryCompile(LongText{"", "", "<? if ($a) ?>x<? endif ?>"}.text(1'000'000));
  for (const LongText& row : kLongTexts) {
    (void)KorTemplate::tryCompile(row.text(100));  // what is made once is made now
    for (const std::size_t size : {1'000, 64'000, 1'000'000}) {
      const std::string text = row.text(size);
      const std::int64_t before = bytesInUse();
      forgetMostBytes();
      (void)KorTemplate::tryCompile(text);
      const std::int64_t most = mostBytesInUse() - before;
      const std::int64_t left = bytesInUse() - before;
      EXPECT_LE(most, kBytes + row.bytesOfByte * static_cast<std::int64_t>(size)) << row.what << ", " << size;
      EXPECT_LE(left, kBytesMadeOnce) << row.what << ", " << size;
    }
  }
}

#endif

TEST(Memory, OfFunctionsThatAreDefinedInTurnDoesNotGrow) {
  constexpr std::int64_t kBytes = std::int64_t{256} * 1024;
  const Stage stage;
  stage.set("list", makeRef<NSArray>(std::vector<Value>(100'000, Value(0))));
  const Ref<KorTemplate> loop = KorTemplate::compile(
      "<? foreach ($i in $list) ?><? function f() ?>1<? endfunction ?><? function f() ?>2<? endfunction ?>"
      "<? endforeach ?><? f() ?>");
  const std::int64_t before = bytesInUse();
  forgetMostBytes();
  loop->executeWithEnvironment(stage.get());
  EXPECT_LE(mostBytesInUse() - before, kBytes);
  EXPECT_EQ(stage.text(), "2");
}

// What the arguments of running calls took is given back when the execution ends.
TEST(Memory, OfManyArgumentsOfDeepCallsDoesNotStay) {
  constexpr int kParameters = 2'000;
  constexpr std::int64_t kBytes = std::int64_t{256} * 1024;
  std::string text = "<? function f($n" + [] {
    std::string names;
    for (int number = 0; number < kParameters; ++number) names += ", $p" + std::to_string(number);
    return names;
  }();
  text += ") ?><? if ($n > 0) ?><? f($n - 1" + repeated(", 1", kParameters) + ") ?><? endif ?><? endfunction ?>";
  const Stage stage;
  const Ref<KorTemplate> page = KorTemplate::compile(text + "<? f(200" + repeated(", 1", kParameters) + ") ?>");
  stage.run("<? function f() ?><? endfunction ?>");
  const std::int64_t before = bytesInUse();
  page->executeWithEnvironment(stage.get());
  EXPECT_LE(bytesInUse() - before, kBytes);
  EXPECT_EQ(stage.diagnostics(), "");
}

TEST(Memory, OfALongTextDoesNotStayInAStreamThatIsEmptied) {
  constexpr std::size_t kLong = std::size_t{32} << 20;
  constexpr std::int64_t kBytes = std::int64_t{2} << 20;
  const Stage stage;
  std::string text;
  stage.environment->setOutputStream(KorTemplateStringStream::stringStreamAppendingTo(text));
  stage.run("a");
  const std::int64_t before = bytesInUse();
  stage.set("long", std::string(kLong, 'x'));
  stage.run(repeated("<?= $long ?>", 2));
  stage.set("long", 1);
  std::string().swap(text);
  stage.run("a");
  EXPECT_LE(bytesInUse() - before, kBytes);
}

TEST(Memory, OfManyScopesDoesNotStay) {
  constexpr int kScopes = 500;
  constexpr std::int64_t kBytes = std::int64_t{256} * 1024;
  const Stage stage;
  const Ref<KorTemplate> page =
      KorTemplate::compile("<? function f($n) ?>" + repeated("<? if (1) ?><? $a = 1 ?>", kScopes) +
                           "<? if ($n > 0) ?><? f($n - 1) ?><? endif ?>" + repeated("<? endif ?>", kScopes) +
                           "<? endfunction ?><? f($depth) ?>");
  stage.set("depth", 3);
  page->executeWithEnvironment(stage.get());
  const std::int64_t before = bytesInUse();
  stage.set("depth", 300);
  page->executeWithEnvironment(stage.get());
  EXPECT_LE(bytesInUse() - before, kBytes);
}

// Whatever names templates that are gone have given to variables in scopes that are gone.
TEST(Memory, OfLongNamesDoesNotStay) {
  constexpr int kTemplates = 100;
  constexpr std::size_t kName = 10'000;
  constexpr std::int64_t kBytes = std::int64_t{256} * 1024;
  const Stage stage;
  stage.run(repeated("<? if (1) ?><? $a = 1 ?>", kTemplates) + repeated("<? endif ?>", kTemplates));
  const std::int64_t before = bytesInUse();
  for (int depth = 1; depth <= kTemplates; ++depth) {
    const std::string name = std::string(kName, 'n') + std::to_string(depth);
    stage.run(repeated("<? if (1) ?>", depth) + "<? $" + name + " = 1 ?>" + repeated("<? endif ?>", depth));
  }
  EXPECT_LE(bytesInUse() - before, kBytes);
}

struct RenderedRow {
  const char* what;
  const char* text;
};

const RenderedRow kRenderedRows[] = {
    {"text and values", "text <?= $one ?> <?= $items.name ?>"},
    {"a loop", "<? foreach ($i in $items) ?><?= @@index ?><?= $i.name ?><? $last = $i ?><? endforeach ?>"},
    {"functions",
     "<? function f($n) ?><? if ($n > 0) ?><? return 1 + f($n - 1) ?><? endif ?><? endfunction ?><?= f(9) ?>"},
    {"a concatenation", "<? $x = \"a\" + $one + \"a text that is too long for small buffers\" ?><?= $x ?>"},
    {"a search", "<? if ($one + \"text\" =~ /^[0-9]+te(x|y)t$/) ?>found<? endif ?>"},
    {"operators of key paths", "<?= $items.@distinctUnionOfObjects.name ?><?= $items.@sum.price ?>"},
    {"a failing call", "<? function f() ?><? return 1 / 0 ?><? endfunction ?><? f() ?><? f(1) ?><? unknown() ?>"},
    {"a failing template", "<? $x = \"text\" + $items ?><? 1 / 0 ?>"},
    {"a template that does not compile", "<? if (1 ?>"},
};

Value itemsOfShop() {
  return NSArray::arrayWithObjects({NSDictionary::dictionaryWithEntries({{"name", "a"}, {"price", 1}}),
                                    NSDictionary::dictionaryWithEntries({{"name", "b"}, {"price", 2.5}})});
}

// Compiles the template anew, and runs it in an environment that lasts and in one of its own.
void renderInBoth(const RenderedRow& row, const Stage& lasting, const Ref<KorTemplateStringStream>& stream) {
  stream->buffer()->clear();
  lasting.errors->writes.clear();
  const KorTemplateResult<Ref<KorTemplate>> compiled = KorTemplate::tryCompile(row.text);
  if (!compiled) return;
  (void)compiled.value()->tryExecuteWithEnvironment(lasting.get());
  const Stage own;
  own.set("items", itemsOfShop());
  own.set("one", 1);
  (void)compiled.value()->tryExecuteWithEnvironment(own.get());
}

TEST(Memory, IsTheSameAfterManyRenderings) {
  for (const RenderedRow& row : kRenderedRows) {
    const Stage lasting;
    const Ref<KorTemplateStringStream> stream = KorTemplateStringStream::stringStream();
    lasting.environment->setOutputStream(stream);
    lasting.set("items", itemsOfShop());
    lasting.set("one", 1);
    for (int time = 0; time < 100; ++time) renderInBoth(row, lasting, stream);
    const std::int64_t before = bytesInUse();
    for (int time = 0; time < 2'000; ++time) renderInBoth(row, lasting, stream);
    EXPECT_EQ(bytesInUse(), before) << row.what;
  }
}

}  // namespace

}  // namespace tavlo::test

#endif
