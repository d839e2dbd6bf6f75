#include "Tool/OutputFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <system_error>

#include "Tool/Failure.h"
#include "Tool/InputFile.h"

namespace tavlo {

namespace {

[[noreturn]] void raiseUnwritable(const std::string& name, int error) {
  throw Failure::ofOutput(name, "The file cannot be written: " + textOfSystemError(error));
}

// Where a path leads to.
struct Destination {
  std::filesystem::path path;     // behind all links, whether or not there is a file
  bool isOpenFile = false;        // a process's open file, by its number: the path ends there
  std::optional<int> descriptor;  // of this process
};

// The folders of open files are "/proc/ID/fd" and "/proc/ID/task/ID/fd"; "/dev/fd" leads there.
bool holdsOpenFiles(const std::filesystem::path& folder) {
  return folder.filename() == "fd" && folder.string().starts_with("/proc/");
}

Destination destinationOf(const std::string& name) {
  constexpr int kMostLinks = 40;
  std::filesystem::path path = name;
  for (int links = 0; std::filesystem::is_symlink(std::filesystem::symlink_status(path)); ++links) {
    if (links == kMostLinks) raiseUnwritable(name, ELOOP);
    const std::filesystem::path folder = std::filesystem::canonical(path.has_parent_path() ? path.parent_path() : ".");
    if (holdsOpenFiles(folder)) {
      const bool isOurs = folder.string().starts_with("/proc/" + std::to_string(::getpid()) + '/');
      return {path, true, isOurs ? std::optional(std::stoi(path.filename())) : std::nullopt};
    }
    path = path.parent_path() / std::filesystem::read_symlink(path);
  }
  return {path, false, {}};
}

// Standard output or standard error where that is this very file; absent otherwise.
std::optional<int> standardStreamAt(const struct stat& file) {
  for (const int number : {STDOUT_FILENO, STDERR_FILENO}) {
    struct stat stream = {};
    if (::fstat(number, &stream) == 0 && stream.st_dev == file.st_dev && stream.st_ino == file.st_ino) return number;
  }
  return {};
}

mode_t modeOfNewFiles() {
  constexpr mode_t kReadAndWrite = 0666;
  const mode_t mask = ::umask(0);  // it cannot be read without being set
  ::umask(mask);
  return kReadAndWrite & ~mask;
}

// Gives the new file the owner and the mode of the one it replaces. A file of somebody else's keeps no more than the
// permissions: its set-user-ID must not pass to another owner.
void copyOwnerAndMode(const struct stat& from, int descriptor) {
  constexpr mode_t kPermissions = 0777;
  constexpr mode_t kAll = 07777;
  const bool hasOwner = ::fchown(descriptor, from.st_uid, from.st_gid) == 0;
  if (::fchmod(descriptor, from.st_mode & (hasOwner ? kAll : kPermissions)) != 0) {
    throw std::system_error(errno, std::generic_category());
  }
}

}  // namespace

OutputFile::OutputFile(const std::optional<std::string>& path) : name_(path.value_or(kStandardStream)) {
  if (name_ == kStandardStream) return;
  struct stat status = {};
  const bool exists = ::stat(name_.c_str(), &status) == 0;
  if (!exists && errno != ENOENT) raiseUnwritable(name_, errno);
  try {
    const Destination destination = destinationOf(name_);
    std::optional<int> open = destination.descriptor;
    if (exists && S_ISREG(status.st_mode) && !open.has_value()) open = standardStreamAt(status);
    if (open.has_value()) {
      direct_.emplace(::fcntl(*open, F_DUPFD_CLOEXEC, 0));
    } else if (exists && (!S_ISREG(status.st_mode) || destination.isOpenFile)) {
      direct_.emplace(::open(name_.c_str(), O_WRONLY | O_APPEND | O_CLOEXEC));
    } else {
      prepareReplacement(destination.path, exists ? &status : nullptr);
    }
  } catch (const std::system_error& error) {
    raiseUnwritable(name_, error.code().value());
  }
  if (direct_.has_value() && !direct_->isOpen()) raiseUnwritable(name_, errno);
}

void OutputFile::prepareReplacement(const std::string& path, const struct stat* old) {
  if (old != nullptr && ::faccessat(AT_FDCWD, path.c_str(), W_OK, AT_EACCESS) != 0) raiseUnwritable(name_, errno);
  path_ = path;
  replacement_.emplace(path_);
  if (old != nullptr) {
    copyOwnerAndMode(*old, replacement_->descriptor());
  } else {
    (void)::fchmod(replacement_->descriptor(), modeOfNewFiles());  // a file system without modes keeps its own
  }
}

int OutputFile::descriptor() const noexcept {
  if (replacement_.has_value()) return replacement_->descriptor();
  return direct_.has_value() ? direct_->number() : STDOUT_FILENO;
}

bool OutputFile::replacesSameFileAs(const OutputFile& other) const {
  if (!replacement_.has_value() || !other.replacement_.has_value()) return false;
  std::error_code error;  // with an empty path: nobody knows the file then
  const auto whole = [&error](const std::filesystem::path& path) {
    return std::filesystem::weakly_canonical(std::filesystem::absolute(path, error), error);
  };
  const std::filesystem::path path = whole(path_);
  return !path.empty() && path == whole(other.path_);
}

void OutputFile::keep() {
  if (direct_.has_value() && !direct_->close()) raiseUnwritable(name_, errno);
  if (!replacement_.has_value()) return;
  try {
    replacement_->replace(path_);
  } catch (const std::system_error& error) {
    raiseUnwritable(name_, error.code().value());
  }
}

}  // namespace tavlo
