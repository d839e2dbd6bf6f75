#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace tavlo {

// A fresh folder for one test, removed with all it holds at its end.
class WorkFolder {
 public:
  WorkFolder();
  ~WorkFolder();
  WorkFolder(const WorkFolder&) = delete;
  WorkFolder& operator=(const WorkFolder&) = delete;

  std::string path(const std::string& name) const { return (folder_ / name).string(); }
  void write(const std::string& name, const std::string& content) const;
  std::string read(const std::string& name) const;
  // In alphabetical order.
  std::vector<std::string> names() const;

 private:
  std::filesystem::path folder_;
};

}  // namespace tavlo
