// Which sets the images of a listing make. Traces: backup_sets_trace_test.cpp.

#include "catalog/backup_sets.h"

#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "fake_host.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

/// A row of the listing.
std::string Row(const std::string& id, const std::string& files, const std::string& size,
                const std::string& schedule = "s", const std::string& policy = "p") {
  return id + " Sun Sep 13 2020     " + files + " " + size + " " + schedule + " " + policy +
         " /x\n";
}

/// The sets of a listing with these rows, of which none is a failure.
std::vector<BackupSet> SetsOf(const std::string& rows) {
  FakeHost host;
  host.Prints("\nBackupid x\n" + rows);
  std::vector<BackupSet> sets;
  const Outcome outcome = host.Run([&] { return GetBackupSetList("", "", &sets); });
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.out, "");
  EXPECT_EQ(outcome.err, "");
  return sets;
}

/// A set in one line: client:policy:schedule id time size members.
std::string Text(const BackupSet& set) {
  std::ostringstream text;
  text << set.client << ':' << set.policy << ':' << set.schedule << ' ' << set.backup_id << ' '
       << set.create_time << ' ' << set.backup_size;
  for (const std::string_view id : set.image_ids) {
    text << ' ' << id;
  }
  return text.str();
}

std::vector<std::string> Texts(const std::vector<BackupSet>& sets) {
  std::vector<std::string> texts;
  texts.reserve(sets.size());
  for (const BackupSet& set : sets) {
    texts.push_back(Text(set));
  }
  return texts;
}

TEST(BackupSets, FiltersReachTheListing) {
  FakeHost host;
  host.Prints("");
  std::vector<BackupSet> sets;
  const Outcome outcome = host.Run([&] { return GetBackupSetList("P1", "c1", &sets); });
  EXPECT_THAT(outcome.steps,
              ElementsAre("popen /usr/ostra/keelhaven/bin/admincmd/qvroll -client c1 -policy P1",
                          "pclose qvroll"));
}

TEST(BackupSets, AnEmptyListingMakesNone) {
  EXPECT_THAT(SetsOf(""), IsEmpty());
}

TEST(BackupSets, AParentClosesASetOfTheImagesBeforeIt) {
  EXPECT_THAT(Texts(SetsOf(Row("c_1", "3", "1K") + Row("c_2", "2", "2K") + Row("c_3", "0", "9K"))),
              ElementsAre("c:p:s c_3 3 3072 c_1 c_2"));
}

TEST(BackupSets, EachParentClosesItsOwnSet) {
  EXPECT_THAT(Texts(SetsOf(Row("c_1", "3", "1K") + Row("c_2", "0", "9K") + Row("c_3", "4", "2K") +
                           Row("c_4", "5", "4K") + Row("c_5", "0", "9K") + Row("c_6", "6", "8K"))),
              ElementsAre("c:p:s c_2 2 1024 c_1", "c:p:s c_5 5 6144 c_3 c_4"));
}

TEST(BackupSets, ImagesBehindTheLastParentBelongToNoSet) {
  EXPECT_THAT(Texts(SetsOf(Row("c_1", "0", "1K") + Row("c_2", "2", "2K"))), IsEmpty());
}

TEST(BackupSets, AParentWithoutImagesBeforeItMakesNone) {
  EXPECT_THAT(Texts(SetsOf(Row("c_1", "0", "1K") + Row("c_2", "0", "2K"))), IsEmpty());
  EXPECT_THAT(Texts(SetsOf(Row("c_1", "0", "9K") + Row("c_2", "2", "2K") + Row("c_3", "0", "9K") +
                           Row("c_4", "0", "9K"))),
              ElementsAre("c:p:s c_3 3 2048 c_2"));
}

TEST(BackupSets, AnyOtherFileCountMakesAMember) {
  EXPECT_THAT(Texts(SetsOf(Row("c_1", "-1", "1K") + Row("c_2", "2147483648", "1K") +
                           Row("c_3", "0", "1K"))),
              ElementsAre("c:p:s c_3 3 2048 c_1 c_2"));
}

