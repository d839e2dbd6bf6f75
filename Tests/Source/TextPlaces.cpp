#include <gtest/gtest.h>

#include <random>
#include <string>
#include <thread>
#include <vector>

#include "Source/KorTemplateSource.h"
#include "Source/SourceExcerpt.h"
#include "Source/TextPlace.h"
#include "Tests/Foundation/Repeated.h"

namespace tavlo::test {

namespace {

std::string linesOfAllKinds(std::size_t pieces) {
  const char* const kPieces[] = {"a", "b ", "\n", "\r", "\r\n", "\xC3\xA4", "\xF0\x9D\x84\x9E", "\xFF", "some words "};
  std::mt19937 random(1);
  std::string text;
  for (std::size_t piece = 0; piece < pieces; ++piece) text += kPieces[random() % std::size(kPieces)];
  return text;
}

TEST(TextPlaces, AreThoseThatAreCountedFromTheStart) {
  for (const std::size_t pieces : {0, 1, 200, 1'500}) {
    const std::string text = linesOfAllKinds(pieces);
    const TextPlaces places;
    std::size_t line = 1;
    std::size_t column = 1;
    for (std::size_t at = 0; at <= text.size(); ++at) {
      const TextPlace place = places.placeIn(text, at, 7);
      const TextPlace counted = TextPlace::inText(text, at, 7);
      for (const TextPlace& one : {place, counted}) {
        ASSERT_EQ(one.line, line) << at;
        ASSERT_EQ(one.column, column) << at;
        ASSERT_EQ(one.offset, at);
        ASSERT_EQ(one.length, 7U);
      }
      if (at == text.size()) break;
      const bool endsLine = text[at] == '\n' || (text[at] == '\r' && text[at + 1] != '\n');
      const bool isContinuation = (static_cast<unsigned char>(text[at]) & 0xC0) == 0x80;
      line += endsLine ? 1 : 0;
      column = endsLine ? 1 : column + (isContinuation ? 0 : 1);
    }
    EXPECT_EQ(places.placeIn(text, text.size() + 5, 1).offset, text.size());
  }
}

TEST(TextPlaces, AreFoundByManyThreadsAtOnce) {
  const std::string text = linesOfAllKinds(3'000);
  const KorTemplateSource source("page", text);
  const TextPlace last = TextPlace::inText(text, text.size());
  std::vector<TextPlace> found(4);
  std::vector<std::thread> threads;
  for (TextPlace& place : found) threads.emplace_back([&] { place = source.placeOf(text.size(), 1); });
  for (std::thread& thread : threads) thread.join();
  for (const TextPlace& place : found) {
    EXPECT_EQ(place.line, last.line);
    EXPECT_EQ(place.column, last.column);
  }
}

TEST(SourceExcerpt, CutsAVeryLongLineAroundTheCaret) {
  struct Row {
    std::string before;
    std::string after;
    std::string shownBefore;
    std::string shownAfter;
  };
  const std::string much = repeated("\xC3\xA4", 5'000);
  const Row rows[] = {
      {"x", much, "x", "!" + repeated("\xC3\xA4", 200) + "..."},
      {much, "x", "..." + repeated("\xC3\xA4", 200), "!x"},
      {"a\n" + much, much + "\nb", "..." + repeated("\xC3\xA4", 200), "!" + repeated("\xC3\xA4", 200) + "..."},
      {"a\r" + std::string(400, 'x'), std::string(399, 'y') + "\rb", std::string(400, 'x'),
       "!" + std::string(399, 'y')},
      {"a\n" + std::string(401, 'x'), std::string(400, 'y'), "..." + std::string(400, 'x'),
       "!" + std::string(399, 'y') + "..."},
  };
  for (const Row& row : rows) {
    const std::string excerpt = excerptAround(row.before + "!" + row.after, row.before.size());
    EXPECT_EQ(excerpt.substr(0, excerpt.find('\n')), row.shownBefore + row.shownAfter);
  }
}

}  // namespace

}  // namespace tavlo::test
