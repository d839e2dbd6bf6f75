// Clang's thread sanitizer brings allocation operators that a program cannot replace: there is nothing to count there.
#ifdef __clang__
#if __has_feature(thread_sanitizer)
#define TAVLO_ALLOCATIONS_ARE_HIDDEN
#endif
#endif

#ifndef TAVLO_ALLOCATIONS_ARE_HIDDEN

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <new>
#include <string>

#include "Foundation/NSArray.h"
#include "Foundation/NSDictionary.h"
#include "Source/KorTemplateStringStream.h"
#include "Tests/Source/HostClasses.h"

namespace {

std::atomic<std::uint64_t> allocationsMade{0};

}  // namespace

// Every allocation of this program is counted. Never inlined: the compiler would see memory of malloc() where it
// expects that of an operator.
[[gnu::noinline]] void* operator new(std::size_t size) {
  allocationsMade.fetch_add(1, std::memory_order_relaxed);
  if (void* memory = std::malloc(size == 0 ? 1 : size)) return memory;
  throw std::bad_alloc();
}
[[gnu::noinline]] void* operator new[](std::size_t size) {
  return operator new(size);
}
[[gnu::noinline]] void* operator new(std::size_t size, const std::nothrow_t& /*tag*/) noexcept {
  allocationsMade.fetch_add(1, std::memory_order_relaxed);
  return std::malloc(size == 0 ? 1 : size);
}
[[gnu::noinline]] void* operator new[](std::size_t size, const std::nothrow_t& tag) noexcept {
  return operator new(size, tag);
}
[[gnu::noinline]] void operator delete(void* memory) noexcept {
  std::free(memory);
}
[[gnu::noinline]] void operator delete[](void* memory) noexcept {
  std::free(memory);
}
[[gnu::noinline]] void operator delete(void* memory, std::size_t /*size*/) noexcept {
  std::free(memory);
}
[[gnu::noinline]] void operator delete[](void* memory, std::size_t /*size*/) noexcept {
  std::free(memory);
}

