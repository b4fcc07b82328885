// The names that a site's devices, hub and tools agree on.
#include "protocol/site_names.h"

#include <gtest/gtest.h>

#include <string>

namespace {

namespace bs = businessserver;

TEST(SiteNames, ZonesAreOneToEightNamesOfOneToThirtyTwoPlainCharacters) {
  const std::string longest(32, 'a');
  const struct {
    std::string text;
    bool name, zone;
  } kRows[] = {
      {"L2", true, true},
      {"", false, false},
      {"L2/B", false, true},
      {"/L2", false, false},
      {"L2/", false, false},
      {"L2//B", false, false},
      {longest, true, true},
      {longest + "a", false, false},
      {"L/" + longest, false, true},
      {"L/" + longest + "a", false, false},
      {"1/2/3/4/5/6/7/8", false, true},
      {"1/2/3/4/5/6/7/8/9", false, false},
      {"AZaz09_-", true, true},
      {"+", false, false},
      {"L2/#", false, false},
      {"L 2", false, false},
      {"Überfahrt", false, false},
      {std::string("L\0B", 3), false, false},
  };
  for (const auto& row : kRows) {
    EXPECT_EQ(bs::IsSiteName(row.text), row.name) << row.text;
    EXPECT_EQ(bs::IsZone(row.text), row.zone) << row.text;
  }
}

TEST(SiteNames, AZoneHoldsWhatIsBelowItAndNothingBeside) {
  EXPECT_TRUE(bs::IsWithin("L2", "L2") && bs::IsWithin("L2/B", "L2") && bs::IsWithin("L2/B/1", "L2/B"));
  EXPECT_FALSE(bs::IsWithin("L20", "L2") || bs::IsWithin("L2", "L2/B") || bs::IsWithin("L2/BB", "L2/B"));
  EXPECT_EQ(bs::ZoneFilter("garage", "L2/C"), "park/garage/counts/+/L2/C/#");
  EXPECT_EQ(bs::CountsTopic("garage", "L2-C-003", "L2/C"), "park/garage/counts/L2-C-003/L2/C");
}

}  // namespace
