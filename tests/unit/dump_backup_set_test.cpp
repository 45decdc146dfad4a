#include "export/dump_backup_set.h"

#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "fake_host.h"
#include "temporary_directory.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// One set of two images, closed by a parent, and one image that is a set of its own.
const char* const kListing =
    "\n"
    "Backupid x\n"
    "c_1600000001 Sun Sep 13 2020     3 1K s p /x\n"
    "c_1600000002 Sun Sep 13 2020     4 1K s p /x\n"
    "c_1600000003 Sun Sep 13 2020     0 1K s p /x\n"
    "d_1600000004 Sun Sep 13 2020     5 1K s p /x\n";

/// What the three commands print for one image whose metadata is `metadata`.
void PrintImage(FakeHost* host, const std::string& metadata) {
  host->Prints(metadata);
  host->Prints("1\n2\nx name\n");
  host->Prints("");
}

TEST(DumpBackupSet, ALoneImageIsExported) {
  const TemporaryDirectory directory;
  FakeHost host;
  host.Prints(kListing);
  PrintImage(&host, "{}");
  const Outcome outcome =
      host.Run([&] { return dump_backup_set("", "", 1600000004, directory.path()); });
  EXPECT_EQ(outcome.status, 0);
  EXPECT_THAT(directory.FileNames(), ElementsAre("d_1600000004.json"));
}

TEST(DumpBackupSet, OnlyTheExactTimeMatches) {
  // Neither a second beside nor the time of a member finds the set.
  for (const long time : {1600000002L, 1600000001L, 1600000005L, -1600000003L, 0L}) {
    const TemporaryDirectory directory;
    FakeHost host;
    host.Prints(kListing);
    const Outcome outcome =
        host.Run([&] { return dump_backup_set("", "", time, directory.path()); });
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.out, "");
    EXPECT_EQ(outcome.err, "can't find the backup set.\n");
    EXPECT_THAT(outcome.commands, ElementsAre("/usr/ostra/keelhaven/bin/admincmd/qvroll"));
    EXPECT_THAT(directory.FileNames(), IsEmpty());
  }
}

TEST(DumpBackupSet, ATimeBeyond32BitsIsNotCut) {
  FakeHost host;
  host.Prints("\nBackupid x\nc_4294967301 Sun Sep 13 2020     1 1K s p /x\n");
  const Outcome outcome = host.Run([] { return dump_backup_set("", "", 5, "/out"); });
  EXPECT_EQ(outcome.err, "can't find the backup set.\n");
}

TEST(DumpBackupSet, OfTwoSetsOfASecondTheFirstSeriesWins) {
  const TemporaryDirectory directory;
  FakeHost host;
  host.Prints(
      "\n"
      "Backupid x\n"
      "z_1600000007 Sun Sep 13 2020     3 1K s p /x\n"
      "a_1600000007 Sun Sep 13 2020     3 1K s p /x\n");
  PrintImage(&host, "{}");
  host.Run([&] { return dump_backup_set("", "", 1600000007, directory.path()); });
  EXPECT_THAT(directory.FileNames(), ElementsAre("a_1600000007.json"));
}

TEST(DumpBackupSet, OfTwoSetsOfASecondInASeriesTheEarlierWins) {
  const TemporaryDirectory directory;
  FakeHost host;
  host.Prints(
      "\n"
      "Backupid x\n"
      "c_1600000009 Sun Sep 13 2020     3 1K s p /x\n"
      "c_1600000007 Sun Sep 13 2020     0 1K s p /x\n"
      "c_1600000001 Sun Sep 13 2020     3 1K s p /x\n"
      "c_1600000007 Sun Sep 13 2020     0 1K s p /x\n");
  PrintImage(&host, "{}");
  host.Run([&] { return dump_backup_set("", "", 1600000007, directory.path()); });
  EXPECT_THAT(directory.FileNames(), ElementsAre("c_1600000009.json"));
}

}  // namespace
