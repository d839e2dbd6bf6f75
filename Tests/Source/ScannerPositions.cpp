#include <gtest/gtest.h>

#include "Tests/Source/KorTemplateParserSupport.h"

namespace tavlo::test::parsing {

namespace {

std::string placeOf(const KorToken& token) {
  return std::to_string(token.line) + " " + std::to_string(token.position) + "+" + std::to_string(token.length) + " " +
         std::to_string(token.byteOffset) + "+" + std::to_string(token.byteLength);
}

// All blocks of a text with their sub-tokens: "LINE POSITION+LENGTH BYTE+BYTES [ … ]".
std::string placesIn(const std::string& text) {
  const Ref<KorRuleBasedScanner> scanner = scannerOver(text);
  std::string result;
  while (const KorToken* token = scanner->nextToken()) {
    if (!token->isCompound || token->tokenClass != nullptr) return "no block";
    result += (result.empty() ? "" : "; ") + placeOf(*token) + " [";
    for (const KorToken& subtoken : static_cast<const KorCompoundToken*>(token)->subtokens) {
      result += " " + placeOf(subtoken);
    }
    result += " ]";
  }
  EXPECT_EQ(scanner->nextToken(), nullptr) << "the end is the end";
  EXPECT_EQ(scanner->nextToken(), nullptr);
  return result;
}

struct PlaceRow {
  const char* what;
  const char* text;
  const char* places;
};

TEST(ScannerPositions, CountLinesFromOneAndUnitsFromZero) {
  const PlaceRow rows[] = {
      {"no block", "abc\n< ?", ""},
      {"an empty text", "", ""},
      {"one block", "<?x?>", "1 0+5 0+5 [ 0 2+1 2+1 0 3+2 3+2 ]"},
      {"text before it", "ab<?x?>cd", "1 2+5 2+5 [ 0 2+1 4+1 0 3+2 5+2 ]"},
      {"lines before it", "\n\n<?x?>", "3 2+5 2+5 [ 0 2+1 4+1 0 3+2 5+2 ]"},
      {"lines inside it", "\n<?\n\nx\n?>", "2 1+8 1+8 [ 2 4+1 5+1 3 6+2 7+2 ]"},
      {"two blocks", "<?x?>\n<?y?>", "1 0+5 0+5 [ 0 2+1 2+1 0 3+2 3+2 ]; 2 6+5 6+5 [ 0 2+1 8+1 0 3+2 9+2 ]"},
      {"adjacent blocks",
       "<?"
       "?><?"
       "?>",
       "1 0+4 0+4 [ 0 2+2 2+2 ]; 1 4+4 4+4 [ 0 2+2 6+2 ]"},
      {"longer characters before it", "\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80<?x?>",
       "1 4+5 9+5 [ 0 2+1 11+1 0 3+2 12+2 ]"},
      {"longer characters inside it", "<?\"\xF0\x9F\x98\x80\" \xC3\xA9?>",
       "1 0+10 0+13 [ 0 3+2 3+4 0 7+1 9+2 0 8+2 11+2 ]"},
  };
  for (const PlaceRow& row : rows) EXPECT_EQ(placesIn(row.text), row.places) << row.what;
}

TEST(ScannerPositions, EveryLineBreakCountsOnce) {
  const PlaceRow rows[] = {
      {"a line feed", "\n<?x?>", "2 1+5 1+5 [ 0 2+1 3+1 0 3+2 4+2 ]"},
      {"both", "\r\n<?x?>", "2 2+5 2+5 [ 0 2+1 4+1 0 3+2 5+2 ]"},
      {"a carriage return", "\r<?x?>", "2 1+5 1+5 [ 0 2+1 3+1 0 3+2 4+2 ]"},
      {"two carriage returns and a line feed", "\r\r\n<?x?>", "3 3+5 3+5 [ 0 2+1 5+1 0 3+2 6+2 ]"},
      {"a line feed and a carriage return", "\n\r<?x?>", "3 2+5 2+5 [ 0 2+1 4+1 0 3+2 5+2 ]"},
      {"breaks inside", "<?\r\n\rx?>", "1 0+8 0+8 [ 2 5+1 5+1 2 6+2 6+2 ]"},
      {"other separators do not count", "\v\f\xC2\x85\xE2\x80\xA8\xE2\x80\xA9<?x?>",
       "1 5+5 10+5 [ 0 2+1 12+1 0 3+2 13+2 ]"},
      {"a carriage return inside a pattern", "<?/\r/?>", "1 0+7 0+7 [ 0 2+3 2+3 1 5+2 5+2 ]"},
      {"far apart", "\n                                \r\n                        <?x?>",
       "3 59+5 59+5 [ 0 2+1 61+1 0 3+2 62+2 ]"},
  };
  for (const PlaceRow& row : rows) EXPECT_EQ(placesIn(row.text), row.places) << row.what;
}

TEST(ScannerPositions, ABlockThatIsNotClosedRunsToTheEnd) {
  const PlaceRow rows[] = {
      {"only the tag", "<?", "1 0+2 0+2 [ ]"},
      {"white space behind it", "a<? \n", "1 1+4 1+4 [ ]"},
      {"a token behind it", "<?x ", "1 0+4 0+4 [ 0 2+1 2+1 ]"},
      {"a tag inside it", "<?x<?y", "1 0+6 0+6 [ 0 2+1 2+1 0 3+1 3+1 0 4+1 4+1 0 5+1 5+1 ]"},
      {"a longer character behind it", "<?\xF0\x9F\x98\x80", "1 0+4 0+6 [ 0 2+2 2+4 ]"},
  };
  for (const PlaceRow& row : rows) EXPECT_EQ(placesIn(row.text), row.places) << row.what;
}

TEST(ScannerPositions, TagsInsideLiteralsDoNotEndABlock) {
  EXPECT_EQ(tokensOf("<? \"?>\" '?>' /?>/ ?>"),
            "StringLiteral:?> CharLiteral:?> RegexStringLiteral:/?>/ BlockEndTag:?>");
}

}  // namespace

}  // namespace tavlo::test::parsing