TEST(BackupSets, AFileCountWhoseLow32BitsAreZeroMakesAParent) {
  EXPECT_THAT(Texts(SetsOf(Row("c_1", "1", "1K") + Row("c_2", "4294967296", "1K"))),
              ElementsAre("c:p:s c_2 2 1024 c_1"));
}

// Consumers expect the total of the series, not the image's own size, in each of these sets.
TEST(BackupSets, LoneImagesCarryTheSeriesTotal) {
  EXPECT_THAT(Texts(SetsOf(Row("c_1", "3", "1K") + Row("c_2", "2", "1M"))),
              ElementsAre("c:p:s c_1 1 1049600 c_1", "c:p:s c_2 2 1049600 c_2"));
}

TEST(BackupSets, ALoneImageIsASetToo) {
  EXPECT_THAT(Texts(SetsOf(Row("c_1", "3", "1K"))), ElementsAre("c:p:s c_1 1 1024 c_1"));
}

TEST(BackupSets, TheTotalOfASeriesIsNotCarriedToTheNext) {
  EXPECT_THAT(Texts(SetsOf(Row("a_1", "3", "1K") + Row("b_2", "3", "2K") + Row("c_3", "3", "4K") +
                           Row("c_4", "0", "9K"))),
              ElementsAre("a:p:s a_1 1 1024 a_1", "b:p:s b_2 2 2048 b_2", "c:p:s c_4 4 4096 c_3"));
}

TEST(BackupSets, SeriesMayBeMixedInTheListing) {
  EXPECT_THAT(Texts(SetsOf(Row("b_1", "1", "1K") + Row("a_2", "1", "2K") + Row("b_3", "1", "4K") +
                           Row("a_4", "0", "9K") + Row("b_5", "0", "9K"))),
              ElementsAre("a:p:s a_4 4 2048 a_2", "b:p:s b_5 5 5120 b_1 b_3"));
}

TEST(BackupSets, ClientPolicyAndScheduleEachMakeASeries) {
  EXPECT_THAT(Texts(SetsOf(Row("c_1", "1", "1K", "s", "p") + Row("c_2", "1", "2K", "t", "p") +
                           Row("c_3", "1", "4K", "s", "q") + Row("d_4", "1", "8K", "s", "p"))),
              ElementsAre("c:p:s c_1 1 1024 c_1", "c:p:t c_2 2 2048 c_2", "c:q:s c_3 3 4096 c_3",
                          "d:p:s d_4 4 8192 d_4"));
}

TEST(BackupSets, SeriesComeInByteOrderOfTheirTags) {
  EXPECT_THAT(Texts(SetsOf(Row("c_1", "1", "1K", "s2", "p") + Row("c_2", "1", "1K", "s", "p") +
                           Row("c_3", "1", "1K", "s", "P") + Row("\xff_4", "1", "1K", "s", "p"))),
              ElementsAre("c:P:s c_3 3 1024 c_3", "c:p:s c_2 2 1024 c_2", "c:p:s2 c_1 1 1024 c_1",
                          "\xff:p:s \xff_4 4 1024 \xff_4"));
}

TEST(BackupSets, AColonInAFieldMayJoinTwoSeries) {
  EXPECT_THAT(Texts(SetsOf(Row("c_1", "1", "1K", "z", "x:y") + Row("c_2", "0", "1K", "y:z", "x"))),
              ElementsAre("c:x:y:z c_2 2 1024 c_1"));
}

TEST(BackupSets, ASetIsDescribedByItsParent) {
  const std::vector<BackupSet> sets =
      SetsOf(Row("c_1", "1", "1K", "z", "x:y") + Row("c_2", "0", "1K", "y:z", "x"));
  ASSERT_EQ(sets.size(), 1U);
  EXPECT_EQ(sets[0].policy, "x");
  EXPECT_EQ(sets[0].schedule, "y:z");
  EXPECT_EQ(sets[0].client, "c");
  EXPECT_EQ(sets[0].backup_id, "c_2");
}

