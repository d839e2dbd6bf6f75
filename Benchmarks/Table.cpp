#include "Benchmarks/Table.h"

#include <charconv>
#include <iterator>

namespace tavlo::benchmarks {

namespace {

void append(std::string& out, std::int64_t number) {
  char digits[20];
  out.append(digits, std::to_chars(std::begin(digits), std::end(digits), number).ptr);
}

std::int64_t numberAt(std::size_t index) {
  constexpr std::int64_t kMagnitudes[] = {10, 100, 1000, 10'000, 1'000'000, 10'000'000};
  const auto scattered = static_cast<std::int64_t>(index * 2'654'435'761 % 9'999'991);
  const std::int64_t number = scattered % kMagnitudes[index % std::size(kMagnitudes)];
  return index % 7 == 3 ? -number : number;
}

}  // namespace

Table makeTable(std::size_t rows, std::size_t columns) {
  Table table(rows);
  std::size_t index = 0;
  for (std::vector<std::int64_t>& row : table) {
    while (row.size() < columns) row.push_back(numberAt(index++));
  }
  return table;
}

std::string tableAsJSON(const Table& table) {
  std::string out = "{\"rows\": [";
  const char* rowSeparator = "";
  for (const std::vector<std::int64_t>& row : table) {
    out += rowSeparator;
    rowSeparator = ",\n";
    const char* separator = "[";
    for (const std::int64_t cell : row) {
      out += separator;
      separator = ", ";
      append(out, cell);
    }
    out += "]";
  }
  return out + "]}";
}

std::string renderTable(const Table& table) {
  std::string out;
  out.reserve(table.size() * (table.empty() ? 0 : table.front().size()) * 20 + 1024);
  out += "<table>\n";
  for (const std::vector<std::int64_t>& row : table) {
    out += "<tr>";
    for (const std::int64_t cell : row) {
      out += "<td>";
      append(out, cell);
      out += "</td>";
    }
    out += "</tr>\n";
  }
  out += "</table>\n";
  return out;
}

}  // namespace tavlo::benchmarks
