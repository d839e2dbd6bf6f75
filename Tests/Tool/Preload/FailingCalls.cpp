// A library that the tests preload into the program: one of its calls of the system fails. TAVLO_FAILING_CALL says
// which one and how, as NAME:COUNT:ERROR, with the system's number for the error; 0 stands for a call that does less
// than it was asked for. The file that TAVLO_FAILED_CALL names is made when that has happened.
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

// What the variable asks for.
struct Asked {
  Asked() {
    const char* const text = std::getenv("TAVLO_FAILING_CALL");
    if (text == nullptr || std::sscanf(text, "%15[a-z]:%d:%d", name, &count, &error) != 3) count = 0;
  }

  char name[16] = {};
  int count = 0;  // the call of that name that fails, from 1; 0 for none
  int error = 0;
};

// Whether this call of that name is the one.
bool isAsked(const char* name) {
  static Asked asked;
  if (asked.count == 0 || std::strcmp(asked.name, name) != 0 || --asked.count > 0) return false;
  if (const char* const path = std::getenv("TAVLO_FAILED_CALL")) {
    ::syscall(SYS_close, static_cast<int>(::syscall(SYS_openat, AT_FDCWD, path, O_WRONLY | O_CREAT | O_CLOEXEC, 0600)));
  }
  errno = asked.error;
  return true;
}

template <class Function>
Function* next(Function& /*same*/, const char* name) {
  return reinterpret_cast<Function*>(::dlsym(RTLD_NEXT, name));
}

template <class Function, class... Arguments>
auto callUnlessAsked(Function& function, const char* name, Arguments... arguments) {
  using Result = decltype(function(arguments...));
  return isAsked(name) ? static_cast<Result>(-1) : next(function, name)(arguments...);
}

// Half of what was asked for; nothing of a single byte.
template <class Function, class Bytes>
ssize_t transfer(Function& function, const char* name, int descriptor, Bytes bytes, std::size_t size) {
  const auto real = next(function, name);
  if (!isAsked(name)) return real(descriptor, bytes, size);
  return errno != 0 ? -1 : real(descriptor, bytes, std::max<std::size_t>(size / 2, 1));
}

}  // namespace

#pragma GCC visibility push(default)
extern "C" {

int open(const char* path, int flags, ...) {
  std::va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : 0;
  va_end(arguments);
  return callUnlessAsked(open, "open", path, flags, mode);
}
int dup(int descriptor) noexcept {
  return callUnlessAsked(dup, "dup", descriptor);
}
// The descriptor is gone all the same, as it is where the system fails.
int close(int descriptor) {
  const int answer = next(close, "close")(descriptor);
  return isAsked("close") ? -1 : answer;
}
ssize_t read(int descriptor, void* bytes, std::size_t size) {
  return transfer(read, "read", descriptor, bytes, size);
}
ssize_t write(int descriptor, const void* bytes, std::size_t size) {
  return transfer(write, "write", descriptor, bytes, size);
}
int rename(const char* from, const char* to) noexcept {
  return callUnlessAsked(rename, "rename", from, to);
}
int stat(const char* path, struct stat* status) noexcept {
  return callUnlessAsked(stat, "stat", path, status);
}
int fstat(int descriptor, struct stat* status) noexcept {
  return callUnlessAsked(fstat, "fstat", descriptor, status);
}
int fchmod(int descriptor, mode_t mode) noexcept {
  return callUnlessAsked(fchmod, "fchmod", descriptor, mode);
}
int fchown(int descriptor, uid_t user, gid_t group) noexcept {
  return callUnlessAsked(fchown, "fchown", descriptor, user, group);
}
int faccessat(int folder, const char* path, int mode, int flags) noexcept {
  return callUnlessAsked(faccessat, "faccessat", folder, path, mode, flags);
}

}  // extern "C"
#pragma GCC visibility pop
