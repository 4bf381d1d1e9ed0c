#include <gtest/gtest.h>

#include "Support/SimulatedMachine.h"

namespace installer::testing {
namespace {

TEST(DigestContract, Placeholder) {
  EXPECT_EQ(sha256(""), "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
}

}  // namespace
}  // namespace installer::testing
