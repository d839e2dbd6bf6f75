#include "Fuzzers/ProgramText.h"

#include <array>
#include <cstddef>
#include <string_view>

namespace tavlo::fuzz {

const char* const kProgramData = R"({
  "a": 3, "b": -2.5, "c": 18446744073709551615, "text": "aab/b é", "empty": "", "null": null, "yes": true,
  "list": [3, 1, 2], "words": ["one", "two", null], "none": [],
  "nested": [[1, 2], [], [3, [4]]],
  "items": [{"name": "x", "price": 2, "tags": ["p", "q"]}, {"name": "y", "price": 0.1, "tags": []}, {"price": null}],
  "map": {"k": {"n": 1}, "name": "m", "@count": 5}
})";

namespace {

constexpr std::size_t kLongestProgram = 600;

constexpr std::array<std::string_view, 24> kOperands = {
    "1",    "$a",         "$b",          "$text",        "$list",      "$null",    "$yes",   "$items",
    "$map", "$undefined", "\"ab\"",      "(/a+b/)",      "@@index",    "$x",       "-2.5",   "0x1F",
    "null", "TRUE",       "99999999999", "$items.price", "$list.@sum", "$map.k.n", "$shelf", "$numbers.@max"};
constexpr std::array<std::string_view, 20> kPaths = {"$items.name",
                                                     "$items.tags.@unionOfArrays",
                                                     "$items.@count",
                                                     "$nested.@unionOfArrays",
                                                     "$words.length",
                                                     "$text.length",
                                                     "$text.uppercaseString",
                                                     "$shelf.label",
                                                     "$shelf.numbers",
                                                     "$shelf.nothing",
                                                     "$map.@count",
                                                     "$map.name.length",
                                                     "$null.key",
                                                     "$list.@avg",
                                                     "$list.@min",
                                                     "$c.intValue",
                                                     "$items.price.@sum",
                                                     "$list.@distinctUnionOfObjects",
                                                     "$a.stringValue",
                                                     "$none.@max"};
// A line break behind a slash, so that no regular expression is read from there.
constexpr std::array<std::string_view, 14> kOperators = {
    "+", "-", "*", "/\n", "%", "==", "!=", "=~", "<", ">", "<=", ">=", "&&", "||"};
constexpr std::array<std::string_view, 8> kNames = {"x", "y", "z", "a", "list", "n", "text", "item"};
constexpr std::array<std::string_view, 4> kFunctions = {"f", "g", "h", "same"};
constexpr std::array<std::string_view, 4> kHostFunctions = {"same", "sum", "raise", "fail"};
constexpr std::array<std::string_view, 6> kCollections = {"$list", "$items", "$nested", "$map", "$none", "$numbers"};
constexpr std::array<std::string_view, 5> kTexts = {".", "a <b>\n", "é\r\n", "\xF0\x9F\x98\x80", " ? > < "};
constexpr std::array<std::string_view, 26> kPieces = {
    "<?",    "?>",   "<?=",         "(",  ")",  ",", "\"", "/",    "==",     " ",        "\n",      "$x", "f(",
    "endif", "else", "endfunction", "if", "=~", "=", "1",  "?><?", "return", "function", "foreach", "@@", "\\"};

class Writer {
 public:
  explicit Writer(FuzzedDataProvider& input) : input_(input) {}

  std::string program() {
    statements(4, Place::Outside);
    return std::move(out_);
  }

 private:
  enum class Place { Outside, InFunction };

  template <std::size_t Count>
  std::string_view any(const std::array<std::string_view, Count>& items) {
    return items[below(Count)];
  }
  std::size_t below(std::size_t count) { return input_.ConsumeIntegralInRange<std::size_t>(0, count - 1); }
  void put(std::string_view text) { out_ += text; }
  bool mayGoOn() const { return input_.remaining_bytes() > 0 && out_.size() < kLongestProgram; }

  void statements(int depth, Place place) {
    for (std::size_t left = below(6); left > 0 && mayGoOn(); --left) statement(depth, place);
  }

