// A page from the structs that a program has anyway: each is described once, beside itself, and a template reads them
// where they are.
#include <tavlo/tavlo.h>

#include <iostream>
#include <string>
#include <vector>

namespace {

struct Article {
  std::string title;
  std::string author;
  int words = 0;

  int minutes() const { return (words + 199) / 200; }
};

void describeHostClass(tavlo::HostClass<Article>& article) {
  article.name("Article")
      .property("title", &Article::title)
      .property("author", &Article::author)
      .property("minutes", &Article::minutes);
}

constexpr const char* kPage = R"(<h1><?= $name ?></h1>
<ul>
<? foreach ($article in $articles) ?>  <li class="<? if ((@@index % 2) == 0) ?>even<? else ?>odd<? endif ?>"><?=
 $article.title ?> by <?= $article.author ?>, <?= $article.minutes ?> min</li>
<? endforeach ?></ul>
<p><?= $articles.@count ?> articles, <?= $articles.@sum.minutes ?> minutes in all</p>
)";

}  // namespace

int main() {
  std::vector<Article> articles = {{"Warp and weft", "Ada", 1200}, {"On knots", "Grace", 450}, {"Dyes", "Edith", 80}};

  const auto list = tavlo::NSMutableArray::array();
  for (Article& article : articles) list->addObject(tavlo::hostReference(article));
  const auto environment = tavlo::KorTemplateEnvironment::environment();
  const auto output = tavlo::KorTemplateStringStream::stringStream();
  environment->setOutputStream(output);
  environment->setGlobal("name", "The Loom");
  environment->setGlobal("articles", list);
  tavlo::KorTemplate::compile(kPage)->executeWithEnvironment(environment.get());
  std::cout << output->buffer()->string();
}
