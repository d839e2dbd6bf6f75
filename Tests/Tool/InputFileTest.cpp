#include <gtest/gtest.h>

#include <string>

#include "Tests/Tool/WorkFolder.h"
#include "Tool/InputFile.h"

namespace tavlo {

namespace {

TEST(AnInputFile, IsReadNotMuchFurtherThanWhatIsRefused) {
  const std::string endless = readFile("/dev/zero", 100'000);
  EXPECT_GT(endless.size(), 100'000U);
  EXPECT_LT(endless.size(), 300'000U);
  const WorkFolder folder;
  folder.write("text", std::string(1'000, 'x'));
  EXPECT_EQ(readFile(folder.path("text"), 100).size(), 101U);
  EXPECT_EQ(readFile(folder.path("text"), 999).size(), 1'000U);
}

TEST(AnInputFile, IsReadWholeUpToWhatMayBe) {
  const WorkFolder folder;
  folder.write("text", std::string(1'000, 'x'));
  EXPECT_EQ(readFile(folder.path("text"), 1'000), std::string(1'000, 'x'));
  EXPECT_EQ(readFile(folder.path("text")), std::string(1'000, 'x'));
}

}  // namespace

}  // namespace tavlo
