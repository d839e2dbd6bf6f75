#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <regex>
#include <set>
#include <string>
#include <vector>

#include "Tests/Structure/SourceTree.h"
#include "Tool/JSONReader.h"

namespace tavlo::test {

namespace {

// What is wrong with the text of a case file; empty where nothing is.
std::string faultOfCase(const std::string& text) {
  static const std::set<std::string> kSections = {
      "data", "template", "template-escaped", "output", "output-escaped", "diagnostics", "error", "line", "at"};
  std::map<std::string, std::string> sections;
  std::string* section = nullptr;
  for (const std::string& line : linesOf(text)) {
    if (line.starts_with("--- ")) {
      if (!kSections.contains(line.substr(4))) return "no section is named: " + line;
      const auto [place, isNew] = sections.emplace(line.substr(4), "");
      if (!isNew) return "two sections are named: " + line;
      section = &place->second;
    } else if (section == nullptr) {
      return "a line stands before the first section";
    } else {
      *section += line + "\n";
    }
  }
  const auto has = [&](const char* name) { return sections.contains(name); };
  if (has("template") == has("template-escaped")) return "it takes one of template and template-escaped";
  if (has("output") && has("output-escaped")) return "it takes one of output and output-escaped";
  if (has("line") && !has("error")) return "a line without an error";
  if (has("error") && !std::regex_match(sections["error"], std::regex(R"(\w+: [^]+)")))
    return "an error is NAME: REASON";
  if (has("at") && !std::regex_match(sections["at"], std::regex(R"(\d+:\d+\n)"))) return "a place is LINE:COLUMN";
  if (has("line") && !std::regex_match(sections["line"], std::regex(R"(-?\d+\n)"))) return "a line is a number";
  if (!has("data")) return "";
  try {
    (void)readJSONObject(sections["data"]);
  } catch (const JSONError& error) {
    return std::string("the data is no JSON object: ") + error.what();
  }
  return "";
}

struct CaseRow {
  const char* what;
  const char* text;
  bool isWellFormed;
};

TEST(CaseFiles, AreJudgedByTheirSections) {
  const CaseRow rows[] = {
      {"a template and its output", "--- template\nx\n--- output\nx\n", true},
      {"data and an error", "--- data\n{\"a\": 1}\n--- template\nx\n--- error\nName: reason\n", true},
      {"nothing", "", false},
      {"text before the first section", "x\n--- template\nx\n", false},
      {"a section of no known name", "--- template\nx\n--- otput\nx\n", false},
      {"a section twice", "--- template\nx\n--- template\nx\n", false},
      {"a template written in two ways", "--- template\nx\n--- template-escaped\nx\n", false},
      {"data that is no object", "--- data\n[]\n--- template\nx\n", false},
      {"a line without an error", "--- template\nx\n--- line\n1\n", false},
      {"an error without a reason", "--- template\nx\n--- error\nName\n", false},
  };
  for (const CaseRow& row : rows) EXPECT_EQ(faultOfCase(row.text).empty(), row.isWellFormed) << row.what;
}

TEST(CaseFiles, AreWellFormed) {
  const std::vector<SourceFile> files = sourceFiles({"Tests/Templates"}, {".case"});
  ASSERT_GT(files.size(), 500U);
  for (const SourceFile& file : files) EXPECT_EQ(faultOfCase(file.text), "") << file.path;
}

}  // namespace

}  // namespace tavlo::test
