#include "Foundation/ThreadEnd.h"

#include <pthread.h>

#include <array>
#include <cstddef>
#include <utility>

namespace tavlo {

namespace {

struct EndActions {
  std::array<ThreadEnd::Action, 4> actions;
  std::size_t count;
  bool haveRun;
};
[[gnu::tls_model("initial-exec")]] constinit thread_local EndActions endActions{};

extern "C" void runEndActions(void* /*actions*/) {
  endActions.haveRun = true;
  for (std::size_t left = std::exchange(endActions.count, 0); left > 0; --left) endActions.actions[left - 1]();
}

// Gone with the library, so that no thread calls what is there no more. The thread that unloads it has had its end of
// it by then.
class EndKey {
 public:
  EndKey() noexcept : isMade_(pthread_key_create(&key_, runEndActions) == 0) {}
  ~EndKey() {
    if (!isMade_) return;
    pthread_key_delete(key_);
    runEndActions(nullptr);
  }
  EndKey(const EndKey&) = delete;
  EndKey& operator=(const EndKey&) = delete;

  bool set(const void* value) const noexcept { return isMade_ && pthread_setspecific(key_, value) == 0; }

 private:
  pthread_key_t key_{};
  bool isMade_;
};

}  // namespace

bool ThreadEnd::run(Action action) noexcept {
  static const EndKey key;
  if (endActions.haveRun || endActions.count == endActions.actions.size() || !key.set(&endActions)) return false;
  endActions.actions[endActions.count++] = action;
  return true;
}

}  // namespace tavlo
