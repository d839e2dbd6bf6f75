#include <gtest/gtest.h>

#include <cstring>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>

#include "Foundation/NSKeyValueCoding.h"
#include "Foundation/NSMutableString.h"
#include "Foundation/NSString.h"
#include "Foundation/Text.h"
#include "Tests/Foundation/Raised.h"

namespace tavlo::test {

namespace {

using std::string_view_literals::operator""sv;

struct LengthRow {
  const char* what;
  std::string_view text;
  std::uint32_t length;
  bool isASCII;
};

TEST(NSString, CountsUTF16Units) {
  const LengthRow rows[] = {
      {"nothing", "", 0, true},
      {"ASCII", "abc", 3, true},
      {"an embedded NUL", "a\0b"sv, 3, true},
      {"two bytes", "\u00e9", 1, false},
      {"the last of two bytes", "\u07ff", 1, false},
      {"the first of three bytes", "\u0800", 1, false},
      {"a mark of its own", "e\u0301", 2, false},
      {"a byte order mark", "\ufeff", 1, false},
      {"a noncharacter", "\uffff", 1, false},
      {"a pair", "\U00010000", 2, false},
      {"the last character", "\U0010ffff", 2, false},
      {"a mixture", "a\u00e9\u20ac\U0001f600", 5, false},
  };
  for (const LengthRow& row : rows) {
    const Ref<NSString> string = NSString::stringWithUTF8(row.text);
    EXPECT_EQ(string->length(), row.length) << row.what;
    EXPECT_EQ(string->byteLength(), row.text.size()) << row.what;
    EXPECT_EQ(string->isASCII(), row.isASCII) << row.what;
    EXPECT_EQ(string->view(), row.text) << row.what;
    EXPECT_EQ(string->characters()[row.text.size()], '\0') << row.what;
    EXPECT_EQ(Value(string).description(), row.text) << row.what;
    EXPECT_EQ(valueForKeyPath(string, "length").intValue(), static_cast<int>(row.length)) << row.what;
  }
}

struct UTF16Row {
  const char* what;
  std::u16string text;
  std::string utf8;
};

TEST(NSString, IsMadeFromUTF16) {
  const UTF16Row rows[] = {
      {"nothing", u"", ""},
      {"ASCII", u"abc", "abc"},
      {"an embedded NUL", std::u16string(u"a\0b", 3), std::string("a\0b", 3)},
      {"two and three bytes", u"\u00e9\u20ac", "\u00e9\u20ac"},
      {"below the surrogates", u"\ud7ff", "\xed\x9f\xbf"},
      {"above the surrogates", u"\ue000", "\xee\x80\x80"},
      {"the first pair", {0xD800, 0xDC00}, "\U00010000"},
      {"the last pair", {0xDBFF, 0xDFFF}, "\U0010ffff"},
      {"two pairs", {0xD83D, 0xDE00, 0xD83D, 0xDE01}, "\U0001f600\U0001f601"},
  };
  for (const UTF16Row& row : rows) {
    const Ref<NSString> string = NSString::stringWithUTF16(row.text);
    EXPECT_EQ(string->view(), row.utf8) << row.what;
    EXPECT_EQ(string->length(), row.text.size()) << row.what;
  }
}

struct LoneSurrogateRow {
  const char* what;
  std::u16string text;
  const char* unit;
};

TEST(NSString, RefusesALoneSurrogate) {
  const LoneSurrogateRow rows[] = {
      {"high at the end", {u'a', 0xD800}, "1"},
      {"high before a letter", {0xDBFF, u'a'}, "0"},
      {"low alone", {0xDC00}, "0"},
      {"low behind a letter", {u'a', u'b', 0xDFFF}, "2"},
      {"the wrong way round", {0xDC00, 0xD800}, "0"},
      {"two high", {0xD800, 0xD800, 0xDC00}, "0"},
      {"low behind a pair", {0xD800, 0xDC00, 0xDC00}, "2"},
  };
  for (const LoneSurrogateRow& row : rows) {
    EXPECT_EQ(raised([&] { (void)NSString::stringWithUTF16(row.text); }),
              std::string("NSInvalidArgumentException: Text has a lone surrogate at unit ") + row.unit)
        << row.what;
  }
}

// A host's type that is a text, where it is one.
struct UnreadableText {
  operator std::string_view() const {  // NOLINT(google-explicit-constructor): what makes it a text
    throw std::runtime_error("unreadable");
  }
};

TEST(NSString, PassesOnWhatATextOfTheHostsRaises) {
  EXPECT_THROW((void)NSString::stringByJoining("a", UnreadableText()), std::runtime_error);
}

TEST(NSString, RefusesBytesThatAreNoUTF8) {
  EXPECT_EQ(raised([] { (void)NSString::stringWithUTF8("abc\xc3"); }),
            "NSInvalidArgumentException: Text is not valid UTF-8 at byte offset 3");
}

TEST(NSString, JoinsTexts) {
  const Ref<NSString> joined = NSString::stringByJoining("a\u00e9", "\U0001f600b");
  EXPECT_EQ(joined->view(), "a\u00e9\U0001f600b");
  EXPECT_EQ(joined->length(), 5U);
  EXPECT_EQ(NSString::stringByJoining("", "")->length(), 0U);
}

TEST(NSString, GrowsInPlaceWhereThereIsRoom) {
  Ref<NSString> string = NSString::stringByJoining("0123456789", "0123456789");
  const NSString* object = string.get();
  const std::uint32_t before = string->hash32();
  string = NSString::appended(std::move(string), "\u00e9\U0001f600");
  EXPECT_EQ(string.get(), object);
  EXPECT_EQ(string->view(), "01234567890123456789\u00e9\U0001f600");
  EXPECT_EQ(string->length(), 23U);
  EXPECT_EQ(string->characters()[string->byteLength()], '\0');
  EXPECT_NE(string->hash32(), before);
  EXPECT_EQ(string->hash32(), NSString::hashOf(string->view()));
}

TEST(NSString, MovesToALargerPlaceWhereThereIsNone) {
  Ref<NSString> string = NSString::stringWithUTF8("abc");
  std::string expected = "abc";
  for (int piece = 0; piece < 200; ++piece) {
    const std::string text = std::to_string(piece);
    string = NSString::appended(std::move(string), text);
    expected += text;
  }
  EXPECT_EQ(string->view(), expected);
  EXPECT_EQ(string->length(), expected.size());
}

TEST(NSString, CopiesLittleWhileItGrows) {
  Ref<NSString> string = NSString::stringWithUTF8("");
  int moves = 0;
  for (int piece = 0; piece < 100'000; ++piece) {
    const NSString* before = string.get();
    string = NSString::appended(std::move(string), "x");
    moves += string.get() == before ? 0 : 1;
  }
  EXPECT_EQ(string->length(), 100'000U);
  EXPECT_LT(moves, 60);  // each move adds half the length again, so their number grows like the logarithm
}

TEST(NSString, GivesSpareRoomBack) {
  Ref<NSString> roomy = NSString::stringByJoining(std::string(500, 'a'), std::string(500, 'b'));
  const Ref<NSString> trimmed = NSString::trimmed(roomy);
  EXPECT_NE(trimmed.get(), roomy.get());
  EXPECT_EQ(trimmed->view(), roomy->view());
  EXPECT_EQ(trimmed->length(), 1000U);
  const Ref<NSString> tight = NSString::stringWithUTF8("abc");
  EXPECT_EQ(NSString::trimmed(tight).get(), tight.get());
}

TEST(NSString, GivesAPartOfItself) {
  const Ref<NSString> string = NSString::stringWithUTF8("a\u00e9\U0001f600b");
  const Ref<NSString> part = string->substring(1, 6);
  EXPECT_EQ(part->view(), "\u00e9\U0001f600");
  EXPECT_EQ(part->length(), 3U);
  EXPECT_EQ(string->substring(0, 1)->length(), 1U);
  EXPECT_EQ(string->substring(8, 0)->view(), "");
  EXPECT_EQ(NSString::stringWithUTF8("abc")->substring(1, 2)->view(), "bc");
}

TEST(NSString, HashesAlikeWhereTheTextIsAlike) {
  const Ref<NSString> one = NSString::stringWithUTF8("key");
  const Ref<NSString> other = NSString::stringByJoining("k", "ey");
  EXPECT_EQ(one->hash32(), other->hash32());
  EXPECT_EQ(one->hash(), other->hash());
  EXPECT_EQ(one->hash32(), NSString::hashOf("key"));
  EXPECT_NE(NSString::stringWithUTF8("")->hash32(), 0U);
}

TEST(NSString, CountsAtomicallyWhereItIsAskedTo) {
  EXPECT_TRUE(NSString::stringWithValidUTF8("a", Counting::Atomic)->isShared());
  EXPECT_FALSE(NSString::stringWithValidUTF8("a")->isShared());
}

struct PropertyRow {
  const char* text;
  const char* key;
  const char* value;
};

TEST(NSString, AnswersForItsKeys) {
  const PropertyRow rows[] = {
      {"a\U0001f600", "length", "3"},
      {"ab c", "description", "ab c"},
      {" 12abc", "intValue", "12"},
      {"99999999999", "intValue", "2147483647"},
      {"99999999999", "integerValue", "99999999999"},
      {"1.5e2", "doubleValue", "150"},
      {"yes", "boolValue", "1"},
      {"no", "boolValue", "0"},
      // Simple mappings: one character to one.
      {"a\u00e9\u00df\u0149", "uppercaseString", "A\u00c9\u00df\u0149"},
      {"\u01c6\u01c9", "uppercaseString", "\u01c4\u01c7"},
      {"\u0131i\u017f\u00b5", "uppercaseString", "IIS\u039c"},
      {"\u03c2\u03c3\u03b1", "uppercaseString", "\u03a3\u03a3\u0391"},
      {"\ufb01\u1f80", "uppercaseString", "\ufb01\u1f88"},
      {"\U00010428", "uppercaseString", "\U00010400"},
      {"\u00ff1-_", "uppercaseString", "\u01781-_"},
      {"A\u00c9\u1e9e\u0130", "lowercaseString", "a\u00e9\u00dfi"},
      {"\u03a3\u03a3", "lowercaseString", "\u03c3\u03c3"},
      {"\u2126\u212a\u212b", "lowercaseString", "\u03c9k\u00e5"},
      {"\U00010400", "lowercaseString", "\U00010428"},
      {"", "capitalizedString", ""},
      {"hello WORLD", "capitalizedString", "Hello World"},
      {"o'neil and-so_on", "capitalizedString", "O'Neil And-So_On"},
      {"a1b", "capitalizedString", "A1b"},
      {"e\u0301ab", "capitalizedString", "E\u0301ab"},
      {"\u01c6ab \u01c4AB", "capitalizedString", "\u01c5ab \u01c5ab"},
      {"\u00dfa", "capitalizedString", "\u00dfa"},
      {"\u00e9TE\u00c9", "capitalizedString", "\u00c9te\u00e9"},
      {"tab\tline\nEND", "capitalizedString", "Tab\tLine\nEnd"},
      {"\u4e2dabc", "capitalizedString", "\u4e2dabc"},
  };
  for (const PropertyRow& row : rows) {
    EXPECT_EQ(valueForKeyPath(row.text, row.key).description(), row.value) << row.text << " " << row.key;
  }
  EXPECT_EQ(raisedName([] { (void)valueForKeyPath("a", "Length"); }), "NSUndefinedKeyException");
  EXPECT_EQ(raisedName([] { (void)valueForKeyPath("a", ""); }), "NSUndefinedKeyException");
  EXPECT_EQ(raisedName([] { (void)valueForKeyPath("a", "@count"); }), "NSUndefinedKeyException");
}

TEST(NSMutableString, GrowsAndIsSeenByAllWhoHoldIt) {
  const Ref<NSMutableString> string = NSMutableString::mutableString();
  const Ref<NSMutableString> same = string;
  string->appendString("a\u00e9");
  string->appendString("");
  string->mutableText().append("b");
  EXPECT_EQ(same->string(), "a\u00e9b");
  EXPECT_EQ(Value(same).description(), "a\u00e9b");
  EXPECT_EQ(raisedName([&] { string->appendString(nullptr); }), "NSInvalidArgumentException");
  EXPECT_EQ(same->string(), "a\u00e9b");
  EXPECT_STREQ(string->className(), "NSMutableString");
}

TEST(Text, IsAbsentOnlyWhenMadeOfNothing) {
  const Ref<NSString> string = NSString::stringWithUTF8("abc");
  const char* missing = nullptr;
  EXPECT_TRUE(Text().isAbsent());
  EXPECT_TRUE(Text(nullptr).isAbsent());
  EXPECT_TRUE(Text(missing).isAbsent());
  EXPECT_TRUE(Text(Ref<NSString>()).isAbsent());
  EXPECT_EQ(Text().view(), "");
  EXPECT_FALSE(Text("").isAbsent());
  EXPECT_FALSE(Text(std::string_view()).isAbsent());
  EXPECT_FALSE(Text(std::string()).isAbsent());
  EXPECT_EQ(Text(string).view(), "abc");
  EXPECT_EQ(Text("abc").view(), "abc");
}

}  // namespace

}  // namespace tavlo::test