  void statement(int depth, Place place) {
    const std::size_t choices = depth > 0 ? 8 : 4;
    switch (below(choices)) {
      case 0:
        return put(any(kTexts));
      case 1:
        return block("=", [&] { expression(3); });
      case 2:
        return block("", [&] { expression(3); });
      case 3:
        return block("", [&] { assignment(); });
      case 4:
        return condition(depth - 1, place);
      case 5:
        return loop(depth - 1, place);
      case 6:
        return place == Place::Outside ? function(depth - 1) : result();
      default:
        return place == Place::Outside ? block("", [&] { put("return"); }) : result();
    }
  }

  template <class Body>
  void block(std::string_view mark, const Body& body) {
    put("<?");
    put(mark);
    put(" ");
    body();
    put(" ?>");
  }

  void assignment() {
    put("$");
    put(any(kNames));
    put(" = (");
    expression(2);
    put(")");
  }

  void result() {
    block("", [&] {
      put("return ");
      expression(2);
    });
  }

  void condition(int depth, Place place) {
    block("", [&] {
      put("if (");
      expression(2);
      put(")");
    });
    statements(depth, place);
    if (below(3) == 1) {
      block("", [&] {
        // Its condition ends at the first closing parenthesis, that of an operand too.
        const std::string_view operand = any(kOperands);
        const bool hasParentheses = operand.starts_with('(');
        put("elseif ");
        put(hasParentheses ? operand : "(");
        if (!hasParentheses) {
          put(operand);
          put(")");
        }
      });
      statements(depth, place);
    }
    if (below(2) == 1) {
      put("<? else ?>");
      statements(depth, place);
    }
    put("<? endif ?>");
  }

  void loop(int depth, Place place) {
    block("", [&] {
      put("foreach ($");
      put(any(kNames));
      put(" in ");
      below(4) == 0 ? expression(2) : put(any(kCollections));
      put(")");
    });
    statements(depth, place);
    put("<? endforeach ?>");
  }

  void function(int depth) {
    block("", [&] {
      put("function ");
      put(any(kFunctions));
      put("(");
      const std::size_t count = below(3);
      for (std::size_t index = 0; index < count; ++index) {
        put(index == 0 ? "$" : ", $");
        put(kNames[index]);
      }
      put(")");
    });
    statements(depth, Place::InFunction);
    put("<? endfunction ?>");
  }

  void expression(int depth) {
    operand(depth);
    for (std::size_t left = below(4); left > 0 && mayGoOn(); --left) {
      put(" ");
      put(any(kOperators));
      put(" ");
      operand(depth);
    }
  }

  void operand(int depth) {
    switch (depth > 0 ? below(6) : below(3)) {
      case 2:
        return put(any(kPaths));
      case 3:
        put("(");
        expression(depth - 1);
        return put(")");
      case 4:
        return call(any(kFunctions), depth - 1);
      case 5:
        return call(any(kHostFunctions), depth - 1);
      default:
        return put(any(kOperands));
    }
  }

  void call(std::string_view name, int depth) {
    put(name);
    put("(");
    const std::size_t count = below(3);
    for (std::size_t index = 0; index < count; ++index) {
      if (index > 0) put(", ");
      expression(depth);
    }
    put(")");
  }

  FuzzedDataProvider& input_;
  std::string out_;
};

}  // namespace

std::string programText(FuzzedDataProvider& input) {
  return Writer(input).program();
}

std::string mutatedText(FuzzedDataProvider& input, std::string text) {
  const std::size_t changes = input.ConsumeIntegralInRange<std::size_t>(0, 3);
  for (std::size_t change = 0; change < changes && !text.empty(); ++change) {
    const std::size_t at = input.ConsumeIntegralInRange<std::size_t>(0, text.size() - 1);
    const std::size_t length = input.ConsumeIntegralInRange<std::size_t>(1, 12);
    switch (input.ConsumeIntegralInRange<int>(0, 2)) {
      case 0:
        text.erase(at, length);
        break;
      case 1:
        text.insert(at, std::string(text, at, length));
        break;
      default:
        text.insert(at, input.PickValueInArray(kPieces));
        break;
    }
  }
  return text;
}

}  // namespace tavlo::fuzz
