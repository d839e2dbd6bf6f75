#include <gtest/gtest.h>

#include <map>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "Foundation/HostClass.h"
#include "Source/KorTemplateRendering.h"
#include "Source/KorTemplateSyntaxErrorException.h"
#include "Tests/Source/HostClasses.h"

namespace tavlo::test {

namespace {

struct Article {
  std::string title;
  double price = 0;
};

void describeHostClass(HostClass<Article>& article) {
  article.name("Article").property("title", &Article::title).property("price", &Article::price);
}

struct Meter {
  int readings = 5;

  int read() { return ++readings; }
};

void describeHostClass(HostClass<Meter>& meter) {
  meter.name("Meter").property("reading", &Meter::read);
}

TEST(TheRenderCall, TakesPairs) {
  EXPECT_EQ(render("Hello, <?= $name ?>! <?= $n + 1 ?>", {{"name", "World"}, {"n", 3}}), "Hello, World! 4");
  EXPECT_EQ(render("a"), "a");
  EXPECT_EQ(render("", {}), "");
  EXPECT_EQ(render("<?= $a ?>", {{"a", 1}, {"a", 2}}), "2");
  EXPECT_EQ(render("<?= $a ?>", {{"a", Value()}}), "");
}

TEST(TheRenderCall, TakesWhateverHasNamesAndValues) {
  const char* const text = "<?= $a ?>-<?= $b ?>";
  EXPECT_EQ(render(text, std::map<std::string, int>{{"a", 1}, {"b", 2}}), "1-2");
  EXPECT_EQ(render(text, std::unordered_map<std::string, std::string>{{"a", "x"}, {"b", "y"}}), "x-y");
  EXPECT_EQ(render(text, std::vector<std::pair<const char*, Value>>{{"a", 1.5}, {"b", true}}), "1.5-1");
  EXPECT_EQ(render(text, NSDictionary::dictionaryWithEntries({{"a", 1}, {"b", "z"}})), "1-z");
  EXPECT_EQ(render(text, NSMutableDictionary::dictionary()), "-");
  EXPECT_EQ(render(text, Ref<NSDictionary>()), "-");
}

TEST(TheRenderCall, TakesAnObjectOfTheHostWhosePropertiesBecomeGlobals) {
  Article product{"Lamp", 12.5};
  EXPECT_EQ(render("<?= $title ?>: <?= $price ?>", product), "Lamp: 12.5");
  const Article& constant = product;
  EXPECT_EQ(render("<?= $title ?>: <?= $price * 2 ?>", constant), "Lamp: 25");
}

TEST(TheRenderCall, LeavesAConstantObjectAsItIs) {
  Meter meter;
  EXPECT_EQ(render("<?= $reading ?>", meter), "6");
  const Meter& constant = meter;
  EXPECT_EQ(raisedBy([&] { (void)render("<?= $reading ?>", constant); }),
            "NSInvalidArgumentException: A property of Meter cannot be read: its getter changes the object, which the "
            "host gave as a constant");
  EXPECT_EQ(meter.readings, 6);
}

TEST(TheRenderCall, RendersACompiledTemplateManyTimes) {
  const Ref<KorTemplate> page = KorTemplate::compile("<?= $n ?>;<?= $x ?><? $x = 1 ?>", {.name = "page"});
  for (const int n : {1, 2}) EXPECT_EQ(render(page, {{"n", n}}), std::to_string(n) + ";");
  EXPECT_EQ(raisedBy([] { (void)render(Ref<KorTemplate>()); }), failedCheck("compiled != nil"));
}

TEST(TheRenderCall, RaisesWhatCompilingAndExecutingRaise) {
  EXPECT_EQ(raisedBy([] { (void)render("<? 1 / 0 ?>"); }), "NSGenericException: Divide by zero");
  EXPECT_EQ(raisedBy([] { (void)render("<?= 1 + ?>"); }),
            "KorTemplateSyntaxErrorException: Syntax error (line 1): Expression required to right of + operator");
  EXPECT_EQ(raisedBy([] { (void)render(Text()); }), failedCheck("templateString != nil"));
  EXPECT_NE(raisedBy([] { (void)render("a", {{"n", std::string("\xFF")}}); }), "nothing");
}

TEST(TheRenderCall, AnswersWithItsFailureWhereThatIsWanted) {
  EXPECT_EQ(tryRender("<?= $a ?>", {{"a", 1}}).value(), "1");
  EXPECT_EQ(*tryRender(KorTemplate::compile("b")), "b");
  const KorTemplateResult<std::string> failed = tryRender("ab\n<?= 1 / 0 ?>");
  ASSERT_FALSE(failed);
  EXPECT_EQ(failed.failure().text(), "template:2:1: NSGenericException: Divide by zero\n<?= 1 / 0 ?>\n^\n");
  EXPECT_EQ(tryRender("<? if (true ?>").failure().name(), KorTemplateSyntaxErrorExceptionName);
  EXPECT_EQ(tryRender(KorTemplate::compile("<? 1 / 0 ?>", {.name = "page"})).failure().place().templateName(), "page");
}

TEST(TryRender, AnswersWithTheFailureOfACallWithoutATemplate) {
  const KorTemplateResult<std::string> result = tryRender(Ref<KorTemplate>());
  ASSERT_FALSE(result);
  EXPECT_EQ(result.failure().name() + ": " + result.failure().reason(), failedCheck("compiled != nil"));
  EXPECT_NE(result.failure().exception(), nullptr);
}

}  // namespace

}  // namespace tavlo::test
