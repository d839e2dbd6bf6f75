#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>

#include "Source/KorTemplate.h"
#include "Source/KorTemplateEnvironment.h"
#include "Source/KorTemplateStringStream.h"
#include "Tool/JSONReader.h"

// Renders pages for as long as a server does, and says by how much that makes the process grow: tavlo_endurance
// [RENDERINGS]. Fails where that is a mebibyte or more.

namespace tavlo::benchmarks {

namespace {

constexpr int kFirst = 1'000;  // until everything is made that is made once
constexpr double kMebibyte = 1024 * 1024;

constexpr const char* kPage =
    "<? function line($item) ?><? return $item.name + \": \" + 2 * $item.price ?><? endfunction ?>"
    "<? foreach ($item in $items) ?><?= line($item) ?><? if ($item.name =~ /^a/) ?>!<? endif ?>\n<? endforeach ?>"
    "<? function failing() ?><? return 1 / 0 ?><? endfunction ?><? failing() ?><? $all = \"\" + $items ?>"
    "<?= $items.@sum.price ?> <?= $items.@distinctUnionOfObjects.name ?>";

// What this process holds in memory, in bytes.
double residentBytes() {
  std::ifstream status("/proc/self/statm");
  double total = 0;
  double resident = 0;
  status >> total >> resident;
  return resident * static_cast<double>(sysconf(_SC_PAGESIZE));
}

// A page that is compiled, given data and rendered anew; every third time it fails.
void renderOnce(int number) {
  const std::string text = number % 3 == 0 ? std::string(kPage) + "<? 1 / 0 ?>" : kPage;
  const Ref<KorTemplate> page = KorTemplate::compile(text);
  const Ref<KorTemplateEnvironment> environment = KorTemplateEnvironment::environment();
  environment->setOutputStream(KorTemplateStringStream::stringStream());
  environment->setErrorStream(KorTemplateStringStream::stringStream());
  environment->setGlobal("items", readJSON(R"([{"name": "apple", "price": 1}, {"name": "pear", "price": 2.5}])"));
  (void)page->tryExecuteWithEnvironment(environment.get());
}

int run(int renderings) {
  for (int number = 0; number < kFirst; ++number) renderOnce(number);
  const double before = residentBytes();
  for (int number = kFirst; number < renderings; ++number) renderOnce(number);
  const double growth = (residentBytes() - before) / kMebibyte;
  std::printf("%d renderings: %.1f MiB after %d, %.2f MiB more after all\n", renderings, before / kMebibyte, kFirst,
              growth);
  return growth < 1 ? 0 : 1;
}

}  // namespace

}  // namespace tavlo::benchmarks

int main(int argc, char** argv) {
  const int renderings = argc > 1 ? std::atoi(argv[1]) : 1'000'000;
  if (argc > 2 || renderings < 1) {
    std::fputs("tavlo_endurance [RENDERINGS]\n", stderr);
    return 1;
  }
  return tavlo::benchmarks::run(renderings);
}
