#include "Tool/FileDescriptor.h"

#include <poll.h>
#include <unistd.h>

#include <cerrno>

namespace tavlo {

FileDescriptor::~FileDescriptor() {
  close();
}

bool FileDescriptor::close() noexcept {
  const int number = std::exchange(number_, kNone);
  return number == kNone || ::close(number) == 0 || errno == EINTR;
}

bool writeAll(int descriptor, std::string_view text) noexcept {
  while (!text.empty()) {
    const ssize_t written = ::write(descriptor, text.data(), text.size());
    if (written > 0) {
      text.remove_prefix(static_cast<std::size_t>(written));
    } else if (written == 0) {
      errno = ENOSPC;  // a device that takes nothing and does not say why
      return false;
    } else if (errno == EAGAIN) {
      pollfd whenWritable{descriptor, POLLOUT, 0};  // somebody who shares the file has made it non-blocking
      ::poll(&whenWritable, 1, -1);
    } else if (errno != EINTR) {
      return false;
    }
  }
  return true;
}

}  // namespace tavlo
