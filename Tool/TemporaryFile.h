#pragma once

#include <cstddef>
#include <string>

#include "Tool/FileDescriptor.h"

namespace tavlo {

// A new file beside the one it is to replace. It is removed at the end of this object, also when a signal ends the
// program, unless it has taken the other's place by then.
class TemporaryFile {
 public:
  // That exist at a time.
  static constexpr std::size_t kMost = 2;

  // A file in the folder of `path` that only its owner may read and write. Throws `std::system_error` when there can be
  // none.
  explicit TemporaryFile(const std::string& path);
  ~TemporaryFile();
  TemporaryFile(const TemporaryFile&) = delete;
  TemporaryFile& operator=(const TemporaryFile&) = delete;

  int descriptor() const noexcept { return file_.number(); }
  // Puts the file where `path` is, in one step. Throws `std::system_error` when that fails.
  void replace(const std::string& path);

 private:
  void create(const std::string& folder);
  void forget() noexcept;

  std::string path_;
  FileDescriptor file_;
  bool exists_ = false;
};

}  // namespace tavlo
