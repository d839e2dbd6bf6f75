#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <functional>
#include <iterator>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Foundation/LazyCollections.h"
#include "Foundation/NSArray.h"
#include "Foundation/NSDictionary.h"
#include "Foundation/NSSet.h"
#include "Source/KorTemplate.h"
#include "Source/KorTemplateCallbackStream.h"
#include "Source/KorTemplateEnvironment.h"

// How long an execution with a deadline works between two looks at the clock: tavlo_looks [VALUES [WORD]]. Does
// everything that templates can do with a value to collections of that many values (4 million where no number is
// given), prints the ten longest times, and fails where one is longer than a template may go on for. With a word only
// that which has it in its name.

namespace {

double processorSeconds() {
  timespec now{};
  syscall(SYS_clock_gettime, CLOCK_THREAD_CPUTIME_ID, &now);  // not by the function below
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

// The processor's time between two looks of what runs. Real time would count what others do.
struct Looks {
  void begin() {
    longest = 0;
    last = processorSeconds();
    areCounted = true;
  }
  void look() {
    const double now = processorSeconds();
    longest = std::max(longest, now - last);
    last = now;
  }
  double end() {
    areCounted = false;
    look();
    return longest;
  }

  double longest = 0;
  double last = 0;
  bool areCounted = false;
};

Looks looks;

}  // namespace

// Stands before the C library's for all that this program is linked to.
extern "C" int clock_gettime(clockid_t clock, timespec* time) noexcept {
  if (looks.areCounted) looks.look();
  return static_cast<int>(syscall(SYS_clock_gettime, clock, time));
}

namespace tavlo::benchmarks {

namespace {

constexpr double kBound = 0.25;  // seconds; the manual promises a tenth, on a machine with nothing else to do
constexpr std::size_t kShown = 10;

template <class ElementAt>
Value listOf(std::size_t count, const ElementAt& elementAt) {
  std::vector<Value> elements;
  elements.reserve(count);
  for (std::size_t number = 0; number < count; ++number) elements.push_back(elementAt(number));
  return makeRef<NSArray>(std::move(elements));
}

std::string nameOf(std::size_t number) {
  return "name " + std::to_string(number);
}

Value numbers(std::size_t count) {
  return listOf(count, [](std::size_t number) { return Value(number); });
}

Value names(std::size_t count) {
  return listOf(count, [](std::size_t number) { return Value(nameOf(number)); });
}

// Such as do not lie in memory in the order that they have.
Value scattered(const Value& list) {
  const std::vector<Value>& elements = list.as<NSArray>()->elements();
  constexpr std::size_t kPrime = 2'654'435'761;
  return listOf(elements.size(), [&](std::size_t number) { return elements[number * kPrime % elements.size()]; });
}

Value emptyLists(std::size_t count) {
  return listOf(count, [](std::size_t) { return Value(NSArray::arrayWithObjects({})); });
}

Value item(std::size_t number) {
  return NSDictionary::dictionaryWithEntries({{"name", nameOf(number)}, {"price", number}});
}

Value dictionary(std::size_t count) {
  NSDictionary::Entries entries;
  entries.reserve(count);
  for (std::size_t number = 0; number < count; ++number) {
    entries.push_back({NSString::stringWithUTF8(nameOf(number)), number});
  }
  return NSMutableDictionary::dictionaryWithDistinctEntries(std::move(entries));
}

struct Data {
  const char* name;
  std::function<Value(std::size_t count)> make;  // about as many bytes of each
};

const Data kData[] = {
    {"numbers", numbers},
    {"doubles",
     [](std::size_t count) {
       return listOf(count, [](std::size_t number) { return Value(static_cast<double>(number) * 1.1); });
     }},
    {"names", names},
    {"scattered names", [](std::size_t count) { return scattered(names(count)); }},
    {"texts of numbers",
     [](std::size_t count) { return listOf(count, [](std::size_t number) { return Value(std::to_string(number)); }); }},
    {"nulls", [](std::size_t count) { return listOf(count * 4, [](std::size_t) { return Value::null(); }); }},
    {"empty lists", emptyLists},
    {"scattered empty lists", [](std::size_t count) { return scattered(emptyLists(count)); }},
    {"one list often",
     [](std::size_t count) { return listOf(16, [list = numbers(count / 2)](std::size_t) { return list; }); }},
    {"pairs",
     [](std::size_t count) {
       return listOf(count / 4, [](std::size_t number) { return Value(NSArray::arrayWithObjects({number, "x"})); });
     }},
    {"items", [](std::size_t count) { return listOf(count / 8, item); }},
    {"two long lists",
     [](std::size_t count) {
       return Value(NSArray::arrayWithObjects({names(count / 2), numbers(count)}));
     }},
    {"lists in lists",
     [](std::size_t count) { return listOf(count / 1'000, [](std::size_t) { return numbers(1'000); }); }},
    {"a dictionary", [](std::size_t count) { return dictionary(count / 2); }},
    {"a set",
     [](std::size_t count) { return Value(NSSet::setWithObjects(names(count / 2).as<NSArray>()->elements())); }},
    {"a walked list",
     [](std::size_t count) { return lazyList([count] { return count; }, [](std::size_t number) { return number; }); }},
    {"a text", [](std::size_t count) { return Value(std::string(count, 'x')); }},
};

const std::string_view kJoins[] = {"@unionOfObjects", "@distinctUnionOfObjects", "@unionOfArrays",
                                   "@distinctUnionOfArrays"};
const std::string_view kKeys[] = {"name", "length", "doubleValue", "@count", "@sum", "@avg", "@min", "@max"};

std::vector<std::string> templates() {
  std::vector<std::string> paths;
  const auto add = [&paths](const std::string& start) {
    for (const std::string_view key : kKeys) paths.push_back(start + "." + std::string(key));
    for (const std::string_view join : kJoins) paths.push_back(start + "." + std::string(join));
  };
  add("$all");
  for (const std::string_view join : kJoins) add("$all." + std::string(join));
  std::vector<std::string> texts;
  texts.reserve(paths.size());
  for (const std::string& path : paths) texts.push_back("<? $x = " + path + " ?>");
  const char* const others[] = {
      "<?= $all ?>",
      "<? $x = $all + \"\" ?>",
      "<? $x = $all == $same ?>",
      "<? $x = $all != $same ?>",
      "<? $x = $all < $same ?>",
      "<? $x = $all && $same ?>",
      "<? $x = $all - 1 ?>",
      "<? $x = $all =~ /b$/ ?>",
      "<? if ($all) ?><? endif ?>",
      "<? foreach ($x in $all) ?><? endforeach ?>",
      "<? foreach ($x in $all) ?><?= $x ?><? endforeach ?>",
      "<? foreach ($x in $all) ?><? $y = $x ?><? endforeach ?>",
      "<? foreach ($x in $all) ?><? if ($x == 7) ?><? $y = $x.length ?><? endif ?><? endforeach ?>",
      "<? function same($a) ?><? return $a ?><? endfunction ?><? $x = same($all) == $same ?>",
      "<? function failing($a) ?><? return $a - 1 ?><? endfunction ?><? failing($all) ?>",
      "<? $x = $all.@unionOfObjects == $same.@unionOfObjects ?>",
      "<? $x = \"\" + $all.@unionOfArrays ?>",
      "<? unknown($all, $same) ?>",
  };
  texts.insert(texts.end(), std::begin(others), std::end(others));
  return texts;
}

struct Work {
  double seconds;
  std::string what;
};

Work measured(const std::string& text, const char* data, KorTemplateEnvironment& environment) {
  const Ref<KorTemplate> page = KorTemplate::compile(text);
  looks.begin();
  (void)page->tryExecuteWithEnvironment(&environment);
  const double seconds = looks.end();
  environment.reset();
  return {seconds, std::string(data) + ": " + text};
}

// Each value of the data twice, so that what is compared is not the same.
std::vector<Work> measuredAll(std::size_t count, std::string_view word) {
  std::vector<Work> works;
  const Ref<KorTemplateEnvironment> environment = KorTemplateEnvironment::environment();
  environment->setOutputStream(KorTemplateCallbackStream::streamWithCallback([](std::string_view) {}));
  environment->setErrorStream(KorTemplateCallbackStream::streamWithCallback([](std::string_view) {}));
  KorTemplateLimits limits;
  limits.time = std::chrono::hours(1);
  environment->setLimits(limits);
  const std::vector<std::string> texts = templates();
  for (const Data& data : kData) {
    std::vector<std::string> wanted;
    for (const std::string& text : texts) {
      if ((std::string(data.name) + ": " + text).find(word) != std::string::npos) wanted.push_back(text);
    }
    if (wanted.empty()) continue;
    environment->setGlobal("all", data.make(count));
    environment->setGlobal("same", data.make(count));
    environment->remember();
    for (const std::string& text : wanted) works.push_back(measured(text, data.name, *environment));
  }
  return works;
}

int run(std::size_t count, std::string_view word) {
  std::vector<Work> works = measuredAll(count, word);
  std::ranges::sort(works, std::greater<>(), &Work::seconds);
  for (const Work& work : std::span(works).first(std::min(kShown, works.size()))) {
    std::printf("%6.3f s  %s\n", work.seconds, work.what.c_str());
  }
  const auto tooLong = std::ranges::count_if(works, [](const Work& work) { return work.seconds > kBound; });
  std::printf("%zu kinds of work on %zu values, %td of them above %.2f s between two looks at the clock\n",
              works.size(), count, tooLong, kBound);
  return tooLong == 0 ? 0 : 1;
}

}  // namespace

}  // namespace tavlo::benchmarks

int main(int argc, char** argv) {
  const long long count = argc > 1 ? std::atoll(argv[1]) : 4'000'000;
  if (argc > 3 || count < 1) {
    std::fputs("tavlo_looks [VALUES [WORD]]\n", stderr);
    return 1;
  }
  return tavlo::benchmarks::run(static_cast<std::size_t>(count), argc > 2 ? argv[2] : "");
}
