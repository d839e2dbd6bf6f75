#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace tavlo::test {

// A fenced block of a document: the word behind its opening fence, and its lines, each with its line feed.
struct FencedBlock {
  std::string kind;
  std::string text;
  std::size_t line = 0;  // of the opening fence, from 1
};

// All fenced blocks of a document, in order.
std::vector<FencedBlock> fencedBlocks(const std::string& document);

// A row of a table of two columns, each a piece of code.
struct CodeRow {
  std::string left;
  std::string right;
  std::size_t line = 0;  // from 1
};

// The rows of all tables of a document whose head is exactly `head`. What stands behind the second piece of code in a
// row is left out.
std::vector<CodeRow> codeRows(const std::string& document, const std::string& head);

}  // namespace tavlo::test