TEST(BackupSets, NothingSortsThemByTime) {
  EXPECT_THAT(Texts(SetsOf(Row("c_9", "1", "1K") + Row("c_5", "1", "1K") + Row("c_7", "1", "1K"))),
              ElementsAre("c:p:s c_9 9 3072 c_9", "c:p:s c_5 5 3072 c_5", "c:p:s c_7 7 3072 c_7"));
}

TEST(BackupSets, SizesWithoutAUnitAddNothing) {
  EXPECT_THAT(Texts(SetsOf(Row("c_1", "1", "512") + Row("c_2", "1", "3k") + Row("c_3", "1", "1K") +
                           Row("c_4", "0", "1K"))),
              ElementsAre("c:p:s c_4 4 1024 c_1 c_2 c_3"));
}

TEST(BackupSets, EachSizeIsTruncatedBeforeItIsAdded) {
  std::string rows;
  for (int i = 1; i <= 5; ++i) {
    rows += Row("c_" + std::to_string(i), "1", "0.1K");
  }
  EXPECT_THAT(Texts(SetsOf(rows + Row("c_6", "0", "1K"))),
              ElementsAre("c:p:s c_6 6 510 c_1 c_2 c_3 c_4 c_5"));
}

TEST(BackupSets, SizesAddUpModulo64Bits) {
  EXPECT_THAT(Texts(SetsOf(Row("c_1", "1", "16383P") + Row("c_2", "1", "1P") +
                           Row("c_3", "1", "3K") + Row("c_4", "0", "1K"))),
              ElementsAre("c:p:s c_4 4 3072 c_1 c_2 c_3"));
  EXPECT_THAT(Texts(SetsOf(Row("c_1", "1", "2K") + Row("c_2", "1", "-1K") + Row("c_4", "0", "1K"))),
              ElementsAre("c:p:s c_4 4 1024 c_1 c_2"));
  EXPECT_THAT(Texts(SetsOf(Row("c_1", "1", "-1K") + Row("c_4", "0", "1K"))),
              ElementsAre("c:p:s c_4 4 18446744073709550592 c_1"));
}

TEST(BackupSets, SetsAreAppended) {
  FakeHost host;
  host.Prints("\nBackupid x\n" + Row("c_1", "1", "1K"));
  std::vector<BackupSet> sets(1);
  sets[0].backup_id = "before";
  const Outcome outcome = host.Run([&] { return GetBackupSetList("", "", &sets); });
  EXPECT_EQ(outcome.status, 0);
  EXPECT_THAT(Texts(sets), ElementsAre(":: before 0 0", "c:p:s c_1 1 1024 c_1"));
}

TEST(BackupSets, AFailedListingFails) {
  FakeHost host;
  host.Prints("\nBackupid x\n" + Row("c_1", "1", "1K") + Row("c_2", "0", "1K") + "\n\n");
  std::vector<BackupSet> sets(1);
  const Outcome outcome = host.Run([&] { return GetBackupSetList("", "", &sets); });
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.out, "");
  EXPECT_EQ(outcome.err,
            "parse output of qvroll failed. expecting \"Backupid \"\n"
            "GetBackupImageList() failed. ret=1\n");
  EXPECT_EQ(sets.size(), 1U);
}

TEST(BackupSets, ARefusedListingFails) {
  FakeHost host;
  host.Refuses();
  std::vector<BackupSet> sets;
  const Outcome outcome = host.Run([&] { return GetBackupSetList("", "", &sets); });
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.err,
            "run command qvroll failed.\n"
            "GetBackupImageList() failed. ret=1\n");
}

TEST(BackupSets, AnIdThatIsNoneFails) {
  FakeHost host;
  host.Prints("\nBackupid x\nnone\n");
  std::vector<BackupSet> sets;
  const Outcome outcome = host.Run([&] { return GetBackupSetList("", "", &sets); });
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.err,
            "invalid backup id: none\n. no '_' found.\n"
            "GetBackupImageList() failed. ret=1\n");
}

}  // namespace
