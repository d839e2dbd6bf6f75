#include "Source/SourceExcerpt.h"

#include <algorithm>

#include "Foundation/Utf8.h"
#include "Source/PrintableText.h"
#include "Source/TextPlace.h"

namespace tavlo {

namespace {

constexpr std::string_view kCut = "...";
// How much of a line is shown before and after the caret, in bytes.
constexpr std::size_t kShown = 400;

// The part of the line that is shown around `offset`, whole characters each.
struct Window {
  std::size_t from;
  std::size_t to;
};

Window windowAround(std::string_view line, std::size_t offset) {
  Window window{offset > kShown ? offset - kShown : 0, std::min(line.size(), offset + kShown)};
  while (window.from > 0 && isContinuation(line[window.from])) --window.from;
  while (window.to < line.size() && isContinuation(line[window.to])) ++window.to;
  return window;
}

// Writes the text as it can be shown at `shown`, and what takes the same room but is blank at `blank`.
void show(std::string_view text, std::string& shown, std::string& blank) {
  while (!text.empty()) {
    const PrintableCharacter next = PrintableCharacter::firstOf(text);
    shown += next.shown;
    blank.append(next.width, text.front() == '\t' ? '\t' : ' ');
    text.remove_prefix(next.byteLength);
  }
}

}  // namespace

std::string excerptAround(std::string_view text, std::size_t offset) {
  // A line may be as long as the text: no more of it is looked through than is shown, and enough to see that it goes
  // on.
  constexpr std::size_t kReach = 2 * kShown;
  offset = std::min(offset, text.size());
  const std::size_t start = offset > kReach ? offset - kReach : 0;
  text = text.substr(start, offset - start + kReach);
  offset -= start;
  const std::string_view line = lineAround(text, offset);
  const std::size_t before = std::min(line.size(), offset - static_cast<std::size_t>(line.data() - text.data()));
  const Window window = windowAround(line, before);
  std::string shown(window.from == 0 ? "" : kCut);
  std::string blank(shown.size(), ' ');
  show(line.substr(window.from, before - window.from), shown, blank);
  std::string unused;
  show(line.substr(before, window.to - before), shown, unused);
  if (window.to < line.size()) shown += kCut;
  return shown + '\n' + blank + "^\n";
}

}  // namespace tavlo
