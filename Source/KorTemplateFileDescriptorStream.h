#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "Foundation/TextBuffer.h"
#include "Source/KorTemplateStream.h"

namespace tavlo {

// Writes to an open file, pipe or socket of the system, in large pieces: when 64 KiB have gathered, when it is flushed,
// before a diagnostic and when an execution has ended, whichever way. Interrupted and partial writes go on; a file that
// does not block is waited for.
//
// A write that fails raises `KorTemplateWriteException`. Nothing is written from then on, and every further write or
// flush raises again, so that the failure ends the execution also from within a function.
class KorTemplateFileDescriptorStream final : public KorTemplateStream {
 public:
  static constexpr std::size_t kCapacity = std::size_t{64} * 1024;

  // The descriptor is not owned, and open for as long as the stream is used; `name` is what messages call the file,
  // empty for the descriptor's number. A pipe or socket whose reader has gone away is an error to be raised only where
  // the process ignores SIGPIPE.
  explicit KorTemplateFileDescriptorStream(int descriptor, std::string name = {});
  static Ref<KorTemplateFileDescriptorStream> streamWithDescriptor(int descriptor, const std::string& name = {}) {
    return makeRef<KorTemplateFileDescriptorStream>(descriptor, name);
  }

  // Raises `NSInvalidArgumentException` for an absent text.
  void write(const Text& text) override;
  void flush() override;

  const char* className() const override { return "KorTemplateFileDescriptorStream"; }

  // What has gathered, for the engine to append to; null where write() must be called, which delivers.
  TextBuffer* target() noexcept { return gathered_.size() < kCapacity && errorNumber_ == 0 ? &gathered_ : nullptr; }

 private:
  void deliver(std::string_view text);
  void keep(std::string_view text) noexcept;
  void requireWritable() const;

  int descriptor_;
  std::string name_;
  TextBuffer gathered_;
  int errorNumber_ = 0;  // of the write that failed; 0 for none
};

}  // namespace tavlo
