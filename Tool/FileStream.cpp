#include "Tool/FileStream.h"

#include <cerrno>
#include <utility>

#include "Foundation/NSException.h"
#include "Tool/Failure.h"
#include "Tool/FileDescriptor.h"

namespace tavlo {

void FileStream::write(const Text& text) {
  if (text.isAbsent()) NSException::raise(NSInvalidArgumentException, "An absent text cannot be written");
  if (gathered_.size() + text.view().size() > kCapacity) flush();
  if (text.view().size() >= kCapacity) return deliver(text.view());
  if (gathered_.empty()) gathered_.reserve(kCapacity);
  gathered_ += text.view();
}

void FileStream::flush() {
  deliver(gathered_);
  gathered_.clear();
}

void FileStream::deliver(std::string_view text) {
  if (hasFailed_ || writeAll(descriptor_, text)) return;
  const int error = errno;
  hasFailed_ = true;
  if (error == EPIPE) throw ReaderWentAway();
  throw Failure::ofOutput(file_, "The text cannot be written: " + textOfSystemError(error));
}

}  // namespace tavlo
