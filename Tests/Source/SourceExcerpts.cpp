#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <string_view>

#include "Source/PrintableText.h"
#include "Source/SourceExcerpt.h"
#include "Source/TextPlace.h"

namespace tavlo::test {

namespace {

constexpr const char* kReplacement = "\xEF\xBF\xBD";

std::string repeated(std::string_view text, std::size_t count) {
  std::string all;
  for (std::size_t index = 0; index < count; ++index) all += text;
  return all;
}

TEST(ASourceExcerpt, HasTheLineOfTheByteAndACaretBelowIt) {
  struct Row {
    const char* text;
    std::size_t offset;
    const char* excerpt;
  };
  const Row rows[] = {
      {"", 0, "\n^\n"},
      {"one\ntwo\nthree", 0, "one\n^\n"},
      {"one\ntwo\nthree", 3, "one\n   ^\n"},
      {"one\ntwo\nthree", 4, "two\n^\n"},
      {"one\ntwo\nthree", 12, "three\n    ^\n"},
      {"one\ntwo\nthree", 13, "three\n     ^\n"},
      {"one\ntwo\nthree", 99, "three\n     ^\n"},
      {"one\r\ntwo", 4, "one\n   ^\n"},
      {"one\r\ntwo", 5, "two\n^\n"},
      {"one\rtwo", 5, "two\n ^\n"},
      {"\n\n", 1, "\n^\n"},
      {"\t\tx", 2, "\t\tx\n\t\t^\n"},
      {"\xE6\xBC\xA2x", 3, "\xE6\xBC\xA2x\n  ^\n"},  // two columns wide
      {"e\xCC\x81x", 3, "e\xCC\x81x\n ^\n"},         // a mark takes none
      {"\x01\xFFx", 2, "\xEF\xBF\xBD\xEF\xBF\xBDx\n  ^\n"},
  };
  for (const Row& row : rows) EXPECT_EQ(excerptAround(row.text, row.offset), row.excerpt) << row.text << row.offset;
}

TEST(ASourceExcerpt, IsCutAroundTheCaret) {
  struct Row {
    const char* what;
    std::string text;
    std::size_t offset;
    std::string excerpt;
  };
  const std::string many(400, 'a');
  const std::string blank(400, ' ');
  const std::string wide = repeated("\xC3\xA4", 200);
  const Row rows[] = {
      {"just whole", many + many, 400, many + many + "\n" + blank + "^\n"},
      {"more before", "b" + many + many, 401, "..." + many + many + "\n   " + blank + "^\n"},
      {"more behind", many + many + "b", 400, many + many + "...\n" + blank + "^\n"},
      {"more on both sides", "b" + many + many + "b", 401, "..." + many + many + "...\n   " + blank + "^\n"},
      {"another line", "b" + many + "\n" + many, 402, many + "\n^\n"},
      // A character that the cut would part is shown whole.
      {"parted before", "b\xC3\xA4" + many.substr(1) + many, 402,
       "...\xC3\xA4" + many.substr(1) + many + "\n   " + blank + "^\n"},
      {"parted behind", "b" + wide + many, 0, "b" + wide + "...\n^\n"},
  };
  for (const Row& row : rows) EXPECT_EQ(excerptAround(row.text, row.offset), row.excerpt) << row.what;
}

TEST(APrintableText, HasNothingThatATerminalActsUpon) {
  const std::string replacement = kReplacement;
  EXPECT_EQ(printable(""), "");
  EXPECT_EQ(printable("plain\ttext \xC3\xA4"), "plain\ttext \xC3\xA4");
  EXPECT_EQ(printable("a\nb\x1B[0m"), "a" + replacement + "b" + replacement + "[0m");
  EXPECT_EQ(printable("a\nb\x1B[0m", LineBreaks::Kept), "a\nb" + replacement + "[0m");
  EXPECT_EQ(printable("\xC2\x85\xFF\xFE\xE2\x82"), repeated(replacement, 5));
  EXPECT_EQ(printable("\r\n", LineBreaks::Kept), replacement + "\n");
}

TEST(ATextPlace, CountsLinesAndCharacters) {
  struct Row {
    const char* text;
    std::size_t offset;
    std::size_t line;
    std::size_t column;
  };
  const Row rows[] = {
      {"", 0, 1, 1},          {"", 7, 1, 1},          {"abc", 0, 1, 1},    {"abc", 2, 1, 3},    {"abc", 3, 1, 4},
      {"abc", 9, 1, 4},       {"a\nb", 1, 1, 2},      {"a\nb", 2, 2, 1},   {"a\n\nb", 2, 2, 1}, {"a\n\nb", 3, 3, 1},
      {"a\r\nb", 1, 1, 2},    {"a\r\nb", 2, 1, 3},    {"a\r\nb", 3, 2, 1}, {"a\r\rb", 3, 3, 1}, {"a\n\rb", 3, 3, 1},
      {"\nb", 1, 2, 1},       {"\n", 0, 1, 1},        {"a\r", 2, 2, 1},    {"a\r\n", 3, 2, 1},  {"\r\n\r\nx", 4, 3, 1},
      {"\xC3\xA4x", 2, 1, 2}, {"\xC3\xA4x", 3, 1, 3},
  };
  for (const Row& row : rows) {
    const TextPlace place = TextPlace::inText(row.text, row.offset);
    EXPECT_EQ(place.line, row.line) << row.text << " " << row.offset;
    EXPECT_EQ(place.column, row.column) << row.text << " " << row.offset;
    EXPECT_EQ(place.offset, std::min(row.offset, std::string_view(row.text).size())) << row.text;
  }
}

}  // namespace

}  // namespace tavlo::test
