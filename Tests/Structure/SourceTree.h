#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace tavlo::test {

// A file of the tree: its path from the root, with "/" between the parts, and its text.
struct SourceFile {
  std::string path;
  std::string text;

  std::string folder() const { return path.substr(0, path.find('/')); }
  bool isHeader() const { return path.ends_with(".h"); }
};

std::string readFile(const std::filesystem::path& path);

// All files below the folders of the root that have one of the extensions, in order of their paths; of "" the files in
// the root itself. A folder that is not there holds none.
std::vector<SourceFile> sourceFiles(const std::vector<std::string>& folders,
                                    const std::vector<std::string>& extensions);

// The lines of a text, without their line feeds.
std::vector<std::string> linesOf(const std::string& text);

// What the include lines of a text name, with their quotes or angle brackets.
std::vector<std::string> includesOf(const std::string& text);

}  // namespace tavlo::test
