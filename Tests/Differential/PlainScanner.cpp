#include "Tests/Differential/PlainScanner.h"

#include <functional>
#include <optional>

#include "Matchery/KorRegex.h"
#include "Tests/Source/KorTemplateParserSupport.h"

namespace tavlo::test {

namespace {

using Parser = KorTemplateParser;

// Where a rule has matched: the end of the match, and the part that the token covers.
struct Match {
  std::size_t end;
  std::size_t tokenStart;
  std::size_t tokenEnd;
};

using Rule = std::function<std::optional<Match>(std::string_view text, std::size_t at)>;

struct RuleRow {
  const KorTokenClass* tokenClass;  // none: what the rule takes is skipped
  Rule rule;
};

Rule pattern(const char* expression) {
  return [regex = KorRegex::compileExpression(expression)](std::string_view text, std::size_t at) {
    const std::optional<std::size_t> end = regex->matchEnd(text, at);
    return end.has_value() && *end > at ? std::optional<Match>({*end, at, *end}) : std::nullopt;
  };
}

Rule literal(char quote) {
  return [quote](std::string_view text, std::size_t at) -> std::optional<Match> {
    if (text[at] != quote) return {};
    for (std::size_t close = at + 1; close < text.size(); ++close) {
      if (text[close] == '\n' || text[close] == '\r') return {};
      if (text[close] == quote && text[close - 1] != '\\') return Match{close + 1, at + 1, close};
    }
    return {};
  };
}

bool isWordAt(std::string_view text, std::size_t at) {
  static const Ref<KorRegex> word = KorRegex::compileExpression(R"(\w)");
  return at < text.size() && word->matchEnd(text, at).has_value();
}

bool isWordBefore(std::string_view text, std::size_t at) {
  if (at == 0) return false;
  do --at;
  while ((static_cast<unsigned char>(text[at]) & 0xC0) == 0x80);
  return isWordAt(text, at);
}

char lower(char letter) {
  return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter + 32) : letter;
}

bool standsAt(std::string_view text, std::size_t at, std::string_view entry, bool caseInsensitive) {
  if (text.size() - at < entry.size()) return false;
  for (std::size_t index = 0; index < entry.size(); ++index) {
    const char letter = text[at + index];
    if ((caseInsensitive ? lower(letter) : letter) != entry[index]) return false;
  }
  const bool isWord = isWordAt(entry, 0);  // an entry is made of word characters or of none
  return !isWord || (!isWordBefore(text, at) && !isWordAt(text, at + entry.size()));
}

Rule words(const std::vector<std::string>& entries, bool caseInsensitive) {
  return [entries, caseInsensitive](std::string_view text, std::size_t at) -> std::optional<Match> {
    std::size_t longest = 0;
    for (const std::string& entry : entries) {
      if (entry.size() > longest && standsAt(text, at, entry, caseInsensitive)) longest = entry.size();
    }
    if (longest == 0) return {};
    return Match{at + longest, at, at + longest};
  };
}

Rule oneCharacter() {
  return [](std::string_view text, std::size_t at) -> std::optional<Match> {
    std::size_t end = at + 1;
    while (end < text.size() && (static_cast<unsigned char>(text[end]) & 0xC0) == 0x80) ++end;
    return Match{end, at, end};
  };
}

const std::vector<RuleRow>& blockRules() {
  static const std::vector<RuleRow> rules = {
      {nullptr, pattern(R"(\s+)")},
      {&Parser::BlockEndTag, pattern(R"(\?>)")},
      {&Parser::StringLiteral, literal('"')},
      {&Parser::RegexStringLiteral, pattern(R"(/.*?(?<!\\)/(?=\s*(&&|\|\||==|!=|>|>=|<|<=|\)|,|$|\z|\?>)))")},
      {&Parser::CharLiteral, literal('\'')},
      {&Parser::NonIntegralNumericLiteral,
       pattern(R"((([+-]?(\d+)?\.(\d+)([eE]\d+)?)|([+-]?\d+\.?(\d+([eE]\d+)?)?))(?=\b))")},
      {&Parser::IntegralNumericLiteral, pattern(R"(((0x[\da-fA-F]+)|([+-]?\d+))(?=\b))")},
      {&Parser::BooleanKeyword, words({"true", "false"}, true)},
      {&Parser::NullKeyword, words({"null"}, true)},
      {&Parser::Variable, pattern(R"(\$[\w\.@]+)")},
      {&Parser::IntrinsicVariable, pattern(R"(@@[\w]+)")},
      {&Parser::BinaryOperator,
       words({"%", "*", "/", "+", "-", "==", "!=", "=~", "<", ">", "<=", ">=", "&&", "||"}, false)},
      {&Parser::ControlKeyword,
       words({"if", "elseif", "else", "endif", "foreach", "endforeach", "function", "endfunction", "return"}, true)},
      {&Parser::AssignmentOperator, pattern("=")},
      {&Parser::ParenthesisStart, pattern(R"(\()")},
      {&Parser::ParenthesisEnd, pattern(R"(\))")},
      {&Parser::Symbol, pattern(R"(\w+)")},
      {&Parser::ArgumentSeparator, pattern(",")},
      {&Parser::Token, oneCharacter()},
  };
  return rules;
}

// The UTF-16 units and the line breaks before every byte of a text.
class Places {
 public:
  explicit Places(std::string_view text) : units_(text.size() + 1), breaks_(text.size() + 1) {
    for (std::size_t at = 0; at < text.size(); ++at) {
      const auto byte = static_cast<unsigned char>(text[at]);
      const bool startsCharacter = (byte & 0xC0) != 0x80;
      const bool isBreak = byte == '\r' || (byte == '\n' && (at == 0 || text[at - 1] != '\r'));
      units_[at + 1] = units_[at] + (startsCharacter ? 1 : 0) + (byte >= 0xF0 ? 1 : 0);
      breaks_[at + 1] = breaks_[at] + (isBreak ? 1 : 0);
    }
  }

