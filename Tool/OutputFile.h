#pragma once

#include <sys/stat.h>

#include <optional>
#include <string>

#include "Tool/FileDescriptor.h"
#include "Tool/TemporaryFile.h"

namespace tavlo {

// Where the rendered text goes: standard output, or a file. A regular file is replaced as a whole and only by keep(),
// through links and with its mode. Anything else is written to directly: a device, a pipe, and a file that is open, as
// standard output, as standard error, or by its number in "/dev/fd".
class OutputFile {
 public:
  // Absent or "-" is standard output. Throws `Failure` when the file cannot be written to.
  explicit OutputFile(const std::optional<std::string>& path);

  int descriptor() const noexcept;
  // What failures call the file.
  const std::string& name() const noexcept { return name_; }

  // Whether both replace one regular file, so that only one of them would be there in the end.
  bool replacesSameFileAs(const OutputFile& other) const;

  // The text is complete. Throws `Failure` when it cannot be kept.
  void keep();

 private:
  // `old` is the file that is there; null where there is none.
  void prepareReplacement(const std::string& path, const struct stat* old);

  std::string name_;
  std::string path_;  // of the regular file, behind all links
  std::optional<FileDescriptor> direct_;
  std::optional<TemporaryFile> replacement_;
};

}  // namespace tavlo
