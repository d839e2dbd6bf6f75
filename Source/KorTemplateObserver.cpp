#include "Source/KorTemplateObserver.h"

namespace tavlo {

std::string KorTemplateObservation::text() const {
  static constexpr const char* kKinds[] = {"variable", "key", "function"};
  const std::string what = kKinds[static_cast<std::size_t>(kind)];
  return "Undefined " + what + " \"" + name + "\" at " + trace.place.description();
}

void KorTemplateObserver::setPolicy(KorTemplateUndefinedPolicy policy) noexcept {
  for (Row& row : rows_) row.policy = policy;
}

std::uint64_t KorTemplateObserver::count() const noexcept {
  std::uint64_t sum = 0;
  for (const Row& row : rows_) sum += row.count;
  return sum;
}

void KorTemplateObserver::resetCounts() noexcept {
  for (Row& row : rows_) row.count = 0;
}

}  // namespace tavlo
