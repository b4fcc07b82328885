#include "site_judge.h"

#include <gtest/gtest.h>

namespace trials {
namespace {

FreeHistory::Instant At(int seconds) { return FreeHistory::Instant(std::chrono::seconds(1000 + seconds)); }

TEST(SiteJudge, KnowsTheMostThatWasFreeOfLate) {
  FreeHistory history;
  const auto note = [&](int seconds, int free) { history.Note(At(seconds), free, At(seconds - 70)); };
  EXPECT_EQ(history.Most(At(0)), 0);
  note(0, 3);
  note(10, 1);
  note(50, 2);
  const struct { int from, most; } kRows[] = {{0, 3}, {10, 3}, {11, 2}, {50, 2}, {500, 2}};
  for (const auto& row : kRows) EXPECT_EQ(history.Most(At(row.from)), row.most) << row.from;
  note(90, 0);  // three were free until 10, which is more than 70 s ago
  EXPECT_EQ(history.Most(At(20)), 2);
  EXPECT_EQ(history.Most(At(95)), 0);
}

TEST(SiteJudge, NamesWhatCannotBe) {
  const std::pair<Claim, const char*> kRows[] = {
      {{0, 0}, ""},
      {{6, 4}, ""},
      {{7, 0}, "counts more than 6"},
      {{6, 5}, "counts more free than the 4 of the last 70 s"},
      {{3, 5}, "counts more free than the 4 of the last 70 s"},
  };
  for (const auto& [pushed, fault] : kRows) EXPECT_EQ(Judge(pushed, {6, 4}), fault) << pushed.spaces;
}

}  // namespace
}  // namespace trials
