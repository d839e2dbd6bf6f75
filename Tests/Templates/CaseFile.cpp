#include "Tests/Templates/CaseFile.h"

#include <algorithm>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include "Foundation/Utf8.h"

namespace tavlo::test {

namespace {

// "\n", "\r", "\t", "\\", "\0" and "\u{HEX}"; line feeds of the file do not count.
std::string withoutEscapes(const std::string& text) {
  std::string result;
  for (std::size_t at = 0; at < text.size(); ++at) {
    if (text[at] == '\n') continue;
    if (text[at] != '\\') {
      result += text[at];
      continue;
    }
    const char letter = text.at(++at);
    static const std::map<char, char> kLetters = {{'n', '\n'}, {'r', '\r'}, {'t', '\t'}, {'\\', '\\'}, {'0', '\0'}};
    if (const auto known = kLetters.find(letter); known != kLetters.end()) {
      result += known->second;
    } else if (letter == 'u') {
      const std::size_t end = text.find('}', at);
      appendCodePoint(result, static_cast<char32_t>(std::stoul(text.substr(at + 2, end - at - 2), nullptr, 16)));
      at = end;
    } else {
      throw std::runtime_error("unknown escape in a case file");
    }
  }
  return result;
}

}  // namespace

std::optional<std::string> CaseFile::section(const std::string& name) const {
  if (const auto found = sections.find(name); found != sections.end()) return found->second;
  const auto escaped = sections.find(name + "-escaped");
  if (escaped == sections.end()) return {};
  return withoutEscapes(escaped->second);
}

CaseFile readCaseFile(const std::filesystem::path& path, const std::string& name) {
  std::ifstream in(path, std::ios::binary);
  if (!in) throw std::runtime_error("cannot read " + path.string());
  CaseFile result{name, {}};
  std::string* section = nullptr;
  bool isFirstLine = true;
  for (std::string line; std::getline(in, line);) {
    if (line.starts_with("--- ")) {
      section = &result.sections[line.substr(4)];
      isFirstLine = true;
    } else if (section == nullptr) {
      throw std::runtime_error(path.string() + ": a line stands before the first section");
    } else {
      *section += isFirstLine ? line : '\n' + line;
      isFirstLine = false;
    }
  }
  return result;
}

std::vector<std::pair<std::filesystem::path, std::string>> findCaseFiles(const std::filesystem::path& folder) {
  std::vector<std::pair<std::filesystem::path, std::string>> files;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(folder)) {
    if (entry.path().extension() != ".case") continue;
    files.emplace_back(entry.path(), entry.path().lexically_relative(folder).replace_extension().string());
  }
  std::ranges::sort(files);
  return files;
}

}  // namespace tavlo::test
