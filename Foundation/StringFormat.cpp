#include "Foundation/StringFormat.h"

#include "Foundation/WorkMeter.h"

namespace tavlo {

namespace {

bool isPlaceholder(char letter) {
  return letter == '@' || letter == 's' || letter == 'd';
}

}  // namespace

std::string formattedString(std::string_view format, std::span<const FormatArgument> arguments) {
  constexpr std::size_t kLongText = std::size_t{1} << 20;
  std::string result;
  std::size_t used = 0;
  for (std::size_t at = 0; at < format.size(); ++at) {
    const char next = at + 1 < format.size() ? format[at + 1] : '\0';
    if (format[at] != '%' || (next != '%' && (!isPlaceholder(next) || used == arguments.size()))) {
      result += format[at];
      continue;
    }
    ++at;
    if (next == '%') {
      result += '%';
      continue;
    }
    const FormatArgument& argument = arguments[used++];
    if (argument.isText()) {
      result += argument.text();
    } else {
      const std::string text = argument.value().description();
      result.reserve(result.size() + text.size() + format.size() - at);  // a long one is not to grow by what follows
      result += text;
    }
    if (result.size() >= kLongText) lookBeforeHost();  // making it has taken as long
  }
  return result;
}

}  // namespace tavlo
