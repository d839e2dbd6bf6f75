#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "Tests/Structure/Command.h"
#include "Tests/Structure/SourceTree.h"

namespace tavlo::test {

namespace {

// The lines in which the compiler calls something an error when a host's function has this body.
std::vector<std::string> errorsOf(const std::string& body) {
  const std::string source =
      "#include <functional>\n#include <memory>\n#include <span>\n#include \"Source/KorTemplateCallableFunction.h\"\n"
      "struct Unknown {};\nstruct Two { int operator()(int); int operator()(double); };\n"
      "void host(tavlo::KorTemplateEnvironment& environment) { environment.setFunction(\"f\", " +
      body + "); }\n";
  const CommandResult result =
      runCommand("printf %s " + quoted(source) + " | " + quoted(TAVLO_COMPILER) +
                 " -std=c++20 -Wall -Wextra -fsyntax-only -I " + quoted(TAVLO_SOURCE_DIR) + " -x c++ -");
  std::vector<std::string> errors;
  std::istringstream lines(result.output);
  for (std::string line; std::getline(lines, line);) {
    if (line.find("error:") != std::string::npos) errors.push_back(line);
  }
  return errors;
}

struct RefusalRow {
  const char* callable;
  const char* message;  // null where it compiles
};

class Callables : public testing::TestWithParam<RefusalRow> {};

TEST_P(Callables, AreRefusedInOneLineByTheCompiler) {
  const std::vector<std::string> errors = errorsOf(GetParam().callable);
  if (GetParam().message == nullptr) {
    EXPECT_EQ(errors, std::vector<std::string>()) << GetParam().callable;
    return;
  }
  ASSERT_EQ(errors.size(), 1U) << GetParam().callable << "\n" << (errors.size() > 1 ? errors[1] : "compiles");
  EXPECT_NE(errors[0].find(GetParam().message), std::string::npos) << errors[0];
}

constexpr const char* kNoCallable = "this cannot be called by a template: it must be a function, or an object with one";
constexpr const char* kParameter = "this parameter cannot be made from a template's value";
constexpr const char* kResult = "this result cannot become a template's value";
constexpr const char* kOrder = "the environment must be the first parameter";
constexpr const char* kCounts = "two callables of one function take the same number of arguments";

INSTANTIATE_TEST_SUITE_P(
    OfAHost, Callables,
    testing::Values(RefusalRow{"[](int, const std::string&) { return 1.5; }", nullptr},
                    RefusalRow{"[](auto number) { return number; }", kNoCallable}, RefusalRow{"Two()", kNoCallable},
                    RefusalRow{"42", kNoCallable}, RefusalRow{"[](Unknown) {}", kParameter},
                    RefusalRow{"[](int, std::string&) {}", kParameter},
                    RefusalRow{"[](const std::span<const int>&) {}", kParameter},
                    RefusalRow{"[](std::unique_ptr<int>) {}", kParameter},
                    RefusalRow{"[] { return Unknown(); }", kResult},
                    RefusalRow{"[](int, tavlo::KorTemplateEnvironment&) {}", kOrder},
                    RefusalRow{"[](std::span<const tavlo::Value>, int) {}", kOrder},
                    RefusalRow{"[](int) {}, [](double) {}", kCounts},
                    RefusalRow{"[](int) {}, [](int, std::optional<int>) {}, [](int, int) {}", kCounts}));

}  // namespace

}  // namespace tavlo::test
