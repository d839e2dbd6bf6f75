#include <fcntl.h>
#include <gtest/gtest.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <barrier>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

#include "Foundation/HostClass.h"
#include "Foundation/NSDate.h"
#include "Foundation/NSSet.h"
#include "Matchery/KorRegex.h"
#include "Source/KorTemplateCallableFunction.h"
#include "Source/KorTemplateEnvironment.h"
#include "Source/KorTemplateRendering.h"
#include "Source/KorTemplateStringStream.h"
#include "Tests/Foundation/AmountOf.h"
#include "Tool/JSONReader.h"

// What a process makes when it is first asked for it: names, tables of classes and properties, selectors, patterns, the
// seed of its hashes.
namespace tavlo::test {

struct ColdLamp {
  std::string name;
  double price = 0;

  int countLetters(int more) const { return static_cast<int>(name.size()) + more; }
};

inline void describeHostClass(HostClass<ColdLamp>& lamp) {
  lamp.name("ColdLamp")
      .property("name", &ColdLamp::name)
      .property("price", &ColdLamp::price)
      .method("countLetters:", &ColdLamp::countLetters);
}

namespace {

constexpr int kStartingThreads = 8;

std::string readData() {
  const Ref<NSDictionary> data =
      readJSONObject(R"({"list": [1, -2.5e3, 1e17, "\u00e9t\u00e9", null, true], "also": {"b": [], "a": {}}})");
  std::string text = Value(data).description();
  try {
    readJSONObject("{\"a\": [1,\n 2");
  } catch (const JSONError& error) {
    text += std::to_string(error.place().line) + ":" + std::to_string(error.place().column);
  }
  return text;
}

std::string renderTemplate() {
  return render(
      "<? function twice($v) ?><? if ((\"\" + $v) =~ /^a+$/) ?><? return $v + $v ?><? endif ?><? return 2 * $v ?>"
      "<? endfunction ?><? foreach ($e in $list) ?><?= @@index ?>:<?= twice($e.v) ?>,<? endforeach ?>"
      "<?= $list.v.@count ?>,<?= $words.@distinctUnionOfObjects.uppercaseString ?>",
      {{"list", NSArray::arrayWithObjects({NSDictionary::dictionaryWithEntries({{"v", "aa"}}),
                                           NSDictionary::dictionaryWithEntries({{"v", 4.5}})})},
       {"words", NSArray::arrayWithObjects({"x", "y", "x"})}});
}

std::string readHostObjects() {
  const ColdLamp lamp{"Lamp", 80.25};
  const auto environment = KorTemplateEnvironment::environment();
  const auto stream = KorTemplateStringStream::stringStream();
  environment->setOutputStream(stream);
  environment->setGlobal("lamp", std::cref(lamp));
  environment->setFunction("letters", [](const ColdLamp& each, int more) { return each.countLetters(more); });
  KorTemplate::compile("<?= $lamp.name ?> <?= $lamp.price ?> <?= letters($lamp, 3) ?>")
      ->executeWithEnvironment(environment.get());
  return std::string(stream->buffer()->string());
}

std::string formatNumbers() {
  std::string text;
  for (const Value& number : {Value(0.1), Value(1.0 / 3), Value(1e17), Value(1.5e-7), Value(5.0), Value(0.1F)}) {
    text += number.description() + " ";
  }
  return text + Value(NSDate::dateWithTimeIntervalSince1970(1.75e9)).description() + " " +
         std::to_string(Value(" 2.5e3x").doubleValue());
}

std::string matchPatterns() {
  std::string text;
  for (const char* const pattern : {"^\\p{Lu}\\w+\\d$", "(?i)STRASSE", "(a+)+$", "\\bs"}) {
    const Ref<KorRegex> regex = KorRegex::compileExpression(pattern);
    for (const char* const subject : {"\xC3\x89t\xC3\xA9"
                                      "1",
                                      "stra\xC3\x9F"
                                      "e",
                                      "aaaab"}) {
      text += regex->matchesString(*NSString::stringWithUTF8(subject)) ? "1" : "0";
    }
  }
  return text;
}

std::string gatherSets() {
  const Ref<NSSet> set = NSSet::setWithObjects({1, 1.0, "a", "a", NSSet::setWithObjects({"b"})});
  return std::to_string(set->count()) + (set->containsObject(NSSet::setWithObjects({"b"})) ? "b" : "-");
}

std::string failToCompile() {
  const auto failed = KorTemplate::tryCompile("a\n<?= 1 + ?>");
  return failed.failure().name() + ": " + failed.failure().reason();
}

struct FirstUse {
  std::string (*use)();
  const char* result;
};

constexpr FirstUse kFirstUses[] = {
    {readData,
     "{\n    also = {\n        a = {\n        };\n        b = (\n        );\n    };\n    list = (\n        1,\n"
     "        -2500,\n        1e+17,\n        \"été\",\n        <null>,\n        1\n    );\n}2:3"},
    {renderTemplate, "0:aaaa,1:9,2,(\n    X,\n    Y\n)"},
    {readHostObjects, "Lamp 80.25 7"},
    {formatNumbers, "0.1 0.3333333333333333 1e+17 1.5e-07 5 0.1 2025-06-15 15:06:40 +0000 2500.000000"},
    {matchPatterns, "100010000010"},
    {gatherSets, "3b"},
    {failToCompile,
     "KorTemplateSyntaxErrorException: Syntax error (line 2): Expression required to right of + operator"},
};
constexpr std::size_t kUses = std::size(kFirstUses);

// Lets all threads begin in the same moment what no thread of this process has done before. In one half of the starts
// all of them begin with the same, in the other each with something else.
std::vector<std::vector<std::string>> firstResultsOfAllThreads(std::size_t start) {
  std::barrier begin(kStartingThreads);
  std::vector<std::vector<std::string>> results(kStartingThreads, std::vector<std::string>(kUses));
  std::vector<std::thread> threads;
  for (std::size_t thread = 0; thread < kStartingThreads; ++thread) {
    const std::size_t first = start / 2 + (start % 2) * thread;
    threads.emplace_back([&begin, &uses = results[thread], first] {
      begin.arrive_and_wait();
      for (std::size_t use = first; use < first + kUses; ++use) uses[use % kUses] = kFirstUses[use % kUses].use();
    });
  }
  for (std::thread& thread : threads) thread.join();
  return results;
}

constexpr const char* kColdStart = "TAVLO_TEST_COLD_START";

// The exit status of this test alone in a process of its own. The thread sanitizer's is another one once it has told of
// something.
int statusOfColdStart(int start) {
  std::vector<char*> variables;
  for (char** variable = environ; *variable != nullptr; ++variable) variables.push_back(*variable);
  std::string mark = kColdStart + ("=" + std::to_string(start));
  variables.push_back(mark.data());
  variables.push_back(nullptr);
  std::string program =
      std::filesystem::read_symlink("/proc/self/exe");  // by its name, by which valgrind starts it too
  char filter[] = "--gtest_filter=ColdStarts.AreUsesOfEverythingByAllThreadsAtOnce";
  char brief[] = "--gtest_brief=1";
  char* const arguments[] = {program.data(), filter, brief, nullptr};
  posix_spawn_file_actions_t quietly;
  posix_spawn_file_actions_init(&quietly);
  posix_spawn_file_actions_addopen(&quietly, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
  pid_t child = 0;
  const int failure = posix_spawn(&child, program.c_str(), &quietly, nullptr, arguments, variables.data());
  posix_spawn_file_actions_destroy(&quietly);
  if (failure != 0) return -1;
  int status = 0;
  return waitpid(child, &status, 0) == child ? status : -1;
}

// In as many fresh processes, each of which comes back here.
TEST(ColdStarts, AreUsesOfEverythingByAllThreadsAtOnce) {
  if (const char* const start = std::getenv(kColdStart)) {
    for (const std::vector<std::string>& uses : firstResultsOfAllThreads(std::stoul(start))) {
      for (std::size_t use = 0; use < kUses; ++use) {
        EXPECT_EQ(uses[use], kFirstUses[use].result);
        if (uses[use] != kFirstUses[use].result) std::cerr << "Start " << start << ": " << uses[use] << '\n';
      }
    }
    return;
  }
  const int starts = amountOf("TAVLO_TEST_COLD_STARTS", 100, 100);
  for (int start = 0; start < starts; ++start) ASSERT_EQ(statusOfColdStart(start), 0) << start;
}

}  // namespace

}  // namespace tavlo::test
