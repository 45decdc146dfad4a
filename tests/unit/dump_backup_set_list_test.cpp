#include "export/dump_backup_set_list.h"

#include <algorithm>
#include <sstream>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <boost/property_tree/json_parser.hpp>
#include <boost/property_tree/ptree.hpp>

#include "catalog/backup_sets.h"
#include "catalog/records.h"
#include "fake_host.h"
#include "layout/layout.h"
#include "random_text.h"
#include "temporary_directory.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

/// A block of a listing in which each image is a set of its own, created at `time`.
std::string LoneImage(const std::string& time, const std::string& size) {
  return "\nBackupid x\nc_" + time + " Sun Sep 13 2020     1 " + size + " s" + time + " p /x\n";
}

const std::string kThreeSets =
    LoneImage("1600000000", "0.5K") + LoneImage("1600123456", "5G") + LoneImage("1599000000", "0K");

const char* const kAllThree = R"({
    "backup_sets": [
        {
            "BackupCreateTime": "1600123456",
            "BackupSize": "5368709120"
        },
        {
            "BackupCreateTime": "1600000000",
            "BackupSize": "512"
        },
        {
            "BackupCreateTime": "1599000000",
            "BackupSize": "0"
        }
    ]
}
)";

const char* const kNewestTwo = R"({
    "backup_sets": [
        {
            "BackupCreateTime": "1600123456",
            "BackupSize": "5368709120"
        },
        {
            "BackupCreateTime": "1600000000",
            "BackupSize": "512"
        }
    ]
}
)";

const char* const kNoSets = R"({
    "backup_sets": ""
}
)";

/// What is written to standard output for at most `count` sets of `listing`.
std::string DocumentOf(const std::string& listing, int count) {
  FakeHost host;
  host.Prints(listing);
  const Outcome outcome = host.Run([&] { return dump_backup_set_list("", "", count, ""); });
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.err, "");
  return outcome.out;
}

TEST(DumpBackupSetList, FiltersReachTheListing) {
  FakeHost host;
  host.Prints("");
  const Outcome outcome = host.Run([] { return dump_backup_set_list("P1", "c1", 1, ""); });
  EXPECT_THAT(outcome.steps,
              ElementsAre("popen /usr/ostra/keelhaven/bin/admincmd/qvroll -client c1 -policy P1",
                          "pclose qvroll"));
}

TEST(DumpBackupSetList, TheNewestComeFirst) {
  EXPECT_EQ(DocumentOf(kThreeSets, 100), kAllThree);
}

TEST(DumpBackupSetList, TheCountIsALimit) {
  EXPECT_EQ(DocumentOf(kThreeSets, 2), kNewestTwo);
  EXPECT_EQ(DocumentOf(kThreeSets, 3), kAllThree);
  EXPECT_EQ(DocumentOf(kThreeSets, 2147483647), kAllThree);
  EXPECT_EQ(DocumentOf(kThreeSets, 1), R"({
    "backup_sets": [
        {
            "BackupCreateTime": "1600123456",
            "BackupSize": "5368709120"
        }
    ]
}
)");
}

TEST(DumpBackupSetList, ACountBelowOneIsNoLimit) {
  EXPECT_EQ(DocumentOf(kThreeSets, 0), kAllThree);
  EXPECT_EQ(DocumentOf(kThreeSets, -3), kAllThree);
  EXPECT_EQ(DocumentOf(kThreeSets, -2147483647 - 1), kAllThree);
}

TEST(DumpBackupSetList, NoSetsMakeAnEmptyText) {
  EXPECT_EQ(DocumentOf("", 100), kNoSets);
  EXPECT_EQ(DocumentOf("", 0), kNoSets);
}

TEST(DumpBackupSetList, AHundredOfMoreAreTheNewestHundred) {
  std::string listing;
  for (int time = 1000; time <= 1100; ++time) {
    listing += LoneImage(std::to_string(time), "1K");
  }
  std::string expected = "{\n    \"backup_sets\": [\n";
  for (int time = 1100; time > 1000; --time) {
    expected += "        {\n            \"BackupCreateTime\": \"" + std::to_string(time) +
                "\",\n            \"BackupSize\": \"1024\"\n        }" +
                (time == 1001 ? "\n" : ",\n");
  }
  EXPECT_EQ(DocumentOf(listing, 100), expected + "    ]\n}\n");
}

