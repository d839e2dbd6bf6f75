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

// Where the links that start at `path` lead to, whether or not there is a file.
std::string behindLinks(const std::string& name) {
  constexpr int kMostLinks = 40;
  std::filesystem::path path = name;
  for (int links = 0; std::filesystem::is_symlink(std::filesystem::symlink_status(path)); ++links) {
    if (links == kMostLinks) raiseUnwritable(name, ELOOP);
    path = path.parent_path() / std::filesystem::read_symlink(path);
  }
  return path;
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
  if (exists && !S_ISREG(status.st_mode)) {
    direct_.emplace(::open(name_.c_str(), O_WRONLY | O_CLOEXEC));
    if (!direct_->isOpen()) raiseUnwritable(name_, errno);
    return;
  }
  if (exists && ::faccessat(AT_FDCWD, name_.c_str(), W_OK, AT_EACCESS) != 0) raiseUnwritable(name_, errno);
  try {
    path_ = behindLinks(name_);
    replacement_.emplace(path_);
    if (exists) copyOwnerAndMode(status, replacement_->descriptor());
  } catch (const std::system_error& error) {
    raiseUnwritable(name_, error.code().value());
  }
}

int OutputFile::descriptor() const noexcept {
  if (replacement_.has_value()) return replacement_->descriptor();
  return direct_.has_value() ? direct_->number() : STDOUT_FILENO;
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
