#include "catalog/records.h"

#include <algorithm>
#include <array>
#include <limits>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;

BackupSet SetOfTime(std::int64_t create_time) {
  BackupSet set;
  set.create_time = create_time;
  return set;
}

TEST(Records, TheEarlierSetComesFirst) {
  EXPECT_TRUE(backup_set_compare(SetOfTime(1600000000), SetOfTime(1600000001)));
  EXPECT_FALSE(backup_set_compare(SetOfTime(1600000001), SetOfTime(1600000000)));
}

TEST(Records, SetsOfTheSameSecondAreEquivalent) {
  EXPECT_FALSE(backup_set_compare(SetOfTime(1600000000), SetOfTime(1600000000)));
}

TEST(Records, NegativeTimesComeBeforeAllOthers) {
  EXPECT_TRUE(backup_set_compare(SetOfTime(-1), SetOfTime(0)));
  EXPECT_FALSE(backup_set_compare(SetOfTime(0), SetOfTime(-1)));
  EXPECT_TRUE(backup_set_compare(SetOfTime(-2), SetOfTime(-1)));
}

TEST(Records, TimesAreComparedInAllTheir64Bits) {
  constexpr std::int64_t kLowest = std::numeric_limits<std::int64_t>::min();
  constexpr std::int64_t kHighest = std::numeric_limits<std::int64_t>::max();
  EXPECT_TRUE(backup_set_compare(SetOfTime(kLowest), SetOfTime(kHighest)));
  EXPECT_FALSE(backup_set_compare(SetOfTime(kHighest), SetOfTime(kLowest)));
  EXPECT_TRUE(backup_set_compare(SetOfTime(1), SetOfTime(0x100000000)));
}

TEST(Records, OnlyTheTimeIsCompared) {
  BackupSet a = SetOfTime(5);
  a.policy = a.client = a.schedule = a.backup_id = "a";
  a.backup_size = 1;
  a.image_ids = {"a"};
  BackupSet b = SetOfTime(5);
  b.policy = b.client = b.schedule = b.backup_id = "b";
  b.backup_size = 2;
  b.image_ids = {"b"};
  EXPECT_FALSE(backup_set_compare(a, b));
  EXPECT_FALSE(backup_set_compare(b, a));
  a.create_time = 6;
  EXPECT_FALSE(backup_set_compare(a, b));
  EXPECT_TRUE(backup_set_compare(b, a));
}

TEST(Records, ThePredicateSortsIntoAscendingTime) {
  std::vector<BackupSet> sets = {SetOfTime(3), SetOfTime(-7), SetOfTime(3), SetOfTime(0)};
  std::sort(sets.begin(), sets.end(), backup_set_compare);
  std::vector<std::int64_t> times;
  times.reserve(sets.size());
  for (const BackupSet& set : sets) {
    times.push_back(set.create_time);
  }
  EXPECT_THAT(times, ElementsAre(-7, 0, 3, 3));
}

TEST(Records, NewRecordsAreEmpty) {
  const BackupImage image;
  EXPECT_THAT((std::array{image.backup_id, image.size, image.last_field, image.policy,
                          image.schedule, image.client}),
              Each(IsEmpty()));
  EXPECT_EQ(image.backup_time, 0);
  EXPECT_EQ(image.files, 0);
  const BackupSet set;
  EXPECT_THAT((std::array{set.policy, set.client, set.schedule, set.backup_id}), Each(IsEmpty()));
  EXPECT_EQ(set.create_time, 0);
  EXPECT_EQ(set.backup_size, 0U);
  EXPECT_TRUE(set.image_ids.empty());
}

}  // namespace
