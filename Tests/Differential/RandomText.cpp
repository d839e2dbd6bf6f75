#include "Tests/Differential/RandomText.h"

#include <array>
#include <cstdio>

#include "Foundation/Utf8.h"
#include "Tests/Templates/CaseFile.h"

namespace tavlo::test {

std::vector<std::string> charactersOf(std::string_view text) {
  std::vector<std::string> result;
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t length = codePointAt(text, at).byteLength;
    result.emplace_back(text.substr(at, length));
    at += length;
  }
  return result;
}

std::string joined(const std::vector<std::string>& pieces) {
  std::string result;
  for (const std::string& piece : pieces) result += piece;
  return result;
}

std::string randomText(Chooser& chooser, const std::vector<std::string>& pieces, std::size_t count) {
  std::string result;
  for (std::size_t piece = 0; piece < count; ++piece) result += chooser.from(pieces);
  return result;
}

std::string mutated(Chooser& chooser, std::string_view text, const std::vector<std::string>& pieces) {
  std::vector<std::string> characters = charactersOf(text);
  for (std::size_t changes = 1 + chooser.below(4); changes > 0 && !characters.empty(); --changes) {
    const auto at = characters.begin() + static_cast<std::ptrdiff_t>(chooser.below(characters.size()));
    const std::string other = chooser.from(characters);
    switch (chooser.below(4)) {
      case 0:
        characters.erase(at);
        break;
      case 1:
        characters.insert(at, std::string(*at));
        break;
      case 2:
        *at = other;
        break;
      default:
        characters.insert(at, chooser.from(pieces));
        break;
    }
  }
  return joined(characters);
}

const std::vector<std::string>& trickyPieces() {
  static const std::vector<std::string> pieces = {
      "<?",
      "?>",
      "<",
      "?",
      ">",
      "\"",
      "'",
      "/",
      "\\",
      "$",
      "@",
      ".",
      "+",
      "-",
      "=",
      "!",
      "&",
      "|",
      "(",
      ")",
      ",",
      "%",
      "*",
      "~",
      "#",
      "0",
      "1",
      "9",
      "e",
      "E",
      "x",
      "X",
      "a",
      "f",
      "A",
      "_",
      "0x1",
      "1.",
      " ",
      "\n",
      "\r",
      "\r\n",
      "\t",
      "if",
      "else",
      "true",
      "NULL",
      "in",
      "@@",
      "==",
      "=~",
      "&&",
      "||",
      "<=",
      "/a/",
      "\"a\"",
      "$a",
      "12",
      "\xC3\xA9",          // a letter
      "\xD9\xA3",          // an Arabic digit
      "\xE2\x80\xA8",      // the line separator
      "\xC2\x85",          // the next-line control
      "\xC2\xA0",          // the no-break space
      "\xCC\x81",          // a combining accent
      "\xF0\x9F\x98\x80",  // a smiling face
      "\xC5\xBF",          // the long s, which folds to "s" beyond ASCII
      "\xE2\x81\xBF",      // a superscript n
      "\xC2\xB2",          // a superscript two: no decimal digit
  };
  return pieces;
}

std::vector<std::string> realTemplates(std::size_t longest) {
  std::vector<std::string> result;
  for (const auto& [path, name] : findCaseFiles(TAVLO_SOURCE_DIR "/Tests/Templates")) {
    const std::string text = readCaseFile(path, name).section("template").value_or("");
    if (text.size() <= longest && !firstInvalidByte(text).has_value()) result.push_back(text);
  }
  return result;
}

std::string readable(std::string_view text) {
  std::string result;
  for (const char byte : text) {
    std::array<char, 8> buffer{};
    const bool isPlain = byte >= ' ' && byte <= '~' && byte != '\\';
    (void)std::snprintf(buffer.data(), buffer.size(), isPlain ? "%c" : "\\x%02X", static_cast<unsigned char>(byte));
    result += buffer.data();
  }
  return result;
}

}  // namespace tavlo::test
