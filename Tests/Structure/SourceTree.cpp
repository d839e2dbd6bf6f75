#include "Tests/Structure/SourceTree.h"

#include <algorithm>
#include <fstream>
#include <regex>
#include <sstream>
#include <stdexcept>

namespace tavlo::test {

std::string readFile(const std::filesystem::path& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) throw std::runtime_error("cannot read " + path.string());
  std::stringstream text;
  text << in.rdbuf();
  return text.str();
}

std::vector<SourceFile> sourceFiles(const std::vector<std::string>& folders,
                                    const std::vector<std::string>& extensions) {
  const std::filesystem::path root = TAVLO_SOURCE_DIR;
  std::vector<SourceFile> files;
  const auto add = [&](const std::filesystem::directory_entry& entry) {
    if (!entry.is_regular_file() ||
        std::ranges::find(extensions, entry.path().extension().string()) == extensions.end())
      return;
    files.push_back({entry.path().lexically_relative(root).generic_string(), readFile(entry.path())});
  };
  for (const std::string& folder : folders) {
    if (folder.empty()) {
      for (const auto& entry : std::filesystem::directory_iterator(root)) add(entry);
    } else if (std::filesystem::is_directory(root / folder)) {
      for (const auto& entry : std::filesystem::recursive_directory_iterator(root / folder)) add(entry);
    }
  }
  std::ranges::sort(files, {}, &SourceFile::path);
  return files;
}

std::vector<std::string> linesOf(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  return lines;
}

std::vector<std::string> includesOf(const std::string& text) {
  static const std::regex kInclude(R"(^\s*#\s*include\s+(["<][^">]+[">]).*$)");
  std::vector<std::string> includes;
  for (const std::string& line : linesOf(text)) {
    std::smatch match;
    if (std::regex_match(line, match, kInclude)) includes.push_back(match[1]);
  }
  return includes;
}

}  // namespace tavlo::test
