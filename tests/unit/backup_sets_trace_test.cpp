// What GetBackupSetList writes to standard output at each level.

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "catalog/backup_sets.h"
#include "fake_host.h"
#include "layout/layout.h"

namespace {

// A series with parents and one without, mixed.
const char* const kTracedListing =
    "\n"
    "Backupid x\n"
    "c_1 Sun Sep 13 2020     3 1K s p /a\n"
    "b_9 Sun Sep 13 2020     -2 2K t q /b\n"
    "c_2 Sun Sep 13 2020     4 2K s p /c\n"
    "c_3 Sun Sep 13 2020     0 9K s p /d\n"
    "b_x Sun Sep 13 2020     5 1M t q /e\n"
    "c_4 Sun Sep 13 2020     0 9K s p /f\n"
    "c_5 Sun Sep 13 2020     1 9K s p /g\n";

/// What is written at `level` when the listing is `listing`.
std::string TraceOf(const std::string& listing, int level) {
  FakeHost host;
  host.Prints(listing);
  verbose = level;
  std::vector<BackupSet> sets;
  const Outcome outcome = host.Run([&] { return GetBackupSetList("", "", &sets); });
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.err, "");
  return outcome.out;
}

TEST(BackupSetsTrace, LevelZeroIsSilent) {
  EXPECT_EQ(TraceOf(kTracedListing, 0), "");
}

TEST(BackupSetsTrace, LevelOneShowsTheCommandAndItsLines) {
  EXPECT_EQ(TraceOf(kTracedListing, 1),
            std::string("[cmd] /usr/ostra/keelhaven/bin/admincmd/qvroll\n") + kTracedListing);
}

TEST(BackupSetsTrace, LevelTwoShowsSeriesAndSets) {
  EXPECT_EQ(TraceOf(kTracedListing, 2),
            std::string("[cmd] /usr/ostra/keelhaven/bin/admincmd/qvroll\n") + kTracedListing +
                "backup image count: 7\n"
                "=====================================\n"
                "tag: b:q:t\n"
                "\tbackup_id: b_9, files: -2\n"
                "\tbackup_id: b_x, files: 5\n"
                "\tno parent job found for this serial of images. each image will be considered "
                "as a backup set. \n"
                "tag: c:p:s\n"
                "\tbackup_id: c_1, files: 3\n"
                "\tbackup_id: c_2, files: 4\n"
                "\tbackup_id: c_3, files: 0\n"
                "\t\tbackup set size: 3072, image count: 2\n"
                "\tbackup_id: c_4, files: 0\n"
                "\tbackup_id: c_5, files: 1\n"
                "backup set count: 3\n");
}

TEST(BackupSetsTrace, LevelThreeShowsEveryImage) {
  for (const int level : {3, 4}) {
    EXPECT_EQ(TraceOf(kTracedListing, level),
              std::string("[cmd] /usr/ostra/keelhaven/bin/admincmd/qvroll\n") + kTracedListing +
                  "backup image count: 7\n"
                  "=====================================\n"
                  "c_1\tc\t1\t1K\ts\tp\t3\t/a\n"
                  "b_9\tb\t9\t2K\tt\tq\t-2\t/b\n"
                  "c_2\tc\t2\t2K\ts\tp\t4\t/c\n"
                  "c_3\tc\t3\t9K\ts\tp\t0\t/d\n"
                  "b_x\tb\t0\t1M\tt\tq\t5\t/e\n"
                  "c_4\tc\t4\t9K\ts\tp\t0\t/f\n"
                  "c_5\tc\t5\t9K\ts\tp\t1\t/g\n"
                  "=====================================\n"
                  "tag: b:q:t\n"
                  "\tbackup_id: b_9, files: -2\n"
                  "\tbackup_id: b_x, files: 5\n"
                  "\tno parent job found for this serial of images. each image will be considered "
                  "as a backup set. \n"
                  "\t\tadd b_9 as a backup set.\n"
                  "\t\tadd b_x as a backup set.\n"
                  "tag: c:p:s\n"
                  "\tbackup_id: c_1, files: 3\n"
                  "\tbackup_id: c_2, files: 4\n"
                  "\tbackup_id: c_3, files: 0\n"
                  "\t\tbackup set size: 3072, image count: 2\n"
                  "\tbackup_id: c_4, files: 0\n"
                  "\tbackup_id: c_5, files: 1\n"
                  "backup set count: 3\n");
  }
}

TEST(BackupSetsTrace, ParentsAloneAreNoSeriesWithoutAParent) {
  EXPECT_EQ(TraceOf("\nBackupid x\n"
                    "c_1 Sun Sep 13 2020     0 1K s p /a\n"
                    "c_2 Sun Sep 13 2020     0 1K s p /b\n",
                    2),
            "[cmd] /usr/ostra/keelhaven/bin/admincmd/qvroll\n"
            "\n"
            "Backupid x\n"
            "c_1 Sun Sep 13 2020     0 1K s p /a\n"
            "c_2 Sun Sep 13 2020     0 1K s p /b\n"
            "backup image count: 2\n"
            "=====================================\n"
            "tag: c:p:s\n"
            "\tbackup_id: c_1, files: 0\n"
            "\tbackup_id: c_2, files: 0\n"
            "backup set count: 0\n");
}

TEST(BackupSetsTrace, AnEmptyListingHasItsSeparators) {
  EXPECT_EQ(TraceOf("", 2),
            "[cmd] /usr/ostra/keelhaven/bin/admincmd/qvroll\n"
            "backup image count: 0\n"
            "=====================================\n"
            "backup set count: 0\n");
  EXPECT_EQ(TraceOf("", 3),
            "[cmd] /usr/ostra/keelhaven/bin/admincmd/qvroll\n"
            "backup image count: 0\n"
            "=====================================\n"
            "=====================================\n"
            "backup set count: 0\n");
}

TEST(BackupSetsTrace, TheCountIncludesTheSetsFromBefore) {
  FakeHost host;
  host.Prints("");
  verbose = 2;
  std::vector<BackupSet> sets(4);
  const Outcome outcome = host.Run([&] { return GetBackupSetList("", "", &sets); });
  EXPECT_EQ(outcome.out,
            "[cmd] /usr/ostra/keelhaven/bin/admincmd/qvroll\n"
            "backup image count: 0\n"
            "=====================================\n"
            "backup set count: 4\n");
}

TEST(BackupSetsTrace, AFailedListingIsTracedUpToItsFailure) {
  FakeHost host;
  host.Prints("\n\nmore\n");
  verbose = 3;
  std::vector<BackupSet> sets;
  const Outcome outcome = host.Run([&] { return GetBackupSetList("", "", &sets); });
  EXPECT_EQ(outcome.out, "[cmd] /usr/ostra/keelhaven/bin/admincmd/qvroll\n\n\n");
}

}  // namespace
