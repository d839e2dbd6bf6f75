#include <gtest/gtest.h>

#include <limits>
#include <stdexcept>
#include <string>

#include "Foundation/TextBuffer.h"

namespace tavlo {
namespace {

TEST(TextBuffer, AppendsPiecesOfEveryLength) {
  std::string expected;
  TextBuffer text;
  for (std::size_t length = 0; length < 300; ++length) {
    std::string piece;
    for (std::size_t index = 0; index < length; ++index) piece += static_cast<char>('!' + (index * 7 + length) % 90);
    expected += piece;
    text.append(piece);
    ASSERT_EQ(text.view(), expected) << length;
  }
}

TEST(TextBuffer, AppendsShortPiecesInBlocksWhereItHasRoomForThem) {
  const std::string source(2 * TextBuffer::kLongestPadded, 'x');
  TextBuffer text;
  text.reserve(TextBuffer::kLongestPadded + 30);
  const std::size_t room = text.capacity() - TextBuffer::kLongestPadded;
  text.append(std::string(room, 'a'));
  EXPECT_TRUE(text.hasPaddedRoom());
  for (const std::size_t size : {std::size_t{1}, std::size_t{16}, std::size_t{17}, std::size_t{128}}) {
    TextBuffer copy;
    copy.reserve(text.capacity());
    copy.append(text.view());
    copy.appendPadded(std::string_view(source).substr(0, size));
    copy.append("f");
    EXPECT_EQ(copy.view(), std::string(room, 'a') + std::string(size, 'x') + "f") << size;
  }
  text.append("b");
  EXPECT_FALSE(text.hasPaddedRoom());
}

TEST(TextBuffer, AppendsAPartOfItselfAlsoWhereItMustGrow) {
  TextBuffer text;
  text.append("0123456789");
  std::string expected(text.view());
  while (text.size() < 100'000) {
    expected += expected;
    text.append(text.view());
    ASSERT_EQ(text.view(), expected);
  }
}

TEST(TextBuffer, DoublesItsMemorySoThatPiecesCostNoMoreThanTheirBytes) {
  TextBuffer text;
  int growths = 0;
  for (int index = 0; index < 100'000; ++index) {
    const std::size_t before = text.capacity();
    text.append("abc");
    if (text.capacity() != before) ++growths;
  }
  EXPECT_LE(growths, 12);
  EXPECT_EQ(text.size(), 300'000u);
}

TEST(TextBuffer, TakesWhatIsWrittenIntoItsRoom) {
  TextBuffer text;
  text.append("a");
  char* const place = text.room(5);
  place[0] = 'b';
  place[1] = 'c';
  text.extend(place + 2);
  EXPECT_EQ(text.view(), "abc");
}

TEST(TextBuffer, DoesNotMoveWithinTheRoomThatWasReserved) {
  TextBuffer text;
  text.reserve(1000);
  const char* const bytes = text.room(0);
  while (text.size() < 1000) text.append("0123456789");
  EXPECT_EQ(text.view().data(), bytes);
  text.reserve(10);
  EXPECT_EQ(text.capacity(), 1000u);
}

TEST(TextBuffer, RefusesMoreThanMemoryCanBeAndStaysAsItIs) {
  TextBuffer text;
  text.append("abc");
  EXPECT_THROW((void)text.room(std::numeric_limits<std::size_t>::max()), std::length_error);
  EXPECT_EQ(text.view(), "abc");
}

}  // namespace
}  // namespace tavlo