namespace tavlo::test {

namespace {

// Takes every write without keeping it.
class CountingStream final : public KorTemplateStream {
 public:
  void write(const Text& text) override {
    ++writes;
    bytes += text.view().size();
  }
  std::uint64_t writes = 0;
  std::uint64_t bytes = 0;
};

Value listOf(int count) {
  std::vector<Value> elements;
  for (int number = 0; number < count; ++number) {
    elements.push_back(NSDictionary::dictionaryWithEntries({{"n", number}, {"name", "Ann"}}));
  }
  return NSArray::arrayWithObjects(elements);
}

// How many allocations one run over the list makes.
std::uint64_t allocationsOf(const Stage& stage, KorTemplate& compiled, const Value& list) {
  stage.set("list", list);
  const std::uint64_t before = allocationsMade.load();
  compiled.executeWithEnvironment(stage.get());
  return allocationsMade.load() - before;
}

TEST(Allocations, AreCounted) {
  const std::uint64_t before = allocationsMade.load();
  const Ref<HostObject> object = makeRef<HostObject>();
  EXPECT_EQ(allocationsMade.load(), before + 1);
}

TEST(Allocations, AreNotMadePerIterationOnceWarm) {
  struct Row {
    const char* what;
    const char* body;
  };
  const Row rows[] = {
      {"an iteration", ""},
      {"a literal text", "text that is too long for any small buffer"},
      {"the index", "<?= @@index ?>"},
      {"a path", "<?= $e.name ?><?= $e.n ?>"},
      {"a path to nothing", "<?= $e.missing ?><?= $none.x ?>"},
      {"a string's property", "<?= $e.name.length ?>"},
      {"a branch", "<? if ($e.n > 5) ?>a<? elseif ($e.n == 3) ?>b<? else ?>c<? endif ?>"},
      {"an assignment", "<? $x = $e.n ?><? $y = $x ?>"},
      {"an assignment in a branch", "<? if (true) ?><? $x = 1 ?><? endif ?>"},
      {"arithmetic", "<?= ($e.n * 2 + 1) % 7 - 1 ?>"},
      {"a double", "<?= $e.n / 3 ?>"},
      {"logic", "<? if ($e.n < 3 && $e.n != 2 || false) ?>x<? endif ?>"},
      {"a call", "<? f($e.n, $e) ?>"},
      {"the value of a call", "<?= g($e.name) ?>"},
      {"a recursive call", "<? r(3) ?>"},
      {"a host's function", "<?= h($e.n) ?>"},
      {"an unknown function", "<?= unknown($e.n) ?>"},
      {"a nested loop", "<? foreach ($i in $small) ?><?= $i ?><? endforeach ?>"},
      {"a dictionary's loop", "<? foreach ($v in $e) ?><?= $v ?><? endforeach ?>"},
      {"a definition", "<? function d() ?>d<? endfunction ?><? d() ?>"},
      {"a match", "<? if ($e.name =~ /n+$/) ?>m<? endif ?>"},
  };
  const Value few = listOf(10);
  const Value many = listOf(1010);
  for (const Row& row : rows) {
    const Stage stage;
    const Ref<CountingStream> stream = makeRef<CountingStream>();
    stage.environment->setOutputStream(stream);
    stage.set("small", NSArray::arrayWithObjects({1, 2}));
    stage.define("h", [](KorTemplateEnvironment*, ListArgument<Value> arguments) -> Value { return arguments[0]; });
    stage.run(
        "<? function f($a, $b) ?><? $c = $a ?><? endfunction ?><? function g($a) ?><? return $a ?><? endfunction ?>"
        "<? function r($n) ?><? if ($n > 0) ?><? r($n - 1) ?><? endif ?><? endfunction ?>");
    const Ref<KorTemplate> compiled =
        KorTemplate::compile("<? foreach ($e in $list) ?>" + std::string(row.body) + "<? endforeach ?>");
    (void)allocationsOf(stage, *compiled, many);
    (void)allocationsOf(stage, *compiled, few);
    const std::uint64_t forFew = allocationsOf(stage, *compiled, few);
    EXPECT_EQ(allocationsOf(stage, *compiled, many), forFew) << row.what;
  }
}

TEST(Allocations, AreNotMadeByAWarmExecution) {
  const Stage stage;
  const Ref<CountingStream> stream = makeRef<CountingStream>();
  stage.environment->setOutputStream(stream);
  const Value list = listOf(10);
  const Ref<KorTemplate> compiled = KorTemplate::compile(
      "a<? foreach ($e in $list) ?><? if ($e.n > 5) ?><?= $e.name ?><? endif ?><?= f($e.n) ?><? endforeach ?>");
  stage.run("<? function f($n) ?><? return $n + 1 ?><? endfunction ?>");
  for (int time = 0; time < 3; ++time) (void)allocationsOf(stage, *compiled, list);
  EXPECT_EQ(allocationsOf(stage, *compiled, list), 0u);
  EXPECT_EQ(stream->writes, 4u * 15);
}

TEST(Allocations, OfAStringStreamAreThoseOfItsBuffer) {
  const Stage stage;
  const Ref<KorTemplateStringStream> stream = KorTemplateStringStream::stringStream();
  stage.environment->setOutputStream(stream);
  stream->buffer()->mutableText().reserve(100'000);
  const Value list = listOf(1000);
  const Ref<KorTemplate> compiled =
      KorTemplate::compile("<? foreach ($e in $list) ?><?= $e.n ?>,<?= $e.name ?>;<? endforeach ?>");
  (void)allocationsOf(stage, *compiled, list);
  (void)allocationsOf(stage, *compiled, list);
  EXPECT_EQ(allocationsOf(stage, *compiled, list), 0u);
}

}  // namespace

}  // namespace tavlo::test

#endif
