#include "Tests/Structure/Markdown.h"

#include "Tests/Structure/SourceTree.h"

namespace tavlo::test {

namespace {

// The text between the next two backticks from `at` on, which moves behind them; "\|" stands for "|" inside a table.
std::string nextCode(const std::string& row, std::size_t& at) {
  const std::size_t open = row.find('`', at);
  const std::size_t close = row.find('`', open + 1);
  if (open == std::string::npos || close == std::string::npos) return "";
  at = close + 1;
  std::string code;
  for (std::size_t index = open + 1; index < close; ++index) {
    if (row.compare(index, 2, "\\|") == 0) ++index;
    code += row[index];
  }
  return code;
}

}  // namespace

std::vector<FencedBlock> fencedBlocks(const std::string& document) {
  std::vector<FencedBlock> blocks;
  bool isInside = false;
  std::size_t number = 0;
  for (const std::string& line : linesOf(document)) {
    ++number;
    if (line.starts_with("```")) {
      isInside = !isInside;
      if (isInside) blocks.push_back({line.substr(3), "", number});
    } else if (isInside) {
      blocks.back().text += line + '\n';
    }
  }
  return blocks;
}

std::vector<CodeRow> codeRows(const std::string& document, const std::string& head) {
  std::vector<CodeRow> rows;
  bool isInside = false;
  std::size_t number = 0;
  for (const std::string& line : linesOf(document)) {
    ++number;
    if (!line.starts_with('|')) {
      isInside = false;
    } else if (line == head) {
      isInside = true;
    } else if (isInside && !line.starts_with("|--")) {
      std::size_t at = 0;
      const std::string left = nextCode(line, at);
      rows.push_back({left, nextCode(line, at), number});
    }
  }
  return rows;
}

}  // namespace tavlo::test
