#pragma once

#include <stdexcept>
#include <string>

#include "Source/TextPlace.h"

namespace tavlo {

// Text that is not the JSON that is asked for.
class JSONError : public std::runtime_error {
 public:
  JSONError(const std::string& reason, const TextPlace& place) : std::runtime_error(reason), place_(place) {}

  const TextPlace& place() const noexcept { return place_; }

 private:
  TextPlace place_;
};

}  // namespace tavlo
