#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>
#include <string>
#include <thread>
#include <vector>

#include "Foundation/NSString.h"
#include "Matchery/KorRegex.h"
#include "Tests/Foundation/Raised.h"
#include "Tests/Foundation/Repeated.h"
#include "Tests/Memory/FailingMemory.h"
#include "Tests/Memory/WorkBound.h"

namespace tavlo::test {

namespace {

// Groups that call the one before three times each.
std::string chainOfCalls(const std::string& body, char last) {
  std::string pattern = "(?<a>" + body + ")";
  for (char name = 'b'; name <= last; ++name) {
    const char before = static_cast<char>(name - 1);
    pattern += std::string("(?<") + name + ">" + repeated(std::string("\\g<") + before + ">", 3) + ")";
  }
  return pattern;
}

// So many look-behinds inside one another, each with alternatives of two lengths.
std::string lookBehinds(int depth, const std::string& body) {
  return repeated("(?<=", depth) + body + repeated(")|bb", depth);
}

struct VisitsRow {
  const char* what;
  std::string pattern;
  bool compiles;
};

// The engine's compiler goes into a group for each way there, and through what looks behind again and again.
TEST(CompilationLimits, HoldForGroupsThatCallOneAnotherAndForLookBehinds) {
  const VisitsRow rows[] = {
      {"a chain", chainOfCalls("x", 'n'), false},
      {"a chain of a long group", chainOfCalls(repeated("x.", 400), 'n'), false},
      {"a shorter chain", chainOfCalls("x", 'i'), true},
      {"a shorter chain of a long group", chainOfCalls(repeated("x.", 4'000), 'g'), false},
      {"a chain of what is joined", chainOfCalls("(?<=x|yy)\\X", 'k'), false},
      {"numbered groups", "(x)(\\g<-1>\\g<1>)" + repeated("(\\g<-2>\\g<-2>\\g<-2>)", 12), false},
      {"groups that come later", repeated("(\\g<+1>\\g<+1>\\g<+1>)", 13) + "(x)", false},
      {"the whole", "a(?:\\g<0>|\\g<0>x)?", true},
      {"one group often", "(?<s>\\s*)" + repeated("a\\g<s>", 40), true},
      {"a group that calls itself", "(?<v>\\[(?:\\g<v>(?:,\\g<v>)*)?\\]|\\{\\g<v>:\\g<v>\\}|\\w+)", true},
      {"a grammar",
       "(?<sum>\\g<product>(?:\\+\\g<product>)*)(?<product>\\g<atom>(?:\\*\\g<atom>)*)(?<atom>\\d+|\\(\\g<sum>\\))",
       true},
      {"look-behinds", lookBehinds(90, repeated("(?~|a|b)", 7'000)), false},
      {"plainer look-behinds", lookBehinds(90, repeated(".", 6'000)), false},
      {"a few look-behinds", lookBehinds(3, repeated("(?~|a|b)", 4'000)), true},
      {"conditions in conditions", repeated("(?(", 30) + "a" + repeated("|c)d|e)", 30), false},
      {"a long row in groups that are repeated", repeated("(?:", 97) + repeated(".", 60'000) + repeated("|)+", 97),
       false},
      {"a row in groups that are repeated", repeated("(?:", 97) + repeated(".", 10'000) + repeated("|)+", 97), true},
      {"a long row in alternatives of look-aheads", repeated("(?!", 98) + repeated(".", 60'000) + repeated("|a)", 98),
       false},
      {"a long row in alternatives", repeated("(?:", 98) + repeated(".", 60'000) + repeated("|a)", 98), false},
      {"a long row in alternatives behind options", repeated("x|(?m)", 97) + repeated(".", 60'000), false},
      {"a long row in look-aheads", repeated("(?!", 98) + repeated(".", 60'000) + repeated(")", 98), false},
      {"repeated letters in look-aheads", repeated("(?!", 98) + repeated("a{100}", 1'000) + repeated(")", 98), false},
      {"a long row in conditional groups", repeated("(?(a)", 98) + repeated(".", 60'000) + repeated(")", 98), false},
      {"repeated letters", repeated("a{100}", 9'000), true},
      {"a row in alternatives", repeated("(?:", 98) + repeated(".", 10'000) + repeated("|a)", 98), true},
      {"many alternatives", repeated("ab|", 20'000) + "c", true},
      {"a few conditions in conditions", repeated("(?(", 6) + "a" + repeated("|c)d|e)", 6), true},
      {"conditions in branches", repeated("(?(a)", 40) + "a" + repeated("|c)", 40), true},
      {"a call in look-behinds",
       "(?<a>" + repeated("x", 4'000) + ")" + repeated("(?<=", 30) + "\\g<a>" + repeated(")", 30), false},
  };
  for (const VisitsRow& row : rows) {
    const WorkBound bound(row.what);
    const std::string text = raised([&] { (void)KorRegex::compileExpression(row.pattern); });
    EXPECT_EQ(text.empty(), row.compiles) << row.what << ": " << text.substr(0, 300);
    if (!row.compiles) {
      EXPECT_THAT(text, testing::EndsWith(
                            "does not compile: its groups call one another, look behind inside one another, or "
                            "are conditions of conditions, too often, or it is too long for groups as deep as these"));
    }
  }
}

TEST(CompilationLimits, HoldForPatternsTogether) {
  for (const std::string& pattern :
       {chainOfCalls("x", 'i'), lookBehinds(20, repeated(".", 2'000)), std::string("\\d{9,}"),
        std::string("\\d{5}{2,}"), std::string("(?:\\d\\w){5}"), std::string("\\p{IDC}{5}{2,}"),
        std::string("[\\p{L}]{3}{3,}"), std::string("\\p{L}{0,10}"), std::string(), "(?i)" + repeated("\u00df", 13)}) {
    const WorkBound bound(pattern.substr(0, 60));
    std::uint64_t partsLeft = 300'000;  // of a template of a megabyte
    std::vector<Ref<KorRegex>> compiled;
    std::string failure;
    while (compiled.size() < 80'000 && failure.empty()) {
      failure = raised([&] { compiled.push_back(KorRegex::compileExpression(pattern, partsLeft)); });
    }
    EXPECT_THAT(failure, testing::EndsWith("the patterns together have too many character classes or loops"));
  }
}

// Each pattern has a copy that looks at the clock for searches such as this one, which takes seven times its memory.
TEST(CompilationLimits, HoldForTheCopiesOfPatternsThatLookAtTheClock) {
  const std::string pattern = "a|(?=b)" + repeated("()", 49) + "\\g<1>";
  const Ref<NSString> text = NSString::stringWithUTF8(std::string(900, 'a'));
  std::vector<Ref<KorRegex>> compiled;
  for (int count = 0; count < 4'000; ++count) compiled.push_back(KorRegex::compileExpression(pattern));
#ifndef TAVLO_MEMORY_IS_HIDDEN
  const std::int64_t before = bytesInUse();
#endif
  const WorkBound bound("the copies of many patterns");
  for (const Ref<KorRegex>& regex : compiled) {
    EXPECT_TRUE(regex->matchesString(*text));
    EXPECT_TRUE(regex->matchesString(*text));
  }
#ifndef TAVLO_MEMORY_IS_HIDDEN
  EXPECT_LT(bytesInUse() - before, 33 << 20);
#endif
  compiled.clear();
  const Ref<KorRegex> next = KorRegex::compileExpression(pattern);  // for which there is room again
  EXPECT_TRUE(next->matchesString(*text));
#if !defined(TAVLO_MEMORY_IS_HIDDEN) && !defined(TAVLO_MEMORY_IS_WATCHED)
  const std::int64_t kept = allocationsKept();
  EXPECT_TRUE(next->matchesString(*text));
  EXPECT_EQ(allocationsKept(), kept);
#endif
}

// A copy that stays for one thread is compiled by another one meanwhile.
TEST(CompilationLimits, HoldWhereThreadsSearchWithOnePatternFirst) {
  const Ref<NSString> text = NSString::stringWithValidUTF8(std::string(900, 'a'), Counting::Atomic);
  for (int count = 0; count < 50; ++count) {
    const Ref<KorRegex> pattern = KorRegex::compileExpression("a|(?=b)c");
    const auto search = [&] { EXPECT_TRUE(pattern->matchesString(*text)); };
    std::thread other(search);
    search();
    other.join();
  }
}

#if !defined(TAVLO_MEMORY_IS_HIDDEN) && !defined(TAVLO_MEMORY_IS_WATCHED)

// Takes all the memory that there is but for `spare` bytes of pages, and compiles in what is left.
void compileInLittleMemory(const std::string& pattern, std::size_t spare) {
  std::vector<std::unique_ptr<char[]>> held;
  held.reserve(1'000'000);
  void* const pages = ::mmap(nullptr, spare, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  for (const std::size_t size : {std::size_t{100'000}, std::size_t{1'000}, std::size_t{24}}) {
    try {
      while (true) held.emplace_back(new char[size]);
    } catch (const std::bad_alloc&) {
    }
  }
  ::munmap(pages, spare);
  try {
    (void)KorRegex::compileExpression(pattern);
  } catch (const std::bad_alloc&) {
  }
}

[[noreturn]] void compileInThreadsWithLittleMemory() {
  constexpr rlimit kMost = {std::size_t{256} << 20, std::size_t{256} << 20};
  ::setrlimit(RLIMIT_AS, &kMost);
  // The heap of a thread other than the first cannot grow where there is no room for another one: what it lacks then is
  // taken in pages.
  std::thread([] {
    (void)KorRegex::compileExpression("x");
    for (const std::size_t times : {2U, 8U, 30U}) {
      for (std::size_t pages = 10; pages < 40; ++pages) compileInLittleMemory(repeated("(a|b) ", times), pages * 4096);
    }
  }).join();
  ::_exit(0);
}

TEST(FailedAllocations, InAThreadWhoseHeapIsFullLeaveThePatternUncompiled) {
  EXPECT_EXIT(compileInThreadsWithLittleMemory(), testing::ExitedWithCode(0), testing::IsEmpty());
}

// Nothing can be done at a thread's end where a process has taken all keys of what threads have of their own.
[[noreturn]] void searchInThreadsWithoutKeys() {
  pthread_key_t key = 0;
  while (::pthread_key_create(&key, nullptr) == 0) {
  }
  const Ref<KorRegex> pattern = KorRegex::compileExpression("b+");
  const Ref<NSString> text = NSString::stringWithUTF8("abbbc");
  const auto search = [&] {
    if (!pattern->matchesString(*text) || !pattern->matchesString(*text, 100)) ::_exit(1);
  };
  std::thread(search).join();
  const std::int64_t before = allocationsKept();
  for (int count = 0; count < 10; ++count) std::thread(search).join();
  ::_exit(allocationsKept() == before ? 0 : 2);
}

TEST(FailedAllocations, OfAThreadsEndLeaveNothingOfItsSearches) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");  // a process of its own, in which no key was taken before
  EXPECT_EXIT(searchInThreadsWithoutKeys(), testing::ExitedWithCode(0), testing::IsEmpty());
}

#endif

#ifndef TAVLO_MEMORY_IS_HIDDEN

// Searches in every round of destructors that the end of a thread has, behind the library's own.
class SearchAtTheEnd {
 public:
  SearchAtTheEnd() {
    search();  // the library takes its key first
    EXPECT_EQ(::pthread_key_create(&key_, searchAgain), 0);
  }
  SearchAtTheEnd(const SearchAtTheEnd&) = delete;
  SearchAtTheEnd& operator=(const SearchAtTheEnd&) = delete;
  ~SearchAtTheEnd() { ::pthread_key_delete(key_); }

  void runThread() {
    std::thread([this] {
      search();
      ::pthread_setspecific(key_, this);
    }).join();
  }
  int searches() const { return searches_; }

 private:
  static void searchAgain(void* itself) {
    auto* const atTheEnd = static_cast<SearchAtTheEnd*>(itself);
    ::pthread_setspecific(atTheEnd->key_, itself);
    atTheEnd->search();
  }
  void search() {
    if (pattern_->matchesString(*text_, 100)) ++searches_;
  }

  pthread_key_t key_ = 0;
  Ref<KorRegex> pattern_ = KorRegex::compileExpression("b+");
  Ref<NSString> text_ = NSString::stringWithUTF8("abbbc");
  int searches_ = 0;
};

TEST(SearchesAtTheEndOfAThread, LeaveNothingBehind) {
  SearchAtTheEnd atTheEnd;
  atTheEnd.runThread();
  EXPECT_GT(atTheEnd.searches(), 3);
  const std::int64_t before = allocationsKept();
  for (int count = 0; count < 10; ++count) atTheEnd.runThread();
  EXPECT_EQ(allocationsKept(), before);
}

#endif

}  // namespace

}  // namespace tavlo::test