  // Of the bytes from `start` to `end`, counted from `origin` with its first line `line`.
  PlainToken token(const KorTokenClass* tokenClass, std::size_t origin, std::int32_t line, std::size_t start,
                   std::size_t end) const {
    return {tokenClass,
            line + breaks_[start] - breaks_[origin],
            units_[start] - units_[origin],
            units_[end] - units_[start],
            static_cast<std::uint32_t>(start),
            static_cast<std::uint32_t>(end - start)};
  }

 private:
  std::vector<std::int32_t> units_;
  std::vector<std::int32_t> breaks_;
};

std::string describe(const PlainToken& token) {
  return parsing::nameOf(token.tokenClass) + " line " + std::to_string(token.line) + " at " +
         std::to_string(token.position) + "+" + std::to_string(token.length) + " bytes " +
         std::to_string(token.byteOffset) + "+" + std::to_string(token.byteLength);
}

// Cuts the block that starts at `at`, whose boundary ends at `end`, and answers with the block's end.
std::size_t scanBlock(std::string_view text, const Places& places, std::size_t start, std::size_t end,
                      PlainBlock& block) {
  std::size_t at = end;
  bool isClosed = false;
  while (!isClosed && at < text.size()) {
    for (const RuleRow& row : blockRules()) {
      const std::optional<Match> match = row.rule(text, at);
      if (!match.has_value()) continue;
      at = match->end;
      if (row.tokenClass == nullptr) break;
      block.subtokens.push_back(places.token(row.tokenClass, start, 0, match->tokenStart, match->tokenEnd));
      isClosed = row.tokenClass == &Parser::BlockEndTag;
      break;
    }
  }
  block.whole = places.token(nullptr, 0, 1, start, at);
  return at;
}

}  // namespace

std::vector<PlainBlock> scanPlainly(std::string_view text) {
  static const Rule whiteSpace = pattern(R"(\s+)");
  static const Rule boundary = pattern(R"(<\?)");
  static const Rule anything = oneCharacter();
  const Places places(text);
  std::vector<PlainBlock> blocks;
  for (std::size_t at = 0; at < text.size();) {
    if (const std::optional<Match> space = whiteSpace(text, at)) {
      at = space->end;
    } else if (const std::optional<Match> opening = boundary(text, at)) {
      at = scanBlock(text, places, at, opening->end, blocks.emplace_back());
    } else {
      at = anything(text, at)->end;
    }
  }
  return blocks;
}

std::string describe(const std::vector<PlainBlock>& blocks) {
  std::string result;
  for (const PlainBlock& block : blocks) {
    result += "\n" + describe(block.whole);
    for (const PlainToken& token : block.subtokens) result += "\n  " + describe(token);
  }
  return result;
}

}  // namespace tavlo::test
