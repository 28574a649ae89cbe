#include <gtest/gtest.h>

#include "verify/Sweep.h"

namespace ixocamglue::test {
using namespace ixoverify;
namespace {

TEST(AbortSweep, WhateverEndsAProcedureTheMachineEndsSafe) {
  const TSweepResult result = RunSweep({.Points = 1500, .Seed = 20261121});
  for (const std::string& violation : result.Violations) ADD_FAILURE() << violation;
  EXPECT_EQ(result.ViolationCount, 0u);
  EXPECT_EQ(result.Survived(), result.Run());
  EXPECT_EQ(result.SavedByLatch(), 0u);
  for (const TSweepRow& row : result.Rows) EXPECT_GT(row.Run, 0u) << row.Procedure << " " << row.Dimension;
}

}  // namespace
}  // namespace ixocamglue::test
