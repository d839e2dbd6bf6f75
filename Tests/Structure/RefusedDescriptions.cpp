#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "Tests/Structure/Command.h"
#include "Tests/Structure/SourceTree.h"

namespace tavlo::test {

namespace {

// What a host writes around the line that is wrong.
const char* const kBefore =
    "#include \"Foundation/HostObject.h\"\n#include \"Foundation/LazyCollections.h\"\n"
    "struct Undescribed {};\nstruct Other {};\n"
    "struct Item { int n = 0; Undescribed inner; void run() {} int twice(int by) const { return n * by; } };\n"
    "void describeHostClass(tavlo::HostClass<Item>& item) {\n  item.name(\"Item\");\n  ";
const char* const kAfter = "\n}\nint main() { return tavlo::hostClass<Item>().className().empty(); }\n";

// The lines of the compiler's complaint that begin with an error.
std::string errorsAbout(const std::string& line) {
  const std::filesystem::path file = std::filesystem::path(testing::TempDir()) / "tavlo-refused-description.cpp";
  std::ofstream(file) << kBefore << line << kAfter;
  const CommandResult result = runCommand(quoted(TAVLO_COMPILER) + " -std=c++20 -fsyntax-only -I " +
                                          quoted(TAVLO_SOURCE_DIR) + " " + quoted(file.string()));
  std::filesystem::remove(file);
  std::string errors;
  for (const std::string& text : linesOf(result.output)) {
    if (text.find("error: ") != std::string::npos) errors += text.substr(text.find("error: ")) + "\n";
  }
  return errors;
}

struct RefusedRow {
  const char* line;
  const char* message;  // nothing for what is fine
};

TEST(AWrongDescription, IsRefusedInOneLine) {
  const RefusedRow rows[] = {
      {"item.property(\"n\", &Item::n);", ""},
      {"item.property(\"inner\", &Item::inner);", "HostClass::property: what the getter answers cannot become a value"},
      {"item.property(\"run\", &Item::run);", "HostClass::property: what the getter answers cannot become a value"},
      {"item.property(\"twice\", &Item::twice);", "HostClass::property: the getter must be callable with an object"},
      {"item.inherits<Other>();", "HostClass::inherits: the class does not derive publicly from that base"},
      {"item.lessThan([](const Item&) { return true; });", "HostClass: a comparison must be callable with two objects"},
      {"item.description(&Item::n);", "HostClass::description: the function must be callable with an object"},
      {"Undescribed u; (void)tavlo::hostReference(u);", "hostReference: the class has no describeHostClass()"},
      {"std::vector<Undescribed> u; (void)tavlo::lazyList(u);", "lazyList: the elements cannot become values"},
  };
  for (const RefusedRow& row : rows) {
    const std::string errors = errorsAbout(row.line);
    EXPECT_EQ(errors.empty(), *row.message == '\0') << row.line << "\n" << errors;
    EXPECT_NE(errors.find(row.message), std::string::npos) << row.line << "\n" << errors;
    EXPECT_LE(linesOf(errors).size(), 1U) << row.line << "\n" << errors;
  }
}

}  // namespace

}  // namespace tavlo::test
