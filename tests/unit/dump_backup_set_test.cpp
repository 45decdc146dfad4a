#include "export/dump_backup_set.h"

#include <stdexcept>
#include <string>
#include <typeinfo>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "fake_host.h"
#include "layout/layout.h"
#include "temporary_directory.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;

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

TEST(DumpBackupSet, FiltersReachTheListing) {
  FakeHost host;
  host.Prints("");
  const Outcome outcome = host.Run([] { return dump_backup_set("P1", "c1", 5, "/out"); });
  EXPECT_THAT(outcome.commands,
              ElementsAre("/usr/ostra/keelhaven/bin/admincmd/qvroll -client c1 -policy P1"));
}

TEST(DumpBackupSet, EveryMemberIsExportedInOrderAndTheParentIsNot) {
  const TemporaryDirectory directory;
  FakeHost host;
  host.Prints(kListing);
  PrintImage(&host, "{\"n\": 1}\n");
  PrintImage(&host, "{\"n\": 2}\n");
  const Outcome outcome =
      host.Run([&] { return dump_backup_set("", "", 1600000003, directory.path()); });
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.out, "");
  EXPECT_EQ(outcome.err, "");
  EXPECT_THAT(outcome.commands,
              ElementsAre("/usr/ostra/keelhaven/bin/admincmd/qvroll",
                          "/usr/ostra/keelhaven/bin/admincmd/qvmeta -json -backupid c_1600000001",
                          "/usr/ostra/keelhaven/bin/admincmd/qvroll -id c_1600000001",
                          "/usr/ostra/keelhaven/bin/rec_unfold -dump "
                          "/usr/ostra/keelhaven/db/images/c/1600000000/name",
                          "/usr/ostra/keelhaven/bin/admincmd/qvmeta -json -backupid c_1600000002",
                          "/usr/ostra/keelhaven/bin/admincmd/qvroll -id c_1600000002",
                          "/usr/ostra/keelhaven/bin/rec_unfold -dump "
                          "/usr/ostra/keelhaven/db/images/c/1600000000/name"));
  EXPECT_THAT(directory.FileNames(), ElementsAre("c_1600000001.json", "c_1600000002.json"));
  EXPECT_EQ(ReadFile(directory.PathOf("c_1600000001.json")),
            "{\n    \"n\": \"1\",\n    \"fentries\": \"\"\n}\n");
  EXPECT_EQ(ReadFile(directory.PathOf("c_1600000002.json")),
            "{\n    \"n\": \"2\",\n    \"fentries\": \"\"\n}\n");
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

TEST(DumpBackupSet, NoSetsMeanThatItIsNotFound) {
  FakeHost host;
  host.Prints("");
  const Outcome outcome = host.Run([] { return dump_backup_set("", "", 1600000003, "/out"); });
  EXPECT_EQ(outcome.status, 1);
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

TEST(DumpBackupSet, AFailedQueryFails) {
  FakeHost host;
  host.Refuses();
  const Outcome outcome = host.Run([] { return dump_backup_set("", "", 5, "/out"); });
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.out, "");
  EXPECT_EQ(outcome.err,
            "run command qvroll failed.\n"
            "GetBackupImageList() failed. ret=1\n"
            "GetBackupSetList() failed. ret=1\n");
}

TEST(DumpBackupSet, TheFirstFailureEndsTheExport) {
  const TemporaryDirectory directory;
  FakeHost host;
  host.Prints(
      "\n"
      "Backupid x\n"
      "c_1600000001 Sun Sep 13 2020     3 1K s p /x\n"
      "c_1600000002 Sun Sep 13 2020     3 1K s p /x\n"
      "c_1600000003 Sun Sep 13 2020     3 1K s p /x\n"
      "c_1600000004 Sun Sep 13 2020     0 1K s p /x\n");
  PrintImage(&host, "{}");
  host.Prints("{}").Prints("1\n2\nx name\n").Prints("too\tfew\n");
  const Outcome outcome =
      host.Run([&] { return dump_backup_set("", "", 1600000004, directory.path()); });
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.out, "");
  EXPECT_EQ(outcome.err,
            "parse output failed. token size mismatch\n"
            "dump_backup() failed. ret=1\n");
  EXPECT_EQ(outcome.commands.size(), 7U);
  EXPECT_THAT(directory.FileNames(), ElementsAre("c_1600000001.json"));
}

TEST(DumpBackupSet, AMissingDirectoryIsTheFailureOfTheFirstImage) {
  const TemporaryDirectory directory;
  const std::string missing = directory.PathOf("missing");
  FakeHost host;
  host.Prints(kListing);
  const Outcome outcome = host.Run([&] { return dump_backup_set("", "", 1600000003, missing); });
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.err, "fopen() failed. can't create file " + missing +
                             "/c_1600000001.qvmeta.json\n"
                             "dump_backup() failed. ret=1\n");
}

TEST(DumpBackupSet, AnExceptionIsNotReported) {
  const TemporaryDirectory directory;
  FakeHost host;
  host.Prints("\nBackupid x\nc_123 Sun Sep 13 2020     3 1K s p /x\n");
  const Outcome outcome = host.Run([&] { return dump_backup_set("", "", 123, directory.path()); });
  ASSERT_TRUE(outcome.thrown.has_value());
  EXPECT_TRUE(outcome.thrown->type == typeid(std::out_of_range));
  EXPECT_THAT(outcome.thrown->what, StartsWith("basic_string::at"));
  EXPECT_EQ(outcome.err, "");
}

TEST(DumpBackupSet, TracesOfTheQueryComeBeforeThoseOfTheImages) {
  const TemporaryDirectory directory;
  FakeHost host;
  host.Prints("\nBackupid x\nc_1600000001 Sun Sep 13 2020     3 1K s p /x\n");
  PrintImage(&host, "{}\n");
  verbose = 3;
  const Outcome outcome =
      host.Run([&] { return dump_backup_set("", "", 1600000001, directory.path()); });
  EXPECT_EQ(outcome.out,
            "[cmd] /usr/ostra/keelhaven/bin/admincmd/qvroll\n"
            "\n"
            "Backupid x\n"
            "c_1600000001 Sun Sep 13 2020     3 1K s p /x\n"
            "backup image count: 1\n"
            "=====================================\n"
            "c_1600000001\tc\t1600000001\t1K\ts\tp\t3\t/x\n"
            "=====================================\n"
            "tag: c:p:s\n"
            "\tbackup_id: c_1600000001, files: 3\n"
            "\tno parent job found for this serial of images. each image will be considered "
            "as a backup set. \n"
            "\t\tadd c_1600000001 as a backup set.\n"
            "backup set count: 1\n"
            "[cmd] /usr/ostra/keelhaven/bin/admincmd/qvmeta -json -backupid c_1600000001\n"
            "{}\n"
            "[cmd] /usr/ostra/keelhaven/bin/admincmd/qvroll -id c_1600000001\n"
            "1\n"
            "2\n"
            "x name\n"
            "[cmd] /usr/ostra/keelhaven/bin/rec_unfold -dump "
            "/usr/ostra/keelhaven/db/images/c/1600000000/name\n");
  EXPECT_EQ(outcome.err, "");
}

}  // namespace
