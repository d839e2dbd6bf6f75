#pragma once

#include <string_view>
#include <utility>

namespace tavlo {

// An open file of the system, closed at its end.
class FileDescriptor {
 public:
  explicit FileDescriptor(int number) noexcept : number_(number) {}
  FileDescriptor(FileDescriptor&& other) noexcept : number_(std::exchange(other.number_, kNone)) {}
  FileDescriptor& operator=(FileDescriptor&& other) noexcept {
    std::swap(number_, other.number_);
    return *this;
  }
  ~FileDescriptor();

  // False when opening failed; errno says why.
  bool isOpen() const noexcept { return number_ != kNone; }
  int number() const noexcept { return number_; }
  // Whether what was written has arrived, as far as closing can tell; errno says why not.
  bool close() noexcept;

 private:
  static constexpr int kNone = -1;

  int number_;
};

// Writes the whole text, however many steps it takes. False when that fails; errno says why.
bool writeAll(int descriptor, std::string_view text) noexcept;

}  // namespace tavlo
