#include "Source/KorTemplateFileDescriptorStream.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <new>
#include <utility>

#include "Foundation/NSException.h"
#include "Foundation/WorkMeter.h"
#include "Source/KorTemplateWriteException.h"
#include "Source/NodeKind.h"

namespace tavlo {

namespace {

// Writes the whole text, however many steps it takes, and takes off the text what is written. The system's number for
// what went wrong; 0 where nothing did. While it waits for a reader it looks at the clock, and raises where the
// execution's time is over. Another limit does not end the waiting: what was written before it stays written.
int writeWhole(int descriptor, std::string_view& text) {
  constexpr int kMillisecondsBetweenLooks = 50;
  while (!text.empty()) {
    const ssize_t written = ::write(descriptor, text.data(), text.size());
    if (written > 0) {
      text.remove_prefix(static_cast<std::size_t>(written));
    } else if (written == 0) {
      return ENOSPC;  // a device that takes nothing and does not say why
    } else if (errno == EAGAIN) {
      if (WorkMeter* const meter = WorkMeter::ofThread()) meter->lookAtTime();
      pollfd whenWritable{descriptor, POLLOUT, 0};
      ::poll(&whenWritable, 1, kMillisecondsBetweenLooks);
    } else if (errno != EINTR) {
      return errno;
    }
  }
  return 0;
}

}  // namespace

KorTemplateFileDescriptorStream::KorTemplateFileDescriptorStream(int descriptor, std::string name)
    : KorTemplateStream(kFileDescriptorStreamKind), descriptor_(descriptor), name_(std::move(name)) {
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
  gathered_.reserve(kCapacity);
  gathered_.append(text.view());
}

void KorTemplateFileDescriptorStream::flush() {
  requireWritable();
  deliver(gathered_.view());
  gathered_.clear();
  if (gathered_.capacity() > 2 * kCapacity) gathered_.release();  // one text was much longer
}

// The text is the gathered one, or none is gathered: what is not written when a limit ends the waiting is what is
// gathered from there on.
void KorTemplateFileDescriptorStream::deliver(std::string_view text) {
  try {
    errorNumber_ = writeWhole(descriptor_, text);
  } catch (...) {
    keep(text);
    throw;
  }
  requireWritable();
}

// Where there is no memory for a text that was not gathered, it is lost: what ended the waiting says more than that.
void KorTemplateFileDescriptorStream::keep(std::string_view text) noexcept {
  gathered_.dropFirst(gathered_.size() - std::min(gathered_.size(), text.size()));
  if (gathered_.size() > 0) return;
  try {
    gathered_.append(text);
  } catch (const std::bad_alloc&) {
    gathered_.clear();
  }
}

}  // namespace tavlo
