#include <gtest/gtest.h>

#include "verify/Soak.h"

namespace ixocamglue::test {
using namespace ixoverify;
namespace {

TEST(Soak, TheSameSeedGivesTheSameJournalAndNothingUnsafe) {
  const auto hour = [](std::uint64_t seed) {
    const TSoakResult result = RunSoak({.Days = 2, .Seed = seed, .DayMs = 3'600'000});
    for (const std::string& violation : result.Violations) ADD_FAILURE() << violation;
    EXPECT_EQ(result.Last.Day, 2u);
    EXPECT_EQ(result.Last.Runs, 24u);
    return result.Last.Hash;
  };
  const std::uint64_t first = hour(7);
  EXPECT_EQ(hour(7), first);
  EXPECT_NE(hour(8), first);
}

}  // namespace
}  // namespace ixocamglue::test
