#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <optional>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "Foundation/NSArray.h"
#include "Foundation/NSDictionary.h"
#include "Foundation/NSString.h"
#include "Foundation/ObjectArena.h"
#include "Tests/Memory/FailingMemory.h"

namespace tavlo::test {

namespace {

Ref<NSString> atomicString(const std::string& text) {
  return NSString::stringWithValidUTF8(text, Counting::Atomic);
}

// Sizes around those of a chunk and of what still gets into one.
std::vector<std::string> textsOfManySizes() {
  std::vector<std::string> texts;
  for (std::size_t size = 0; size < 40'000; size = size * 5 / 4 + 1) {
    texts.emplace_back(size, static_cast<char>('a' + texts.size() % 26));
    texts.emplace_back(size % 100, static_cast<char>('A' + texts.size() % 26));
  }
  return texts;
}

TEST(ObjectArena, LeavesWhatItMadeBehind) {
  const std::vector<std::string> texts = textsOfManySizes();
  std::vector<Ref<NSString>> strings;
  {
    ObjectArena arena;
    const ObjectArena::Scope scope(arena);
    for (int round = 0; round < 3; ++round) {
      for (const std::string& text : texts) strings.push_back(atomicString(text));
    }
    for (std::size_t index = 0; index < strings.size(); index += 2) strings[index] = nullptr;
  }
  for (std::size_t index = 1; index < strings.size(); index += 2) {
    EXPECT_EQ(strings[index]->view(), texts[index % texts.size()]);
    EXPECT_EQ(strings[index]->kind(), ObjectKind::String);
  }
}

TEST(ObjectArena, IsTheOneOfTheInnermostScope) {
  ObjectArena outer;
  ObjectArena inner;
  const ObjectArena::Scope outerScope(outer);
  const Ref<NSString> first = atomicString("first");
  {
    const ObjectArena::Scope innerScope(inner);
    EXPECT_EQ(atomicString("second")->view(), "second");
  }
  EXPECT_EQ(atomicString("third")->view(), "third");
  EXPECT_EQ(first->view(), "first");
}

TEST(ObjectArena, LetsAnyThreadFreeWhileItGoesOn) {
  ObjectArena arena;
  const ObjectArena::Scope scope(arena);
  for (int round = 0; round < 20; ++round) {
    std::vector<Ref<NSString>> strings;
    for (int number = 0; number < 500; ++number) strings.push_back(atomicString("text " + std::to_string(number)));
    std::thread freeing([taken = std::move(strings)]() mutable {
      for (std::size_t index = 0; index < taken.size(); ++index) {
        EXPECT_EQ(taken[index]->view(), "text " + std::to_string(index));
        taken[index] = nullptr;
      }
    });
    for (int number = 0; number < 500; ++number) EXPECT_EQ(atomicString("own")->view(), "own");
    freeing.join();
  }
}

#ifndef TAVLO_MEMORY_IS_HIDDEN
TEST(ObjectArena, GivesBackWhatTwoThreadsEndInTurns) {
  const auto makeAndEnd = [] {
    std::vector<Ref<NSString>> strings;
    {
      ObjectArena arena;
      const ObjectArena::Scope scope(arena);
      for (int count = 0; count < 20'000; ++count) strings.push_back(atomicString(std::string(100, 'x')));
    }
    const auto endEach = [&strings](std::size_t first) {
      for (std::size_t index = first; index < strings.size(); index += 2) strings[index] = nullptr;
    };
    std::thread other(endEach, 1);
    endEach(0);
    other.join();
  };
  std::thread(makeAndEnd).join();  // what a process makes once is made now
  const std::int64_t before = bytesInUse();
  std::thread(makeAndEnd).join();
  EXPECT_LT(bytesInUse() - before, 64 * 1024);  // of some megabytes
}
#endif

#if !defined(TAVLO_MEMORY_IS_HIDDEN) && !defined(TAVLO_MEMORY_IS_WATCHED)
TEST(ObjectArena, TakesAgainWhatItsThreadHasEnded) {
  std::vector<Ref<NSString>> strings;
  strings.reserve(2'000);
  const std::string text(100, 'x');
  const auto makeAndEnd = [&] {
    ObjectArena arena;
    const ObjectArena::Scope scope(arena);
    for (int count = 0; count < 2'000; ++count) strings.push_back(atomicString(text));
    strings.clear();
  };
  makeAndEnd();
  const std::uint64_t before = allocationsMade();
  for (int round = 0; round < 5; ++round) makeAndEnd();
  EXPECT_EQ(allocationsMade() - before, 0U);
}
#endif

TEST(ObjectArena, HoldsValuesThatGrowAndEndBehindIt) {
  Ref<NSMutableDictionary> dictionary;
  Value text;
  {
    ObjectArena arena;
    const ObjectArena::Scope scope(arena);
    dictionary = NSMutableDictionary::dictionary();
    text = NSString::stringInArena("a t\u00e9xt");
    dictionary->setObjectForKey(text, "text");
    dictionary->setObjectForKey(NSArray::arrayWithObjects({text, 1}), "list");
  }
  for (int number = 0; number < 1'000; ++number) dictionary->setObjectForKey(number, "key " + std::to_string(number));
  EXPECT_EQ(text.string()->length(), 6u);
  EXPECT_FALSE(text.string()->isShared());
  EXPECT_EQ(dictionary->count(), 1'002u);
  EXPECT_EQ(dictionary->objectForKey("text").description(), "a t\u00e9xt");
  EXPECT_EQ(dictionary->objectForKey("list").as<NSArray>()->count(), 2u);
  dictionary->removeAllObjects();
  std::thread([kept = std::move(dictionary)]() mutable { kept = nullptr; }).join();
  EXPECT_EQ(text.description(), "a t\u00e9xt");
}

TEST(ObjectArena, ServesContainers) {
  ObjectArena arena;
  const ObjectArena::Scope scope(arena);
  std::vector<int, ObjectArena::Allocator<int>> numbers;
  for (int number = 0; number < 10'000; ++number) numbers.push_back(number);
  for (int number = 0; number < 10'000; ++number) ASSERT_EQ(numbers[static_cast<std::size_t>(number)], number);
}

// Memory that is given back, the latest of it at once, is never handed out while somebody uses it.
TEST(ObjectArena, TakesBackNothingThatIsInUse) {
  struct Piece {
    unsigned char* bytes;
    std::size_t size;
    unsigned char filling;
  };
  for (const std::size_t expected : {std::size_t{0}, std::size_t{5'000}, std::size_t{100'000}}) {
    ObjectArena arena(expected);
    const ObjectArena::Scope scope(arena);
    std::vector<Piece> pieces;
    const auto freeAt = [&pieces](std::size_t index) {
      const Piece piece = pieces[index];
      for (std::size_t at = 0; at < piece.size; ++at) ASSERT_EQ(piece.bytes[at], piece.filling);
      ObjectArena::free(piece.bytes, piece.size);
      pieces.erase(pieces.begin() + static_cast<std::ptrdiff_t>(index));
    };
    std::mt19937 random(7);
    for (unsigned step = 0; step < 5'000; ++step) {
      const std::size_t size = 1 + random() % (step % 50 == 0 ? 3'000 : 100);
      Piece piece{static_cast<unsigned char*>(ObjectArena::allocate(size)), size, static_cast<unsigned char>(step)};
      std::memset(piece.bytes, piece.filling, size);
      pieces.push_back(piece);
      if (random() % 2 == 0) freeAt(pieces.size() - 1);
      if (random() % 4 == 0 && !pieces.empty()) freeAt(random() % pieces.size());
    }
    while (!pieces.empty()) freeAt(0);
  }
}

// What a host derives, with a member of an alignment of its own.
template <class Base, std::size_t alignment>
class AlignedObject final : public Base {
 public:
  using Base::Base;
  alignas(alignment) double numbers[8] = {};
};

template <class Object>
bool isAligned() {
  const Ref<Object> object = makeRef<Object>();
  return reinterpret_cast<std::uintptr_t>(&object->numbers) % alignof(Object) == 0;
}

TEST(ObjectArena, AlignsObjectsAsTheirClassesAsk) {
  for (const bool inArena : {false, true}) {
    ObjectArena arena;
    std::optional<ObjectArena::Scope> scope;
    if (inArena) scope.emplace(arena);
    for (int round = 0; round < 20; ++round) {
      const Ref<NSString> between = atomicString(std::string(static_cast<std::size_t>(round), 'a'));
      EXPECT_TRUE((isAligned<AlignedObject<NSArray, 16>>()));
      EXPECT_TRUE((isAligned<AlignedObject<NSDictionary, 16>>()));
      EXPECT_TRUE((isAligned<AlignedObject<NSArray, 64>>()));
      EXPECT_TRUE((isAligned<AlignedObject<NSDictionary, 128>>()));
    }
  }
}

}  // namespace

}  // namespace tavlo::test
