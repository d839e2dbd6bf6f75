#include <gtest/gtest.h>

#include "Tests/Differential/WithoutAddresses.h"

namespace tavlo::test {

namespace {

TEST(WithoutAddresses, NumbersTheAddressesOfObjectsAsTheyAppear) {
  EXPECT_EQ(withoutAddresses("<A: 0x7f10>, <B: 0x20> <A: 0x7f10>"), "<A: #0>, <B: #1> <A: #0>");
}

TEST(WithoutAddresses, LeavesTextThatOnlyLooksLikeAnAddress) {
  EXPECT_EQ(withoutAddresses("<A: 0x7f10> literal: \"0x7f10: 0x7f10\" : 0x"),
            "<A: #0> literal: \"0x7f10: 0x7f10\" : 0x");
}

}  // namespace

}  // namespace tavlo::test
