#include "Tool/TemporaryFile.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cassert>
#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstdio>
#include <filesystem>
#include <system_error>

namespace tavlo {

namespace {

// Whether the signal ends a program that does not handle it, and does not tell of an instruction that cannot go on.
constexpr bool endsProgram(int signal) {
  constexpr std::array kOthers = {SIGKILL, SIGSTOP,  SIGTSTP, SIGTTIN, SIGTTOU, SIGCONT, SIGCHLD,
                                  SIGURG,  SIGWINCH, SIGSEGV, SIGBUS,  SIGFPE,  SIGILL};
  return std::ranges::find(kOthers, signal) == kOthers.end();
}

// Calls `use` with each of those signals.
template <class Use>
void forEachEndingSignal(const Use& use) {
  constexpr int kLast = 31;  // behind which are those that mean what each program says
  for (int signal = 1; signal <= kLast; ++signal) {
    if (endsProgram(signal)) use(signal);
  }
}

// The files that exist, for the signal handler; null where there is none.
using Path = std::atomic<const char*>;
std::array<Path, TemporaryFile::kMost> existing = {};
static_assert(Path::is_always_lock_free);

// The place of that path, or of null: a free one.
Path& placeOf(const char* path) {
  std::size_t index = 0;
  while (existing[index] != path) ++index;
  assert(index < existing.size());
  return existing[index];
}

extern "C" void removeAndEnd(int signal) {
  for (const Path& path : existing) {
    if (path != nullptr) ::unlink(path);
  }
  struct sigaction ending = {};
  ending.sa_handler = SIG_DFL;
  ::sigaction(signal, &ending, nullptr);
  ::raise(signal);  // which waits, as all of them do, until this handler returns
}

sigset_t endingSignals() {
  sigset_t set;
  ::sigemptyset(&set);
  forEachEndingSignal([&](int signal) { ::sigaddset(&set, signal); });
  return set;
}

// Their own effects come back in the handler, not before it runs: the next one of the same kind would end the program
// then.
void handleEndingSignals() {
  struct sigaction handling = {};
  handling.sa_handler = removeAndEnd;
  handling.sa_mask = endingSignals();
  forEachEndingSignal([&](int signal) {
    struct sigaction before = {};
    ::sigaction(signal, nullptr, &before);
    if (before.sa_handler == SIG_DFL) ::sigaction(signal, &handling, nullptr);  // ignored signals stay ignored
  });
}

// While it lives, the signals wait.
class SignalsHeld {
 public:
  SignalsHeld() {
    const sigset_t set = endingSignals();
    ::sigprocmask(SIG_BLOCK, &set, &before_);
  }
  ~SignalsHeld() { ::sigprocmask(SIG_SETMASK, &before_, nullptr); }
  SignalsHeld(const SignalsHeld&) = delete;
  SignalsHeld& operator=(const SignalsHeld&) = delete;

 private:
  sigset_t before_ = {};
};

[[noreturn]] void raiseSystemError() {
  throw std::system_error(errno, std::generic_category());
}

}  // namespace

TemporaryFile::TemporaryFile(const std::string& path) : file_(-1) {
  handleEndingSignals();
  create(std::filesystem::path(path).parent_path());
}

void TemporaryFile::create(const std::string& folder) {
  const std::string start = (folder.empty() ? "" : folder + '/') + ".tavlo-" + std::to_string(::getpid()) + '-';
  const SignalsHeld held;
  for (int attempt = 0; !file_.isOpen(); ++attempt) {
    path_ = start + std::to_string(attempt);
    file_ = FileDescriptor(::open(path_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
    if (!file_.isOpen() && errno != EEXIST) raiseSystemError();
  }
  placeOf(nullptr) = path_.c_str();
  exists_ = true;
}

TemporaryFile::~TemporaryFile() {
  const SignalsHeld held;
  if (!exists_) return;
  ::unlink(path_.c_str());
  forget();
}

void TemporaryFile::replace(const std::string& path) {
  if (!file_.close()) raiseSystemError();
  const SignalsHeld held;
  if (std::rename(path_.c_str(), path.c_str()) != 0) raiseSystemError();
  forget();
}

void TemporaryFile::forget() noexcept {
  placeOf(path_.c_str()) = nullptr;
  exists_ = false;
}

}  // namespace tavlo
