#include "Tests/Differential/WithoutAddresses.h"

#include <algorithm>
#include <cstddef>
#include <map>
#include <string_view>

namespace tavlo::test {

std::string withoutAddresses(const std::string& description) {
  std::map<std::string, std::size_t> known;
  std::string result;
  std::size_t copied = 0;
  constexpr std::string_view kBefore = ": 0x";
  for (std::size_t at = description.find(kBefore); at != description.npos; at = description.find(kBefore, at)) {
    at += 2;
    const std::size_t end = std::min(description.find_first_not_of("0123456789abcdef", at + 2), description.size());
    if (description.substr(end, 1) != ">") continue;  // of the template's own text
    const std::string address = description.substr(at, end - at);
    result.append(description, copied, at - copied);
    result += "#" + std::to_string(known.try_emplace(address, known.size()).first->second);
    copied = end;
  }
  result.append(description, copied);
  return result;
}

}  // namespace tavlo::test
