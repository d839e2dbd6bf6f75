#pragma once

#include <array>
#include <cstddef>
#include <string_view>
#include <vector>

#include "Foundation/NSString.h"
#include "Foundation/Value.h"

namespace tavlo {

// Puts a value together from its parts in the order in which a text names them: what is finished lies on a
// stack until the array or the object around it ends.
class JSONValueBuilder {
 public:
  static constexpr std::size_t kDeepest = 1000;

  void add(Value value) { values_.push_back(std::move(value)); }
  // The text must be valid UTF-8, here and for names.
  void addString(std::string_view text) { add(NSString::stringWithValidUTF8(text)); }
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
  std::vector<Value> values_;
  std::vector<Ref<NSString>> names_;
  std::size_t depth_ = 0;
  std::array<Ref<NSString>, 256> knownNames_;  // the latest of each kind: texts repeat their names
};

}  // namespace tavlo
