#include "Source/KorTemplateFileDescriptorStream.h"

#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

#include "Foundation/NSException.h"
#include "Source/KorTemplateWriteException.h"

namespace tavlo {

namespace {

// Writes the whole text, however many steps it takes. The system's number for what went wrong; 0 where nothing did.
int writeWhole(int descriptor, std::string_view text) noexcept {
  while (!text.empty()) {
    const ssize_t written = ::write(descriptor, text.data(), text.size());
    if (written >= 0) {
      text.remove_prefix(static_cast<std::size_t>(written));
    } else if (errno == EAGAIN) {
      pollfd whenWritable{descriptor, POLLOUT, 0};
      ::poll(&whenWritable, 1, -1);
    } else if (errno != EINTR) {
      return errno;
    }
  }
  return 0;
}

}  // namespace

KorTemplateFileDescriptorStream::KorTemplateFileDescriptorStream(int descriptor, std::string name)
    : descriptor_(descriptor), name_(std::move(name)) {
  if (name_.empty()) name_ = "file descriptor " + std::to_string(descriptor);
}

void KorTemplateFileDescriptorStream::requireWritable() const {
  if (errorNumber_ != 0) throw KorTemplateWriteException(name_, errorNumber_);
}

void KorTemplateFileDescriptorStream::write(const Text& text) {
  if (text.isAbsent()) NSException::raise(NSInvalidArgumentException, "An absent text cannot be written");
  requireWritable();
  if (gathered_.size() + text.view().size() > kCapacity) flush();
  if (text.view().size() >= kCapacity) return deliver(text.view());
  if (gathered_.empty()) gathered_.reserve(kCapacity);
  gathered_ += text.view();
}

void KorTemplateFileDescriptorStream::flush() {
  requireWritable();
  deliver(gathered_);
  gathered_.clear();
}

void KorTemplateFileDescriptorStream::deliver(std::string_view text) {
  errorNumber_ = writeWhole(descriptor_, text);
  requireWritable();
}

}  // namespace tavlo