TEST(DumpBackupSetList, NumbersAreWrittenInAllTheirDigits) {
  EXPECT_EQ(DocumentOf("\nBackupid x\n"
                       "c_-5 Sun Sep 13 2020     1 16383P s p /x\n"
                       "c_0 Sun Sep 13 2020     1 1023T s p /x\n"
                       "c_0 Sun Sep 13 2020     1 1023G s p /x\n"
                       "c_0 Sun Sep 13 2020     1 1023M s p /x\n"
                       "c_0 Sun Sep 13 2020     1 1023K s p /x\n"
                       "c_0 Sun Sep 13 2020     1 0.9990234375K s p /x\n"
                       "c_-5 Sun Sep 13 2020     0 1K s p /x\n",
                       100),
            R"({
    "backup_sets": [
        {
            "BackupCreateTime": "-5",
            "BackupSize": "18446744073709551615"
        }
    ]
}
)");
}

TEST(DumpBackupSetList, TimesAreOrderedAsSignedNumbers) {
  EXPECT_EQ(DocumentOf(LoneImage("-5", "1K") + LoneImage("9223372036854775807", "2K") +
                           LoneImage("3", "4K"),
                       100),
            R"({
    "backup_sets": [
        {
            "BackupCreateTime": "9223372036854775807",
            "BackupSize": "2048"
        },
        {
            "BackupCreateTime": "3",
            "BackupSize": "4096"
        },
        {
            "BackupCreateTime": "-5",
            "BackupSize": "1024"
        }
    ]
}
)");
}

/// A listing in which each image is a series, and so a set, of its own, created at one of `times`.
std::string ListingOfSets(RandomText* random, std::size_t count,
                          const std::vector<std::string>& times) {
  std::string listing = "\nBackupid x\n";
  for (std::size_t i = 0; i < count; ++i) {
    const std::string size =
        std::to_string(random->Number(0, 16383)) + "KMGTP"[random->Number(0, 4)];
    listing += "c_" + times[random->Number(0, times.size() - 1)] + " Sun Sep 13 2020     1 " +
               size + " s" + std::to_string(random->Number(0, 1U << 30U)) + " p /x\n";
  }
  return listing;
}

/// The document of the newest `count` sets of `listing` by the plain reading: the sets as they are
/// assembled, sorted, walked from the end, and made into a tree for the JSON writer.
std::string PlainDocument(const std::string& listing, int count) {
  using boost::property_tree::ptree;
  FakeHost host;
  host.Prints(listing);
  std::vector<BackupSet> sets;
  host.Run([&] { return GetBackupSetList("", "", &sets); });
  std::sort(sets.begin(), sets.end(), backup_set_compare);
  ptree array;
  int written = 0;
  for (auto set = sets.rbegin(); set != sets.rend(); ++set) {
    ptree element;
    element.put("BackupCreateTime", set->create_time);
    element.put("BackupSize", set->backup_size);
    array.push_back({"", element});
    if (++written == count) {
      break;
    }
  }
  ptree root;
  root.push_back({"backup_sets", array});
  std::ostringstream out;
  boost::property_tree::write_json(out, root, true);
  return out.str();
}

TEST(DumpBackupSetList, WritesTheBytesOfARealTree) {
  RandomText random(7);
  for (std::size_t count = 0; count < 40; ++count) {
    SCOPED_TRACE(count);
    std::vector<std::string> times;
    for (std::size_t i = 0; i <= count; ++i) {
      times.push_back((random.Number(0, 1) == 0 ? "-" : "") +
                      std::to_string(random.Number(0, std::size_t{1} << 63U)));
    }
    const std::string listing = ListingOfSets(&random, count, times);
    EXPECT_EQ(DocumentOf(listing, 0), PlainDocument(listing, 0));
  }
}

TEST(DumpBackupSetList, SetsOfTheSameSecondComeInTheOrderOfThePlainSort) {
  RandomText random(8);
  for (std::size_t count = 2; count <= 40; ++count) {
    SCOPED_TRACE(count);
    const std::string listing = ListingOfSets(&random, count, {"7"});
    for (const int limit : {0, 1, static_cast<int>(count) - 1}) {
      EXPECT_EQ(DocumentOf(listing, limit), PlainDocument(listing, limit));
    }
  }
}

TEST(DumpBackupSetList, RandomTiesComeInTheOrderOfThePlainSort) {
  RandomText random(9);
  for (const std::size_t count : {100U, 700U, 5000U}) {
    SCOPED_TRACE(count);
    const std::string listing =
        ListingOfSets(&random, count, {"1", "2", "3", "4", "5", "6", "7", "8", "9"});
    for (const int limit : {0, 1, 100, 2500}) {
      EXPECT_EQ(DocumentOf(listing, limit), PlainDocument(listing, limit));
    }
  }
}

