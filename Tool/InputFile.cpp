#include "Tool/InputFile.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>

#include "Tool/Failure.h"
#include "Tool/FileDescriptor.h"

namespace tavlo {

namespace {

[[noreturn]] void raiseUnreadable(const std::string& path, int error) {
  const char* const what = path == kStandardStream ? "Standard input cannot be read: " : "The file cannot be read: ";
  throw Failure::ofInput(path, what + textOfSystemError(error));
}

[[noreturn]] void raiseTooLong(const std::string& path, std::size_t most) {
  const char* const what = path == kStandardStream ? "Standard input" : "The file";
  throw Failure::ofInput(path, what + (" is longer than " + std::to_string(most)) + " bytes");
}

// How much there is to read, where the system knows.
std::size_t sizeOf(int descriptor) {
  struct stat status = {};
  return ::fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode) ? static_cast<std::size_t>(status.st_size) : 0;
}

}  // namespace

std::string readFile(const std::string& path, std::size_t most) {
  constexpr std::size_t kStep = std::size_t{64} * 1024;
  const FileDescriptor file(path == kStandardStream ? ::dup(STDIN_FILENO) : ::open(path.c_str(), O_RDONLY | O_CLOEXEC));
  if (!file.isOpen()) raiseUnreadable(path, errno);
  std::string content(std::min(sizeOf(file.number()), most) + 1, '\0');  // one more: to see the end without growing
  std::size_t size = 0;
  while (true) {
    if (size > most) raiseTooLong(path, most);
    if (size == content.size()) content.resize(std::min(size + std::max(kStep, size / 2), most + 1));
    const ssize_t count = ::read(file.number(), content.data() + size, content.size() - size);
    if (count == 0) break;
    if (count > 0) {
      size += static_cast<std::size_t>(count);
    } else if (errno == EAGAIN) {
      pollfd whenReadable{file.number(), POLLIN, 0};  // somebody who shares the file has made it non-blocking
      ::poll(&whenReadable, 1, -1);
    } else if (errno != EINTR) {
      raiseUnreadable(path, errno);
    }
  }
  content.resize(size);
  return content;
}

}  // namespace tavlo
