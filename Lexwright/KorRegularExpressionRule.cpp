#include "Lexwright/KorRegularExpressionRule.h"

#include <atomic>

#include "Foundation/NSException.h"

namespace tavlo {

namespace {
std::atomic<bool> recognisersEnabled{true};
}

KorRegularExpressionRule::KorRegularExpressionRule(const Text& pattern, const KorTokenClass* tokenClass,
                                                   Recogniser recogniser, const FirstBytes& firstBytes, bool remembers)
    : KorScannerRule(tokenClass),
      pattern_(pattern.view()),
      recogniser_(recogniser),
      firstBytes_(firstBytes),
      remembers_(remembers) {
  requireParameter(!pattern.isAbsent(), "pattern != nil");
}

bool KorRegularExpressionRule::areRecognisersEnabled() noexcept {
  return recognisersEnabled.load(std::memory_order_relaxed);
}

void KorRegularExpressionRule::setRecognisersEnabled(bool enabled) noexcept {
  recognisersEnabled.store(enabled, std::memory_order_relaxed);
}

// The whole of a pattern that has no operators: signs that mean themselves, or that a backslash makes do so.
std::string KorRegularExpressionRule::opening() const {
  constexpr std::string_view kPlain = "<>=,;:!%&~'\"@";
  constexpr std::string_view kEscaped = "?*+.()[]{}|^$/\\";
  std::string text;
  for (std::size_t at = 0; at < pattern_.size(); ++at) {
    const bool isEscaped = pattern_[at] == '\\' && at + 1 < pattern_.size();
    if (isEscaped) ++at;
    if ((isEscaped ? kEscaped : kPlain).find(pattern_[at]) == std::string_view::npos) return {};
    text += pattern_[at];
  }
  return text;
}

const KorRegex& KorRegularExpressionRule::regex() const {
  compiledOnce_.run([this] { regex_ = KorRegex::compileExpression(pattern_); });
  return *regex_;
}

bool KorRegularExpressionRule::match(ScanContext& context, std::uint32_t at, RuleMatch& match) const {
  std::uint32_t end = at;
  if (recogniser_ != nullptr && context.usesRecognisers()) {
    end = recogniser_(context.text(), at, remembers_ ? context.memoOf(*this) : context.nobodysMemo());
  } else if (const std::optional<std::size_t> found = regex().matchEnd(context.text(), at)) {
    end = static_cast<std::uint32_t>(*found);
  }
  match = {end, at, end};
  return end > at;
}

}  // namespace tavlo
