#include <cmath>
#include <exception>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include "Benchmarks/Growth.h"
#include "Foundation/NSArray.h"
#include "Foundation/NSDictionary.h"
#include "Foundation/NSKeyValueCoding.h"
#include "Foundation/NSSet.h"
#include "Foundation/NSString.h"
#include "Foundation/Value.h"
#include "Matchery/KorRegex.h"
#include "Tool/JSONReader.h"

namespace tavlo::benchmarks {

namespace {

using MakeValue = Value (*)(std::size_t size);

// The value that `elementAt` gives for each number, in a list.
template <class ElementAt>
Value listOf(std::size_t count, const ElementAt& elementAt) {
  std::vector<Value> elements;
  elements.reserve(count);
  for (std::size_t number = 0; number < count; ++number) elements.push_back(elementAt(number));
  return NSArray::arrayWithObjects(elements);
}

Value list(std::size_t count) {
  return listOf(count, [](std::size_t number) { return Value(number); });
}

Value listOfDoubles(std::size_t count) {
  return listOf(count, [](std::size_t number) { return Value(static_cast<double>(number) / 8); });
}

Value listOfTexts(std::size_t count) {
  return listOf(count, [](std::size_t number) { return Value("text " + std::to_string(number)); });
}

Value listOfLists(std::size_t count) {
  return listOf(count, [](std::size_t number) { return NSArray::arrayWithObjects({number, "x"}); });
}

Value listOfItems(std::size_t count) {
  return listOf(count, [](std::size_t number) {
    return NSDictionary::dictionaryWithEntries({{"price", number}, {"name", "item " + std::to_string(number)}});
  });
}

Value dictionary(std::size_t count) {
  const Ref<NSMutableDictionary> entries = NSMutableDictionary::dictionary();
  for (std::size_t number = 0; number < count; ++number) {
    entries->setObjectForKey(number, "key" + std::to_string(number));
  }
  return entries;
}

Value set(std::size_t count) {
  return NSSet::setWithObjects(list(count).as<NSArray>()->elements());
}

Value nestedLists(std::size_t depth) {
  Value value = 1;
  for (std::size_t level = 0; level < depth; ++level) value = NSArray::arrayWithObjects({value});
  return value;
}

Value nestedDictionaries(std::size_t depth) {
  Value value = 1;
  for (std::size_t level = 0; level < depth; ++level) value = NSDictionary::dictionaryWithEntries({{"a", value}});
  return value;
}

Value nestedSets(std::size_t depth) {
  Value value = 1;
  for (std::size_t level = 0; level < depth; ++level) value = NSSet::setWithObjects({value});
  return value;
}

struct ValueRow {
  const char* name;
  std::size_t size;
  MakeValue make;
};

// With making and freeing what the result is.
GrowingWork making(const ValueRow& row) {
  return {row.name, row.size, [=](std::size_t size) -> Work { return [=] { (void)row.make(size); }; }};
}

GrowingWork describing(const ValueRow& row) {
  return {row.name, row.size,
          [=](std::size_t size) -> Work { return [value = row.make(size)] { (void)value.description(); }; }};
}

// What a level is indented by makes the text of nested values as large as the square of their depth.
GrowingWork describingDeep(const ValueRow& row) {
  return {row.name, row.size, [=](std::size_t size) -> Work {
            const auto depth = static_cast<std::size_t>(std::sqrt(static_cast<double>(size)));
            return [value = row.make(depth)] { (void)value.description(); };
          }};
}

GrowingWork comparing(const ValueRow& row) {
  return {row.name, row.size, [=](std::size_t size) -> Work {
            return [one = row.make(size), other = row.make(size)] {
              if (!one.isEqual(other)) throw std::runtime_error("are not equal");
            };
          }};
}

GrowingWork hashing(const ValueRow& row) {
  return {row.name, row.size,
          [=](std::size_t size) -> Work { return [value = row.make(size)] { (void)value.hash(); }; }};
}

GrowingWork sharing(const ValueRow& row) {
  return {row.name, row.size, [=](std::size_t size) -> Work { return [value = row.make(size)] { value.share(); }; }};
}

GrowingWork gathering(const ValueRow& row) {
  return {row.name, row.size, [=](std::size_t size) -> Work {
            return [value = row.make(size)] { (void)NSSet::setWithObjects(value.as<NSArray>()->elements()); };
          }};
}

struct PathRow {
  const char* name;
  std::size_t size;
  MakeValue make;
  const char* path;
};

GrowingWork reading(const PathRow& row) {
  return {row.name, row.size, [=](std::size_t size) -> Work {
            return [value = row.make(size), path = row.path] { (void)valueForKeyPath(value, path); };
          }};
}

template <class Row>
std::vector<GrowingWork> worksOn(const std::vector<Row>& rows, GrowingWork (*work)(const Row& row)) {
  std::vector<GrowingWork> works;
  for (const Row& row : rows) works.push_back(work(row));
  return works;
}

std::vector<GrowingWork> joined(std::initializer_list<std::vector<GrowingWork>> parts) {
  std::vector<GrowingWork> works;
  for (const std::vector<GrowingWork>& part : parts) works.insert(works.end(), part.begin(), part.end());
  return works;
}

Value letters(std::size_t count) {
  return std::string(count, 'a');
}

Value lettersOfAnyLanguage(std::size_t count) {
  return GrowingText{"", "ä€𝄞 "}.of(count);
}

Value words(std::size_t count) {
  return GrowingText{"", "some words, "}.of(count);
}

Value digits(std::size_t count) {
  return std::string(count, '9');
}

Value fractionOfDigits(std::size_t count) {
  return "0." + std::string(count, '3');
}

struct PatternRow {
  const char* name;
  std::size_t size;
  GrowingText pattern;
};

GrowingWork compilingPattern(const PatternRow& row) {
  return {row.name, row.size, [=](std::size_t size) -> Work {
            return [pattern = row.pattern.of(size)] { (void)KorRegex::compileExpression(pattern); };
          }};
}

struct SearchRow {
  const char* name;
  std::size_t size;
  const char* pattern;
  MakeValue text;
  bool found = false;
};

GrowingWork searching(const SearchRow& row) {
  return {row.name, row.size, [=](std::size_t size) -> Work {
            return [regex = KorRegex::compileExpression(row.pattern), text = row.text(size), found = row.found] {
              if (regex->matchesString(*text.string()) != found) throw std::runtime_error("finds something else");
            };
          }};
}

struct JSONRow {
  const char* name;
  std::size_t size;
  GrowingText text;
};

GrowingWork readingJSON(const JSONRow& row) {
  return {row.name, row.size,
          [=](std::size_t size) -> Work { return [text = row.text.of(size)] { (void)readJSON(text); }; }};
}

GrowingWork refusingJSON(const JSONRow& row) {
  return {row.name, row.size, [=](std::size_t size) -> Work {
            return [text = row.text.of(size)] {
              try {
                (void)readJSON(text);
              } catch (const JSONError&) {
                return;
              }
              throw std::runtime_error("is read");
            };
          }};
}

void appendEach(const Value& texts, Ref<NSString>& whole) {
  for (const Value& text : texts.as<NSArray>()->elements()) {
    whole = NSString::appended(std::move(whole), {text.string()->view(), text.string()->length()});
  }
}

Work appending(std::size_t count) {
  return [parts = listOfTexts(count)] {
    Ref<NSString> whole = NSString::stringWithUTF8("");
    appendEach(parts, whole);
  };
}

// A part from the start, the middle and the end of a text.
Work cutting(std::size_t count) {
  return [text = lettersOfAnyLanguage(count)] {
    const NSString& whole = *text.string();
    constexpr std::size_t kBytesOfPiece = 10;
    const std::size_t pieces = whole.byteLength() / kBytesOfPiece;
    for (std::size_t piece = 0; piece < pieces; ++piece) (void)whole.substring(piece * kBytesOfPiece, kBytesOfPiece);
  };
}

}  // namespace

std::vector<GrowingWork> growingPatterns() {
  return joined({
      worksOn<PatternRow>(
          {
              {"pattern: letters", 4'000, {"", "a"}},
              {"pattern: alternatives", 1'000, {"a", "|b#"}},
              {"pattern: groups", 1'000, {"", "(a)"}},
              {"pattern: groups with options", 300, {"", "(?i:a)"}},
              {"pattern: options", 24, {"", "(?i)"}},
              {"pattern: nested groups", 24, {"", "(?:", "a", ")"}},
              {"pattern: nested quantified groups", 24, {"", "(?:", "a", ")?"}},
              {"pattern: classes", 1'000, {"", "[ab]"}},
              {"pattern: a long class", 2'000, {"[", "ax", "]"}},
              {"pattern: quantifiers", 1'000, {"", "a*b?"}},
              {"pattern: look-aheads", 1'000, {"", "(?=a)"}},
              {"pattern: references", 1'000, {"(a)", "\\1"}},
              {"pattern: letters of any language", 1'000, {"", "ä"}},
          },
          compilingPattern),
      worksOn<SearchRow>(
          {
              {"search: a word", 50'000, "needle", words},
              {"search: a word without regard to case", 25'000, "(?i)needle", words},
              {"search: a word at starts of lines", 25'000, "^needle", words},
              {"search: alternatives", 10'000, "needle|pin|nail", words},
              {"search: a class", 10'000, "[0-9]+", words},
              {"search: words in a row", 50, "\\w+ \\w+[@#]", words},
              {"search: the end", 10'000, "words, \\z", words, true},
              {"search: all of it", 50'000, "^.*$", letters, true},
              {"search: repeated letters", 10'000, "^a+b", letters},
              {"search: a word in any language", 10'000, "nädle", lettersOfAnyLanguage},
              {"search: a repetition", 50, "(\\w+) \\1", words},
          },
          searching),
  });
}

std::vector<GrowingWork> growingValues() {
  return joined({
      worksOn<ValueRow>({{"make: a list", 10'000, list},
                         {"make: a dictionary", 2'500, dictionary},
                         {"make: a set", 2'500, set},
                         {"make: nested lists", 10'000, nestedLists},
                         {"make: nested dictionaries", 5'000, nestedDictionaries},
                         {"make: nested sets", 2'500, nestedSets}},
                        making),
      worksOn<ValueRow>({{"describe: a list", 5'000, list},
                         {"describe: a list of doubles", 2'500, listOfDoubles},
                         {"describe: a list of texts", 2'500, listOfTexts},
                         {"describe: a list of lists", 1'500, listOfLists},
                         {"describe: a dictionary", 1'500, dictionary},
                         {"describe: a set", 2'500, set}},
                        describing),
      worksOn<ValueRow>({{"describe: nested lists", 48'000, nestedLists},
                         {"describe: nested dictionaries", 48'000, nestedDictionaries},
                         {"describe: nested sets", 48'000, nestedSets}},
                        describingDeep),
      worksOn<ValueRow>({{"compare: a list", 10'000, list},
                         {"compare: a list of texts", 5'000, listOfTexts},
                         {"compare: a list of lists", 2'500, listOfLists},
                         {"compare: a dictionary", 2'500, dictionary},
                         {"compare: a set", 2'500, set},
                         {"compare: nested lists", 240, nestedLists},
                         {"compare: nested dictionaries", 240, nestedDictionaries},
                         {"compare: nested sets", 240, nestedSets},
                         {"compare: a text", 100'000, letters}},
                        comparing),
      worksOn<ValueRow>({{"hash: a list", 10'000, list},
                         {"hash: a list of lists", 2'500, listOfLists},
                         {"hash: a dictionary", 2'500, dictionary},
                         {"hash: a set", 2'500, set},
                         {"hash: nested lists", 10'000, nestedLists},
                         {"hash: nested dictionaries", 5'000, nestedDictionaries},
                         {"hash: nested sets", 2'500, nestedSets},
                         {"hash: a text", 100'000, letters}},
                        hashing),
      worksOn<ValueRow>({{"share: a list of lists", 2'500, listOfLists},
                         {"share: a dictionary", 2'500, dictionary},
                         {"share: nested lists", 10'000, nestedLists},
                         {"share: nested dictionaries", 5'000, nestedDictionaries}},
                        sharing),
      worksOn<ValueRow>({{"gather into a set: numbers", 2'500, list},
                         {"gather into a set: doubles", 2'500, listOfDoubles},
                         {"gather into a set: texts", 2'500, listOfTexts},
                         {"gather into a set: lists", 1'500, listOfLists},
                         {"gather into a set: dictionaries", 1'000, listOfItems}},
                        gathering),
  });
}

std::vector<GrowingWork> growingPaths() {
  return worksOn<PathRow>({{"path: @count", 2'500, list, "@count"},
                           {"path: @sum", 2'500, list, "@sum"},
                           {"path: @sum of texts", 1'500, listOfTexts, "@sum"},
                           {"path: @avg of a key", 1'500, listOfItems, "@avg.price"},
                           {"path: @min", 2'500, list, "@min"},
                           {"path: @max of texts", 1'500, listOfTexts, "@max"},
                           {"path: @unionOfObjects", 2'500, listOfItems, "@unionOfObjects.name"},
                           {"path: @distinctUnionOfObjects", 1'500, listOfItems, "@distinctUnionOfObjects.name"},
                           {"path: @distinctUnionOfObjects, of objects", 1'000, listOfItems, "@distinctUnionOfObjects"},
                           {"path: @unionOfArrays", 1'500, listOfLists, "@unionOfArrays"},
                           {"path: @distinctUnionOfArrays", 1'500, listOfLists, "@distinctUnionOfArrays"},
                           {"path: a key of each element", 2'500, listOfItems, "name"},
                           {"path: a key of lists in lists", 1'500, listOfLists, "description"},
                           {"path: @sum of a set", 2'500, set, "@sum"}},
                          reading);
}

std::vector<GrowingWork> growingTexts() {
  std::vector<GrowingWork> works =
      worksOn<PathRow>({{"text: length", 5'000, lettersOfAnyLanguage, "length"},
                        {"text: uppercaseString", 5'000, lettersOfAnyLanguage, "uppercaseString"},
                        {"text: lowercaseString", 25'000, letters, "lowercaseString"},
                        {"text: capitalizedString", 5'000, words, "capitalizedString"},
                        {"text: description", 100'000, letters, "description"},
                        {"text: intValue", 25'000, digits, "intValue"},
                        {"text: integerValue", 25'000, digits, "integerValue"},
                        {"text: doubleValue", 25'000, digits, "doubleValue"},
                        {"text: doubleValue of a fraction", 25'000, fractionOfDigits, "doubleValue"},
                        {"text: boolValue", 25'000, digits, "boolValue"}},
                       reading);
  works.push_back({"text: appending", 5'000, appending});
  works.push_back({"text: substrings", 2'500, cutting});
  return works;
}

std::vector<GrowingWork> growingJSON() {
  return joined({
      worksOn<JSONRow>({{"JSON: numbers", 5'000, {"[1", ",#", "]"}},
                        {"JSON: doubles", 2'500, {"[1", ",#.25e3", "]"}},
                        {"JSON: a fraction of many digits", 10'000, {"[0.", "7", "]"}},
                        {"JSON: texts", 2'500, {"[1", ",\"text #\"", "]"}},
                        {"JSON: a long text", 40'000, {"\"", "x", "\""}},
                        {"JSON: a text of escapes", 10'000, {"\"", "\\u00e4\\n", "\""}},
                        {"JSON: a text in any language", 10'000, {"\"", "ä€𝄞", "\""}},
                        {"JSON: members", 1'500, {"{\"a\":1", ",\"name#\":#", "}"}},
                        {"JSON: members of one name", 2'500, {"{\"a\":1", ",\"a\":#", "}"}},
                        {"JSON: objects", 1'000, {"[1", ",{\"a\":1,\"b\":[]}", "]"}},
                        {"JSON: white space", 50'000, {"[", " \n", "]"}},
                        {"JSON: nested lists", 240, {"", "[", "", "]"}},
                        {"JSON: nested objects", 240, {"", "{\"a\":", "1", "}"}}},
                       readingJSON),
      worksOn<JSONRow>({{"JSON: a number beyond the doubles", 10'000, {"[1", "7", "]"}},
                        {"JSON: what fails behind many lines", 25'000, {"[1", ",\n1", " 2]"}},
                        {"JSON: what fails in a long text", 25'000, {"\"", "ä"}},
                        {"JSON: too many levels", 10'000, {"", "["}}},
                       refusingJSON),
  });
}

}  // namespace tavlo::benchmarks
