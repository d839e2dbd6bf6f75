#pragma once

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <random>
#include <string>
#include <string_view>
#include <vector>

namespace tavlo::test {

// Random choices that are the same on every machine: the distributions of the standard library are not.
class Chooser {
 public:
  explicit Chooser(std::uint32_t seed) : engine_(seed) {}

  // From 0 to `count` - 1.
  std::size_t below(std::size_t count) { return engine_() % count; }
  // True once in `count` times.
  bool oneIn(std::size_t count) { return below(count) == 0; }
  template <class Item>
  const Item& from(const std::vector<Item>& items) {
    return items[below(items.size())];
  }

 private:
  std::mt19937 engine_;
};

// A text with its characters apart.
std::vector<std::string> charactersOf(std::string_view text);
std::string joined(const std::vector<std::string>& pieces);

// So many pieces, chosen at random.
std::string randomText(Chooser& chooser, const std::vector<std::string>& pieces, std::size_t count);

// The text after a few random changes, each to whole characters: one taken out, put twice, put elsewhere or replaced by
// a piece.
std::string mutated(Chooser& chooser, std::string_view text, const std::vector<std::string>& pieces);

// What scanners stumble over.
const std::vector<std::string>& trickyPieces();

// The templates of the template tests, none longer than `longest` bytes.
std::vector<std::string> realTemplates(std::size_t longest);

// The text with everything that is not printable ASCII written as bytes, for messages.
std::string readable(std::string_view text);

}  // namespace tavlo::test
