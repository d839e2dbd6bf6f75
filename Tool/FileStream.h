#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "Source/KorTemplateStream.h"

namespace tavlo {

// Thrown when the reader of what is written has gone away. Like `Failure` it is no `std::exception`.
struct ReaderWentAway {};

// Writes to an open file, in large pieces. Throws `Failure` when that fails, and nothing is written from then on.
class FileStream final : public KorTemplateStream {
 public:
  // The descriptor is not owned; `file` is what failures call the file.
  FileStream(int descriptor, const std::string& file) : descriptor_(descriptor), file_(file) {}
  static Ref<FileStream> fileStream(int descriptor, const std::string& file) {
    return makeRef<FileStream>(descriptor, file);
  }

  // Raises `NSInvalidArgumentException` for an absent text.
  void write(const Text& text) override;
  void flush() override;

  const char* className() const override { return "FileStream"; }

 private:
  static constexpr std::size_t kCapacity = std::size_t{64} * 1024;

  void deliver(std::string_view text);

  int descriptor_;
  std::string file_;
  std::string gathered_;
  bool hasFailed_ = false;
};

}  // namespace tavlo
