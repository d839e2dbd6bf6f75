#pragma once

#include <array>
#include <cstddef>
#include <string_view>
#include <vector>

#include "Foundation/NSDictionary.h"
#include "Foundation/NSString.h"
#include "Foundation/Value.h"

namespace tavlo {

// Puts a value together from its parts in the order in which a text names them: what is finished lies on a
// stack until the array or the object around it ends.
class JSONValueBuilder {
 public:
  static constexpr std::size_t kDeepest = 1000;
  // How many kinds of texts the builder keeps the latest of.
  static constexpr std::size_t kKinds = 256;

  void add(Value value) { values_.push_back(std::move(value)); }
  // The text must be valid UTF-8, here and for names.
  void addString(std::string_view text);
  void addName(std::string_view text);
  // The number that the text, a JSON number, stands for. False, and nothing is added, when it is beyond the doubles.
  bool addNumber(std::string_view text);

  // Begins an array or an object. False when that would be too deep.
  bool begin() noexcept;
  // Ends an array that holds the latest `count` values.
  void endArray(std::size_t count);
  // Ends an object that holds the latest `count` names and values.
  void endObject(std::size_t count);

  Value takeResult() { return std::move(values_.back()); }

 private:
  // The one string for all names of that text.
  const Ref<NSString>& interned(std::string_view name);
  void growNames();
  bool addLongNumber(std::string_view text, bool isInteger);
  // Whether no two of the latest `count` names are equal; not asked of many.
  bool areDistinct(std::size_t count) const noexcept;

  std::vector<Value> values_;
  std::vector<Ref<NSString>> names_;
  std::size_t depth_ = 0;
  std::vector<Ref<NSString>> internedNames_;  // open addressing, a power of two
  std::size_t internedCount_ = 0;
  std::array<const Ref<NSString>*, kKinds> latestNames_ = {};  // the latest of each kind, in internedNames_
  std::array<Ref<NSString>, kKinds> latestTexts_;              // the latest short ones: data repeats them
};

}  // namespace tavlo
