#pragma once

#include <utility>

#pragma GCC visibility push(hidden)
namespace tavlo {

// An object that is never destroyed, for a static one that others may refer to when the process ends.
template <class T>
union Lasting {
  template <class... Arguments>
  explicit Lasting(Arguments&&... arguments) : object{std::forward<Arguments>(arguments)...} {}
  ~Lasting() {}  // NOLINT(*-use-equals-default): of a union that would be none
  Lasting(const Lasting&) = delete;
  Lasting& operator=(const Lasting&) = delete;

  T object;
};

}  // namespace tavlo
#pragma GCC visibility pop
