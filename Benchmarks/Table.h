#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace tavlo::benchmarks {

// Rows of cells.
using Table = std::vector<std::vector<std::int64_t>>;

inline constexpr std::string_view kTableTemplate =
    "<table>\n"
    "<? foreach ($row in $rows) ?><tr><? foreach ($cell in $row) ?><td><?= $cell ?></td><? endforeach ?></tr>\n"
    "<? endforeach ?></table>\n";

// Made-up numbers of one to seven digits, some of them negative; the same at every call.
Table makeTable(std::size_t rows, std::size_t columns);

// The data that the template reads.
std::string tableAsJSON(const Table& table);

// What the template makes, written without it.
std::string renderTable(const Table& table);

}  // namespace tavlo::benchmarks
