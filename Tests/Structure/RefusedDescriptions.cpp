#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "Tests/Structure/Command.h"
#include "Tests/Structure/SourceTree.h"

namespace tavlo::test {

namespace {

// What a host writes around a line that is wrong, in a namespace of its own.
std::string descriptionWith(const std::string& line, std::size_t number) {
  return "namespace host" + std::to_string(number) +
         " {\nstruct Undescribed {};\nstruct Other {};\nenum Unfixed { kOnly };\n"
         "struct Item { int n = 0; Undescribed inner; void run() {} void take(Unfixed) {} int twice(int by) const { "
         "return n * by; } };\n"
         "void describeHostClass(tavlo::HostClass<Item>& item) {\n  item.name(\"Item\");\n  " +
         line + "\n}\n}\n";
}

// The compiler's errors, each from its text on.
std::vector<std::string> errorsAbout(const std::string& descriptions) {
  const std::filesystem::path file = std::filesystem::path(testing::TempDir()) / "tavlo-refused-description.cpp";
  std::ofstream(file) << "#include \"Foundation/HostObject.h\"\n#include \"Foundation/LazyCollections.h\"\n"
                      << descriptions;
  const CommandResult result = runCommand(quoted(TAVLO_COMPILER) + " -std=c++20 -fsyntax-only -I " +
                                          quoted(TAVLO_SOURCE_DIR) + " " + quoted(file.string()));
  std::filesystem::remove(file);
  std::vector<std::string> errors;
  for (const std::string& text : linesOf(result.output)) {
    if (text.find("error: ") != std::string::npos) errors.push_back(text.substr(text.find("error: ")));
  }
  return errors;
}

struct RefusedRow {
  const char* line;
  const char* message;
};

TEST(AWrongDescription, IsRefusedInOneLine) {
  const RefusedRow rows[] = {
      {"item.property(\"inner\", &Item::inner);", "HostClass::property: what the getter answers cannot become a value"},
      {"item.property(\"run\", &Item::run);", "HostClass::property: what the getter answers cannot become a value"},
      {"item.property(\"twice\", &Item::twice);", "HostClass::property: the getter must be callable with an object"},
      {"item.method(\"take:\", &Item::take);", "A template may pass any number to this enumeration"},
      {"item.inherits<Other>();", "HostClass::inherits: the class does not derive publicly from that base"},
      {"item.lessThan([](const Item&) { return true; });", "HostClass: a comparison must be callable with two objects"},
      {"item.description(&Item::n);", "HostClass::description: the function must be callable with an object"},
      {"Undescribed u; (void)tavlo::hostReference(u);", "hostReference: the class has no describeHostClass()"},
      {"std::vector<Undescribed> u; (void)tavlo::lazyList(u);", "lazyList: the elements cannot become values"},
  };
  std::string descriptions;
  std::vector<testing::Matcher<std::string>> expected;
  for (const RefusedRow& row : rows) {
    descriptions += descriptionWith(row.line, expected.size());
    expected.push_back(testing::HasSubstr(row.message));
  }
  EXPECT_THAT(errorsAbout(descriptions), testing::UnorderedElementsAreArray(expected));
}

TEST(ARightDescription, MakesTheCompilerSayNothing) {
  EXPECT_THAT(errorsAbout(descriptionWith("item.property(\"n\", &Item::n);", 0)), testing::IsEmpty());
}

}  // namespace

}  // namespace tavlo::test
