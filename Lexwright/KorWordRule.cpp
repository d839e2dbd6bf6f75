#include "Lexwright/KorWordRule.h"

#include <algorithm>

#include "Foundation/Utf8.h"
#include "Matchery/KorRegex.h"

namespace tavlo {

namespace {

bool isMadeOfWordCharacters(std::string_view text) {
  for (std::size_t at = 0; at < text.size();) {
    const CodePoint next = codePointAt(text, at);
    if (!isWordCharacter(next.value)) return false;
    at += next.byteLength;
  }
  return true;
}

}  // namespace

KorWordRule::KorWordRule(const std::vector<std::string>& dictionary, bool caseInsensitive,
                         const KorTokenClass* tokenClass)
    : KorScannerRule(tokenClass), caseInsensitive_(caseInsensitive) {
  for (const std::string& word : dictionary) {
    if (word.empty()) continue;
    requireValidUTF8(word);
    std::string text;
    for (const char byte : word) text += static_cast<char>(folded(byte));
    entries_[folded(word.front())].push_back({text, isMadeOfWordCharacters(word)});
  }
  for (std::vector<Entry>& list : entries_) {
    std::ranges::stable_sort(
        list, [](const Entry& left, const Entry& right) { return left.text.size() > right.text.size(); });
  }
}

unsigned char KorWordRule::folded(char byte) const noexcept {
  const bool isUpper = byte >= 'A' && byte <= 'Z';
  return static_cast<unsigned char>(caseInsensitive_ && isUpper ? byte - 'A' + 'a' : byte);
}

FirstBytes KorWordRule::firstBytes() const {
  FirstBytes bytes;
  for (unsigned byte = 0; byte < entries_.size(); ++byte) {
    if (!entries_[folded(static_cast<char>(byte))].empty()) bytes.set(byte);
  }
  return bytes;
}

bool KorWordRule::match(ScanContext& context, std::uint32_t at, RuleMatch& match) const {
  for (const Entry& entry : entries_[folded(context.text()[at])]) {
    if (!matches(entry, context.stream(), at)) continue;
    const auto end = at + static_cast<std::uint32_t>(entry.text.size());
    match = {end, at, end};
    return true;
  }
  return false;
}

// The first bytes are known to be the same.
bool KorWordRule::matches(const Entry& entry, const KorUnicharStream& stream, std::uint32_t at) const {
  const std::string_view text = stream.text();
  const std::size_t size = entry.text.size();
  if (text.size() - at < size) return false;
  for (std::size_t index = 1; index < size; ++index) {
    if (folded(text[at + index]) != static_cast<unsigned char>(entry.text[index])) return false;
  }
  if (!entry.isWord) return true;
  const CodePoint before = stream.characterBefore(at);
  const CodePoint after = stream.characterAt(at + static_cast<std::uint32_t>(size));
  return (before.byteLength == 0 || !isWordCharacter(before.value)) &&
         (after.byteLength == 0 || !isWordCharacter(after.value));
}

}  // namespace tavlo
