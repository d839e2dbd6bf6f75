#pragma once

#pragma GCC visibility push(hidden)
namespace tavlo {

// What is done when a thread ends. The destructor of a thread's variable would do it too, but where there is no memory
// to line that up the C library ends the process.
class ThreadEnd {
 public:
  using Action = void (*)() noexcept;

  // Runs the action when the running thread ends, unless the process ends with it. Called once a thread for each of a
  // few actions. False where the action cannot be lined up, as behind the end: destructors of a program's own keys may
  // come later, and theirs may be the last round of destructors that there is.
  static bool run(Action action) noexcept;
};

}  // namespace tavlo
#pragma GCC visibility pop
