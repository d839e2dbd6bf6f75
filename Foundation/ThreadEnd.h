#pragma once

#pragma GCC visibility push(hidden)
namespace tavlo {

// What is done when a thread ends. The destructor of a thread's variable would do it too, but where there is no memory
// to line that up the C library ends the process.
class ThreadEnd {
 public:
  using Action = void (*)() noexcept;

  // Runs the action when the running thread ends, unless the process ends with it. Called once a thread for each of a
  // few actions. False where the action cannot be lined up.
  static bool run(Action action) noexcept;
};

}  // namespace tavlo
#pragma GCC visibility pop
