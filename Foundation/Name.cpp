#include "Foundation/Name.h"

#include <array>
#include <cstring>
#include <mutex>
#include <new>
#include <unordered_set>

#include "Foundation/HashSeed.h"
#include "Foundation/Utf8.h"

namespace tavlo {

struct Name::Entry {
  std::atomic<std::uint32_t> references{1};
  std::uint32_t byteLength;
  std::size_t hash;  // of the text

  char* characters() noexcept { return reinterpret_cast<char*>(this + 1); }
  std::string_view view() noexcept { return {characters(), byteLength}; }

  static Entry* make(std::string_view text, std::size_t hash) {
    auto* entry =
        new (::operator new(sizeof(Entry) + text.size() + 1)) Entry{{1}, static_cast<std::uint32_t>(text.size()), hash};
    std::memcpy(entry->characters(), text.data(), text.size());
    entry->characters()[text.size()] = '\0';
    return entry;
  }
  static void end(Entry* entry) noexcept {
    entry->~Entry();
    ::operator delete(entry);
  }
};

// The process's names, in parts with a lock each. An entry's last reference is given up under its part's lock, so that
// an entry found there is alive.
class NameTable {
 public:
  static Name::Entry* intern(std::string_view text) {
    const Key key{text, HashSeed::ofProcess().hashOfText(text)};
    Part& part = partOf(key.hash);
    const std::lock_guard lock(part.mutex);
    if (const auto found = part.entries.find(key); found != part.entries.end()) {
      (*found)->references.fetch_add(1, std::memory_order_relaxed);
      return *found;
    }
    Name::Entry* entry = Name::Entry::make(text, key.hash);
    try {
      part.entries.insert(entry);
    } catch (...) {
      Name::Entry::end(entry);
      throw;
    }
    return entry;
  }

  static void releaseLast(Name::Entry* entry) noexcept {
    Part& part = partOf(entry->hash);
    const std::lock_guard lock(part.mutex);
    if (entry->references.fetch_sub(1, std::memory_order_acq_rel) != 1) return;
    part.entries.erase(entry);
    Name::Entry::end(entry);
  }

 private:
  // A text that is looked for, hashed once.
  struct Key {
    std::string_view text;
    std::size_t hash;
  };
  struct Hash {
    using is_transparent = void;
    std::size_t operator()(const Key& key) const noexcept { return key.hash; }
    std::size_t operator()(Name::Entry* entry) const noexcept { return entry->hash; }
  };
  struct Equal {
    using is_transparent = void;
    bool operator()(Name::Entry* left, Name::Entry* right) const noexcept { return left == right; }
    bool operator()(const Key& key, Name::Entry* entry) const noexcept { return key.text == entry->view(); }
    bool operator()(Name::Entry* entry, const Key& key) const noexcept { return key.text == entry->view(); }
  };
  struct Part {
    std::mutex mutex;
    std::unordered_set<Name::Entry*, Hash, Equal> entries;
  };

  static Part& partOf(std::size_t hash) {
    static constexpr std::size_t kParts = 16;
    static auto& parts = *new std::array<Part, kParts>;  // names may outlive every static object
    return parts[(hash >> 7) % kParts];
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
  std::size_t hash = text.size();
  for (const char byte : text) hash = hash * 31 + static_cast<unsigned char>(byte);
  Name& name = names_[hash % names_.size()];
  if (name.isAbsent() || name.view() != text) name = Name(text);
  return name;
}

void Name::retain() const noexcept {
  if (entry_ != nullptr) entry_->references.fetch_add(1, std::memory_order_relaxed);
}

void Name::release() noexcept {
  std::uint32_t references = entry_->references.load(std::memory_order_relaxed);
  while (references > 1) {
    if (entry_->references.compare_exchange_weak(references, references - 1, std::memory_order_acq_rel)) return;
  }
  NameTable::releaseLast(entry_);
}

}  // namespace tavlo
