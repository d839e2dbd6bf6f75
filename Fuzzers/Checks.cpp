#include "Fuzzers/Checks.h"

#include <cstdio>
#include <cstdlib>

namespace tavlo::fuzz {

namespace {

void show(const char* title, std::string_view text) {
  std::fprintf(stderr, "--- %s\n", title);
  std::fwrite(text.data(), 1, text.size(), stderr);
  std::fputc('\n', stderr);
}

}  // namespace

void fail(std::string_view what) {
  show("A check has failed", what);
  std::abort();
}

void requireEqual(std::string_view found, std::string_view expected, std::string_view what) {
  if (found == expected) return;
  show("expected", expected);
  show("found", found);
  fail(what);
}

void requirePrefix(std::string_view prefix, std::string_view whole, std::string_view what) {
  if (whole.starts_with(prefix)) return;
  show("should begin", whole);
  show("with", prefix);
  fail(what);
}

std::pair<std::string, std::string> partsOf(const std::uint8_t* data, std::size_t size) {
  const std::string_view input(reinterpret_cast<const char*>(data), size);
  const std::size_t end = input.find('\0');
  if (end == std::string_view::npos) return {std::string(input), std::string()};
  return {std::string(input.substr(0, end)), std::string(input.substr(end + 1))};
}

}  // namespace tavlo::fuzz