TEST(DumpBackupSetList, TheDocumentGoesIntoTheDirectory) {
  const TemporaryDirectory directory;
  for (const char* const end : {"", "/"}) {
    FakeHost host;
    host.Prints(kThreeSets);
    const Outcome outcome =
        host.Run([&] { return dump_backup_set_list("", "", 2, directory.path() + end); });
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.out, "");
    EXPECT_EQ(outcome.err, "");
    EXPECT_THAT(directory.FileNames(), ElementsAre("backup_sets.json"));
    EXPECT_EQ(ReadFile(directory.PathOf("backup_sets.json")), kNewestTwo);
  }
}

TEST(DumpBackupSetList, AnExistingDocumentIsReplaced) {
  const TemporaryDirectory directory;
  const std::string path = directory.PathOf("backup_sets.json");
  WriteFile(path, std::string(10000, 'x'));
  FakeHost host;
  host.Prints("");
  host.Run([&] { return dump_backup_set_list("", "", 2, directory.path()); });
  EXPECT_EQ(ReadFile(path), kNoSets);
}

TEST(DumpBackupSetList, AFailedQueryWritesNothing) {
  const TemporaryDirectory directory;
  FakeHost host;
  host.Refuses();
  const Outcome outcome =
      host.Run([&] { return dump_backup_set_list("", "", 100, directory.path()); });
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.out, "");
  EXPECT_EQ(outcome.err,
            "run command qvroll failed.\n"
            "GetBackupImageList() failed. ret=1\n"
            "GetBackupSetList() failed. ret=1\n");
  EXPECT_THAT(directory.FileNames(), IsEmpty());
}

TEST(DumpBackupSetList, AFailedQueryLeavesTheDocumentFromBefore) {
  const TemporaryDirectory directory;
  const std::string path = directory.PathOf("backup_sets.json");
  WriteFile(path, "before");
  FakeHost host;
  host.Prints("\n\n");
  const Outcome outcome =
      host.Run([&] { return dump_backup_set_list("", "", 100, directory.path()); });
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(ReadFile(path), "before");
}

TEST(DumpBackupSetList, AMissingDirectoryIsTheWritersError) {
  const TemporaryDirectory directory;
  const std::string missing = directory.PathOf("missing");
  FakeHost host;
  host.Prints(kThreeSets);
  const Outcome outcome = host.Run([&] { return dump_backup_set_list("", "", 100, missing); });
  const auto expected = WhatIsThrownBy([&] {
    boost::property_tree::write_json(missing + "/backup_sets.json", boost::property_tree::ptree());
  });
  EXPECT_EQ(outcome.thrown, expected);
  ASSERT_TRUE(outcome.thrown.has_value());
  EXPECT_EQ(outcome.thrown->what, missing + "/backup_sets.json: cannot open file");
  EXPECT_EQ(outcome.err, "");
  EXPECT_THAT(directory.FileNames(), IsEmpty());
}

TEST(DumpBackupSetList, AFullStandardOutputIsTheWritersError) {
  FakeHost host;
  host.Prints(kThreeSets);
  host.SendStandardOutputTo("/dev/full");
  const Outcome outcome = host.Run([] { return dump_backup_set_list("", "", 100, ""); });
  ASSERT_TRUE(outcome.thrown.has_value());
  EXPECT_EQ(outcome.thrown->what, "<unspecified file>: write error");
  EXPECT_EQ(outcome.err, "");
}

TEST(DumpBackupSetList, TracesComeBeforeTheDocument) {
  FakeHost host;
  host.Prints("\nBackupid x\nc_7 Sun Sep 13 2020     1 1K s p /x\n");
  verbose = 2;
  const Outcome outcome = host.Run([] { return dump_backup_set_list("", "", 100, ""); });
  EXPECT_EQ(outcome.out, R"([cmd] /usr/ostra/keelhaven/bin/admincmd/qvroll

Backupid x
c_7 Sun Sep 13 2020     1 1K s p /x
backup image count: 1
=====================================
tag: c:p:s
	backup_id: c_7, files: 1
	no parent job found for this serial of images. each image will be considered as a backup set. 
backup set count: 1
{
    "backup_sets": [
        {
            "BackupCreateTime": "7",
            "BackupSize": "1024"
        }
    ]
}
)");
}

}  // namespace
