#include <gtest/gtest.h>

#include <string>

#include "Foundation/Utf8.h"
#include "Tests/Foundation/Raised.h"

namespace tavlo::test {

namespace {

constexpr char32_t kLastCharacter = 0x10FFFF;

bool isSurrogate(char32_t character) {
  return character >= 0xD800 && character <= 0xDFFF;
}

TEST(ASCII, EndsAtTheFirstByteBeyondIt) {
  for (std::size_t size = 0; size < 80; ++size) {
    for (std::size_t from = 0; from <= size; ++from) {
      EXPECT_EQ(endOfASCII(std::string(size, 'a'), from), size);
      const std::string text = std::string(size, 'a') + "\x80" + std::string(40, 'a');
      EXPECT_EQ(endOfASCII(text, from), size);
      EXPECT_EQ(endOfASCII(text, size + 1), text.size());
    }
  }
}

struct InvalidRow {
  const char* what;
  std::string text;
  std::size_t offset;
};

TEST(UTF8, IsRefusedAtTheByteWhereItStopsBeingValid) {
  const InvalidRow rows[] = {
      {"a continuation alone", "\x80", 0},
      {"a continuation behind text", "abc\xbf", 3},
      {"behind eight ASCII bytes", "abcdefgh\xff", 8},
      {"behind seventeen ASCII bytes", "abcdefghijklmnopq\xff", 17},
      {"two bytes cut short", "\xc3", 0},
      {"two bytes without a continuation", "a\xc3z", 1},
      {"three bytes cut short", "\xe2\x82", 0},
      {"three bytes broken at the last", "\xe2\x82z", 0},
      {"four bytes cut short", "x\xf0\x9f\x98", 1},
      {"four bytes broken at the second", "\xf0z\x98\x80", 0},
      {"NUL in two bytes", std::string("\xc0\x80"), 0},
      {"the last overlong form of two bytes", "\xc1\xbf", 0},
      {"an overlong form of three bytes", "\xe0\x9f\xbf", 0},
      {"an overlong form of four bytes", "\xf0\x8f\xbf\xbf", 0},
      {"the first surrogate", "\xed\xa0\x80", 0},
      {"the last surrogate", "\xed\xbf\xbf", 0},
      {"a pair of surrogates", "a\xed\xa0\x80\xed\xb0\x80", 1},
      {"above the last character", "\xf4\x90\x80\x80", 0},
      {"a lead of five bytes", "\xf8\x88\x80\x80\x80", 0},
      {"0xFE", "\xfe", 0},
      {"0xFF behind a character", "\u00e9\xff", 2},
      {"behind a NUL", std::string("a\0\xff", 3), 2},
  };
  for (const InvalidRow& row : rows) {
    EXPECT_EQ(firstInvalidByte(row.text), row.offset) << row.what;
    EXPECT_EQ(raised([&] { requireValidUTF8(row.text); }),
              "NSInvalidArgumentException: Text is not valid UTF-8 at byte offset " + std::to_string(row.offset))
        << row.what;
  }
}

TEST(UTF8, HoldsEveryCharacterButTheSurrogates) {
  std::string all;
  std::size_t units = 0;
  for (char32_t character = 0; character <= kLastCharacter; ++character) {
    if (isSurrogate(character)) continue;
    const std::size_t start = all.size();
    appendCodePoint(all, character);
    units += character > 0xFFFF ? 2 : 1;
    const CodePoint read = codePointAt(all, start);
    ASSERT_EQ(read.value, character);
    ASSERT_EQ(read.byteLength, all.size() - start);
    ASSERT_EQ(codePointBefore(all, all.size()).value, character);
  }
  EXPECT_EQ(firstInvalidByte(all), std::nullopt);
  EXPECT_EQ(utf16Length(all), units);
}

TEST(UTF8, HasNoCharacterOutsideTheText) {
  EXPECT_EQ(codePointAt("a", 1).byteLength, 0U);
  EXPECT_EQ(codePointAt("", 0).byteLength, 0U);
  EXPECT_EQ(codePointBefore("a", 0).byteLength, 0U);
  EXPECT_EQ(codePointBefore("a", 1).value, U'a');
}

TEST(WhiteSpace, IsUnicodesPropertyForEveryCharacter) {
  const auto listed = [](char32_t character) {
    for (const char32_t known : U" \u0085\u00a0\u1680\u2028\u2029\u202f\u205f\u3000") {
      if (known != 0 && character == known) return true;
    }
    return (character >= 0x9 && character <= 0xD) || (character >= 0x2000 && character <= 0x200A);
  };
  for (char32_t character = 0; character <= kLastCharacter; ++character) {
    ASSERT_EQ(isWhiteSpace(character), listed(character)) << static_cast<std::uint32_t>(character);
  }
}

TEST(WhiteSpace, IsTakenFromTheFrontOfAText) {
  EXPECT_EQ(withoutLeadingWhiteSpace(" \t\r\n\u00a0\u3000\u0085\u2028a b"), "a b");
  EXPECT_EQ(withoutLeadingWhiteSpace("\u200b "), "\u200b ");
  EXPECT_EQ(withoutLeadingWhiteSpace(" \u2003 "), "");
  EXPECT_EQ(withoutLeadingWhiteSpace(""), "");
}

}  // namespace

}  // namespace tavlo::test
