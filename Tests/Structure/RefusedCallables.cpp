#include <gtest/gtest.h>

#include <map>
#include <sstream>
#include <string>

#include "Tests/Structure/Command.h"

namespace tavlo::test {

namespace {

// What the compiler says where a host gives these callables to templates.
std::string complaintsAbout(const std::string& statements) {
  const std::string source =
      "#include <functional>\n#include <memory>\n#include <optional>\n#include <span>\n#include <string>\n"
      "#include \"Source/KorTemplateCallableFunction.h\"\n"
      "struct Unknown {};\nenum Unfixed { kOnly };\n"
      "enum Named { kNamed };\nenum Fixed : int { kFixed };\n"
      "constexpr auto describeEnum(Named) { return tavlo::enumNames<Named>({{kNamed, \"named\"}}); }\n"
      "struct Two { int operator()(int); int operator()(double); };\n"
      "void host(tavlo::KorTemplateEnvironment& environment) {\n" +
      statements + "}\n";
  return runCommand("printf %s " + quoted(source) + " | " + quoted(TAVLO_COMPILER) +
                    " -std=c++20 -Wall -Wextra -fsyntax-only -I " + quoted(TAVLO_SOURCE_DIR) + " -x c++ -")
      .output;
}

std::string setFunction(const std::string& callables) {
  return "environment.setFunction(\"f\", " + callables + ");\n";
}

constexpr const char* kNoCallable =
    "this cannot be called by a template: it must be a function, or an object with one call operator";
constexpr const char* kParameter = "this parameter cannot be made from a template's value";
constexpr const char* kEnumeration = "this enumeration cannot hold every number that a template may pass";
constexpr const char* kResult = "this result cannot become a template's value";
constexpr const char* kOrder = "the environment must be the first parameter";
constexpr const char* kCounts = "two callables of one function take the same number of arguments";

// How many of the compiler's errors have each text; an error that has none of them stands for itself.
std::map<std::string, int> errorsIn(const std::string& output) {
  std::map<std::string, int> errors;
  std::istringstream lines(output);
  for (std::string line; std::getline(lines, line);) {
    if (line.find("error:") == std::string::npos) continue;
    std::string text = line;
    for (const char* const known : {kNoCallable, kParameter, kEnumeration, kResult, kOrder, kCounts}) {
      if (line.find(known) != std::string::npos) text = known;
    }
    ++errors[text];
  }
  return errors;
}

struct RefusalRow {
  const char* callables;
  const char* message;
};

TEST(Callables, AreRefusedByTheCompilerInOneLineEach) {
  const RefusalRow rows[] = {
      {"[](auto number) { return number; }", kNoCallable},
      {"Two()", kNoCallable},
      {"42", kNoCallable},
      {"[](Unknown) {}", kParameter},
      {"[](int, std::string&) {}", kParameter},
      {"[](const std::span<const int>&) {}", kParameter},
      {"[](std::unique_ptr<int>) {}", kParameter},
      {"[](Unfixed) {}", kEnumeration},
      {"[](int, const Unfixed&) {}", kEnumeration},
      {"[](std::optional<Unfixed>) {}", kParameter},
      {"[] { return Unknown(); }", kResult},
      {"[](int, tavlo::KorTemplateEnvironment&) {}", kOrder},
      {"[](std::span<const tavlo::Value>, int) {}", kOrder},
      {"[](int) {}, [](double) {}", kCounts},
      {"[](int) {}, [](int, std::optional<int>) {}, [](int, int) {}", kCounts},
  };
  std::string statements;
  std::map<std::string, int> expected;
  for (const RefusalRow& row : rows) {
    statements += setFunction(row.callables);
    ++expected[row.message];
  }
  const std::string output = complaintsAbout(statements);
  EXPECT_EQ(errorsIn(output), expected) << output;
}

TEST(Callables, OfConvertibleTypesMakeTheCompilerSayNothing) {
  EXPECT_EQ(
      complaintsAbout(setFunction("[](int, const std::string&) { return 1.5; }") +
                      setFunction("[](Named, Fixed) { return kOnly; }") +
                      setFunction("[](std::span<const int>) {}, [](int, int, std::optional<int>&&) { return \"\"; }")),
      "");
}

}  // namespace

}  // namespace tavlo::test
