#pragma once

#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace tavlo::test {

// One template test: the sections of its file, by name.
struct CaseFile {
  std::string name;  // "folder/behaviour"
  std::map<std::string, std::string> sections;

  // The section's text; absent where the file has none of that name. One named "NAME-escaped" stands in for "NAME".
  std::optional<std::string> section(const std::string& name) const;
};

// Reads a case file. Throws std::runtime_error for what is none.
CaseFile readCaseFile(const std::filesystem::path& path, const std::string& name);

// All case files below the folder, in order of their names.
std::vector<std::pair<std::filesystem::path, std::string>> findCaseFiles(const std::filesystem::path& folder);

}  // namespace tavlo::test
