#include <gtest/gtest.h>

#include <cstddef>
#include <string>

#include "Tests/Tool/WorkFolder.h"
#include "Tool/Failure.h"
#include "Tool/InputFile.h"

namespace tavlo {

namespace {

// Why a file of which no more than that may be read is refused; empty when it is not.
std::string refusal(const std::string& path, std::size_t most) {
  try {
    (void)readFile(path, most);
  } catch (const Failure& failure) {
    return failure.file == path ? failure.reason : failure.file;
  }
  return {};
}

TEST(AnInputFile, IsRefusedBeyondWhatMayBe) {
  EXPECT_EQ(refusal("/dev/zero", 100'000), "The file is longer than 100000 bytes");
  const WorkFolder folder;
  folder.write("text", std::string(1'000, 'x'));
  EXPECT_EQ(refusal(folder.path("text"), 100), "The file is longer than 100 bytes");
  EXPECT_EQ(refusal(folder.path("text"), 999), "The file is longer than 999 bytes");
  EXPECT_EQ(refusal(folder.path("text"), 0), "The file is longer than 0 bytes");
}

TEST(AnInputFile, IsReadWholeUpToWhatMayBe) {
  const WorkFolder folder;
  folder.write("text", std::string(1'000, 'x'));
  EXPECT_EQ(readFile(folder.path("text"), 1'000), std::string(1'000, 'x'));
  EXPECT_EQ(readFile(folder.path("text")), std::string(1'000, 'x'));
}

}  // namespace

}  // namespace tavlo
