#include "Foundation/StringFormat.h"

namespace tavlo {

namespace {

bool isPlaceholder(char letter) {
  return letter == '@' || letter == 's' || letter == 'd';
}

}  // namespace

std::string formattedString(std::string_view format, std::span<const FormatArgument> arguments) {
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
    result += argument.isText() ? std::string(argument.text()) : argument.value().description();
  }
  return result;
}

}  // namespace tavlo
