#include "Foundation/Name.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <mutex>
#include <new>
#include <utility>
#include <vector>

#include "Foundation/Bytes.h"
#include "Foundation/HashSeed.h"
#include "Foundation/SingleThread.h"
#include "Foundation/Utf8.h"

namespace tavlo {

struct Name::Entry {
  std::atomic<std::uint32_t> references{1};
  std::uint32_t byteLength;
  std::size_t hash;       // of the text
  Entry* next = nullptr;  // in the same chain of the table

  char* characters() noexcept { return reinterpret_cast<char*>(this + 1); }
  std::string_view view() noexcept { return {characters(), byteLength}; }

  static Entry* make(std::string_view text, std::size_t hash) {
    auto* entry =
        new (::operator new(sizeof(Entry) + text.size() + 1)) Entry{{1}, static_cast<std::uint32_t>(text.size()), hash};
    if (!text.empty()) std::memcpy(entry->characters(), text.data(), text.size());
    entry->characters()[text.size()] = '\0';
    return entry;
  }
  static void end(Entry* entry) noexcept {
    entry->~Entry();
    ::operator delete(entry);
  }
};

// The process's names, in parts with a lock each, hashed into chains that run through the entries. An entry's last
// reference is given up under its part's lock, so that an entry found there is alive. The latest ones that have lost
// all references rest there for a while: a program that compiles a template again asks for the same names again.
class NameTable {
 public:
  static Name::Entry* intern(std::string_view text) {
    const std::size_t hash = HashSeed::ofProcess().hashOfText(text);
    Part& part = partOf(hash);
    const std::lock_guard lock(part.mutex);
    if (part.count >= part.chains.size()) part.grow();
    Name::Entry*& chain = part.chainOf(hash);
    for (Name::Entry* entry = chain; entry != nullptr; entry = entry->next) {
      if (entry->hash != hash || entry->view() != text) continue;
      entry->references.fetch_add(1, std::memory_order_relaxed);
      return entry;
    }
    Name::Entry* const made = Name::Entry::make(text, hash);
    made->next = std::exchange(chain, made);
    ++part.count;
    return made;
  }

  static void releaseLast(Name::Entry* entry) noexcept {
    Part& part = partOf(entry->hash);
    const std::lock_guard lock(part.mutex);
    if (entry->references.fetch_sub(1, std::memory_order_acq_rel) != 1) return;
    if (entry->byteLength > kLongestResting) return part.end(entry);
    if (std::ranges::find(part.resting, entry) != part.resting.end()) return;
    Name::Entry* const replaced = std::exchange(part.resting[part.nextResting++ % kMostResting], entry);
    if (replaced != nullptr && replaced->references.load(std::memory_order_relaxed) == 0) part.end(replaced);
  }

 private:
  // The entries that may rest in each part, and how long their names may be, in bytes.
  static constexpr std::size_t kMostResting = 16;
  static constexpr std::uint32_t kLongestResting = 64;

  struct Part {
    std::mutex mutex;
    std::vector<Name::Entry*> chains;  // a power of two
    std::size_t count = 0;             // of the entries in them
    std::array<Name::Entry*, kMostResting> resting{};
    std::size_t nextResting = 0;  // the place of the one that has been there longest

    Name::Entry*& chainOf(std::size_t hash) noexcept { return chains[hash & (chains.size() - 1)]; }

    void end(Name::Entry* entry) noexcept {
      Name::Entry** place = &chainOf(entry->hash);
      while (*place != entry) place = &(*place)->next;
      *place = entry->next;
      --count;
      Name::Entry::end(entry);
    }

    void grow() {
      constexpr std::size_t kFirstSize = 64;
      std::vector<Name::Entry*> old(std::max(kFirstSize, chains.size() * 2));
      old.swap(chains);
      for (Name::Entry* entry : old) {
        while (entry != nullptr) {
          Name::Entry* const next = entry->next;
          entry->next = std::exchange(chainOf(entry->hash), entry);
          entry = next;
        }
      }
    }
  };

  static Part& partOf(std::size_t hash) {
    static constexpr std::size_t kParts = 16;
    static auto& parts = *new std::array<Part, kParts>;  // names may outlive every static object
    return parts[(hash >> 57) % kParts];                 // bits that do not choose the chain
  }
};

Name::Name(std::string_view text) {
  requireValidUTF8(text);
  entry_ = NameTable::intern(text);
}

std::string_view Name::view() const noexcept {
  return entry_ == nullptr ? std::string_view("") : entry_->view();
}

const Name& NameCache::nameForText(std::string_view text) {
  Name& name = names_[mixedEnds(text) >> (64 - kBits)];
  const std::string_view known = name.view();
  const bool isKnown =
      !name.isAbsent() && known.size() == text.size() && areSameBytes(known.data(), text.data(), text.size());
  if (!isKnown) name = Name(text);
  return name;
}

void Name::retain() const noexcept {
  if (entry_ == nullptr) return;
  std::atomic<std::uint32_t>& references = entry_->references;
  if (isSingleThreaded()) {
    references.store(references.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
  } else {
    references.fetch_add(1, std::memory_order_relaxed);
  }
}

void Name::release() noexcept {
  std::uint32_t references = entry_->references.load(std::memory_order_relaxed);
  if (references > 1 && isSingleThreaded()) {
    return entry_->references.store(references - 1, std::memory_order_relaxed);
  }
  while (references > 1) {
    if (entry_->references.compare_exchange_weak(references, references - 1, std::memory_order_acq_rel)) return;
  }
  NameTable::releaseLast(entry_);
}

}  // namespace tavlo
