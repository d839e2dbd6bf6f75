#include "Tests/Tool/WorkFolder.h"

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace tavlo {

WorkFolder::WorkFolder() {
  std::string pattern = (std::filesystem::temp_directory_path() / "tavlo-test-XXXXXX").string();
  if (::mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("no folder for the test: " + pattern);
  folder_ = pattern;
}

WorkFolder::~WorkFolder() {
  std::error_code ignored;
  std::filesystem::remove_all(folder_, ignored);
}

void WorkFolder::write(const std::string& name, const std::string& content) const {
  std::ofstream(folder_ / name, std::ios::binary) << content;
}

std::string WorkFolder::read(const std::string& name) const {
  std::stringstream content;
  content << std::ifstream(folder_ / name, std::ios::binary).rdbuf();
  return content.str();
}

std::vector<std::string> WorkFolder::names() const {
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(folder_)) names.push_back(entry.path().filename());
  std::sort(names.begin(), names.end());
  return names;
}

}  // namespace tavlo
