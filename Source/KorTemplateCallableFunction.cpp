#include "Source/KorTemplateCallableFunction.h"

#include <algorithm>
#include <vector>

namespace tavlo {

Value KorTemplateCallableFunction::invokeWithEnvironment(KorTemplateEnvironment* environment,
                                                         ListArgument<Value> arguments) {
  requireParameter(environment != nullptr, "environment != nil");
  requireParameter(!arguments.isAbsent(), "args != nil");
  return environment->enter([&] {
    environment->checkStack();
    return Value::adopt(invoke(*environment, arguments.span()));
  });
}

const char* KorTemplateCallableFunction::className() const {
  return "KorTemplateCallableFunction";
}

namespace {

// The counts in ascending order, those that follow one another as one.
std::vector<ArgumentCounts> joined(std::span<const ArgumentCounts> counts) {
  std::vector<ArgumentCounts> sorted(counts.begin(), counts.end());
  std::ranges::sort(sorted, {}, &ArgumentCounts::least);
  std::vector<ArgumentCounts> result;
  for (const ArgumentCounts& next : sorted) {
    if (!result.empty() && next.least == result.back().most + 1) {
      result.back().most = next.most;
    } else {
      result.push_back(next);
    }
  }
  return result;
}

// "2", "1 to 2" or "at least 1"
std::string textOf(const ArgumentCounts& counts) {
  if (counts.most == ArgumentCounts::kAnyNumber) return stringWithFormat("at least %d", counts.least);
  if (counts.least == counts.most) return stringWithFormat("%d", counts.least);
  return stringWithFormat("%d to %d", counts.least, counts.most);
}

}  // namespace

void KorTemplateCallableFunction::raiseArgumentCount(std::size_t supplied,
                                                     std::span<const ArgumentCounts> expected) const {
  std::string text;
  for (const ArgumentCounts& counts : joined(expected)) text += (text.empty() ? "" : " or ") + textOf(counts);
  NSException::raise(NSGenericException, "%@. Incorrect number of arguments: %d supplied, %@ expected.", functionName_,
                     supplied, text);
}

void KorTemplateCallableFunction::raiseArgumentType(std::size_t position, const std::string& typeName,
                                                    const std::string& expected) const {
  constexpr std::size_t kFirstPosition = 2;
  NSException::raise(NSGenericException, "Incorrect type for %@ argument at index %d of %@. %@ expected.", typeName,
                     position + kFirstPosition, functionName_, expected);
}

}  // namespace tavlo
