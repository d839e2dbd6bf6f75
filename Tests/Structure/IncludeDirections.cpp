#include <gtest/gtest.h>

#include <algorithm>
#include <optional>
#include <string>
#include <vector>

#include "Tests/Structure/SourceTree.h"

namespace tavlo::test {

namespace {

// A file may include the files of its own folder and of those to its right.
const std::vector<std::string> kFolders = {"Tool", "Functions", "Source", "Lexwright", "Matchery", "Foundation"};

std::vector<SourceFile> librarySources() {
  return sourceFiles(kFolders, {".h", ".cpp"});
}

std::optional<std::size_t> placeOf(const std::string& folder) {
  const auto found = std::ranges::find(kFolders, folder);
  if (found == kFolders.end()) return {};
  return static_cast<std::size_t>(found - kFolders.begin());
}

// What is wrong with an include line of a file of that folder; empty where nothing is.
std::string faultOf(const std::string& folder, const std::string& include) {
  if (include == "<oniguruma.h>") return folder == "Matchery" ? "" : "only Matchery/ sees Oniguruma";
  if (include.front() != '"') return "";
  const std::string path = include.substr(1, include.size() - 2);
  const std::optional<std::size_t> place = placeOf(path.substr(0, path.find('/')));
  if (!place.has_value() || path.find('/') == std::string::npos) return "an include starts at the root";
  return *place < placeOf(folder) ? "it includes against the direction of the folders" : "";
}

struct IncludeRow {
  const char* what;
  const char* folder;
  const char* include;
  bool isFine;
};

TEST(IncludeDirections, AreJudgedByTheFoldersOfBothFiles) {
  const IncludeRow rows[] = {
      {"the folder's own file", "Source", "\"Source/KorTemplate.h\"", true},
      {"a folder to the right", "Source", "\"Foundation/Value.h\"", true},
      {"a folder to the left", "Lexwright", "\"Source/KorTemplate.h\"", false},
      {"the standard library", "Foundation", "<vector>", true},
      {"Oniguruma where it belongs", "Matchery", "<oniguruma.h>", true},
      {"Oniguruma elsewhere", "Source", "<oniguruma.h>", false},
      {"a path that does not start at the root", "Source", "\"KorTemplate.h\"", false},
      {"a test", "Source", "\"Tests/Templates/CaseFile.h\"", false},
  };
  for (const IncludeRow& row : rows) EXPECT_EQ(faultOf(row.folder, row.include).empty(), row.isFine) << row.what;
}

TEST(IncludeDirections, AreKeptByEveryFile) {
  const std::vector<SourceFile> files = librarySources();
  ASSERT_GT(files.size(), 100U);
  for (const SourceFile& file : files) {
    for (const std::string& include : includesOf(file.text)) {
      EXPECT_EQ(faultOf(file.folder(), include), "") << file.path << " includes " << include;
    }
  }
}

TEST(Headers, HaveAGuard) {
  for (const SourceFile& file : sourceFiles({"tavlo", "Tool", "Functions", "Source", "Lexwright", "Matchery",
                                             "Foundation", "Tests", "Benchmarks", "Fuzzers"},
                                            {".h"})) {
    EXPECT_TRUE(file.text.starts_with("#pragma once\n")) << file.path;
  }
}

TEST(Sources, StayShortEnoughToRead) {
  constexpr std::size_t kMostLines = 800;
  for (const SourceFile& file : sourceFiles(
           {"Tool", "Functions", "Source", "Lexwright", "Matchery", "Foundation", "Tests", "Benchmarks", "Fuzzers"},
           {".h", ".cpp"})) {
    EXPECT_LE(linesOf(file.text).size(), kMostLines) << file.path;
  }
}

}  // namespace

}  // namespace tavlo::test
