#include <gtest/gtest.h>

#include "contracts/RecoveryError.h"

namespace vorna::contracts {
namespace {

TEST(RecoveryErrorTest, DescriptionIsTheFixedPrefixAndTheDetail) {
  EXPECT_EQ(RecoveryError::storeUnavailable("disk full").description(),
            "recovery store unavailable: disk full");
  EXPECT_EQ(RecoveryError::notFound("draft 1A2B").description(), "not found: draft 1A2B");
  EXPECT_EQ(RecoveryError::identityMismatch("/w").description(), "workspace identity mismatch: /w");
  EXPECT_EQ(RecoveryError::stale("x").description(), "stale: x");
}

TEST(RecoveryErrorTest, ThrownAsAnExceptionWithItsDescription) {
  try {
    throw RecoveryError::notFound("conflict C");
  } catch (const std::exception& error) {
    EXPECT_STREQ(error.what(), "not found: conflict C");
  }
}

}  // namespace
}  // namespace vorna::contracts
