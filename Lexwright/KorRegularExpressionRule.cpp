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

void KorRegularExpressionRule::setRecognisersEnabled(bool enabled) noexcept {
  recognisersEnabled.store(enabled, std::memory_order_relaxed);
}

const KorRegex& KorRegularExpressionRule::regex() const {
  std::call_once(compiledOnce_, [this] { regex_ = KorRegex::compileExpression(pattern_); });
  return *regex_;
}

bool KorRegularExpressionRule::match(ScanContext& context, std::uint32_t at, RuleMatch& match) const {
  std::uint32_t end = at;
  if (recogniser_ != nullptr && recognisersEnabled.load(std::memory_order_relaxed)) {
    SearchMemo unused;
    end = recogniser_(context.text(), at, remembers_ ? context.memoOf(*this) : unused);
  } else if (const std::optional<std::size_t> found = regex().matchEnd(context.text(), at)) {
    end = static_cast<std::uint32_t>(*found);
  }
  match = {end, at, end};
  return end > at;
}

}  // namespace tavlo
