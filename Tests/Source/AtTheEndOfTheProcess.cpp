#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "Foundation/NSArray.h"
#include "Tests/Source/HostClasses.h"

namespace tavlo::test {

namespace {

// Of everything that a running template may make once for the process or for the thread.
constexpr const char* kPage =
    "<? function f($x) ?><? return $x.@count + @@index ?><? endfunction ?>"
    "<? foreach ($e in $list) ?><?= $e =~ /b.?c/ ?><?= $e =~ /(?x) b .* c/ ?><?= f($list) ?><? endforeach ?>";
constexpr const char* kOutput = "112003";

std::string rendered() {
  const Stage stage;
  stage.set("list", NSArray::arrayWithObjects({"abc", "x"}));
  stage.run(kPage);
  return stage.text();
}

struct RendersAtEnd {
  ~RendersAtEnd() {
    if (rendered() != kOutput) std::_Exit(2);
    std::_Exit(0);
  }
};

[[noreturn]] void renderAndExit() {
  static const RendersAtEnd atEnd;  // made first, and so ended last
  if (rendered() != kOutput) std::_Exit(1);
  std::exit(3);  // NOLINT(concurrency-mt-unsafe): there is one thread
}

TEST(TheEndOfTheProcess, IsNotTooLateForAStaticObjectToRender) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");  // a process of its own, in which nothing was made before
  EXPECT_EXIT(renderAndExit(), testing::ExitedWithCode(0), testing::IsEmpty());
}

}  // namespace

}  // namespace tavlo::test
