// The listing as a whole: the command, its blocks and what is written. Rows: image_row_test.cpp.

#include "catalog/image_list.h"

#include <algorithm>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "fake_host.h"
#include "layout/layout.h"

using namespace std::string_literals;

namespace {

using testing::ElementsAre;

const std::string kRow1 = "a_1 Sun Sep 13 2020     12 3.5M full Daily /x\n";
const std::string kRow2 = "b_2 Sun Sep 13 2020     0 1K incr Weekly z /y\n";

/// A query without filters of a listing.
struct Query {
  explicit Query(const std::string& listing, int level = 0) {
    FakeHost host;
    host.Prints(listing);
    verbose = level;
    outcome = host.Run([&] { return GetBackupImageList("", "", &images); });
  }

  [[nodiscard]] std::vector<std::string> Ids() const {
    std::vector<std::string> ids;
    ids.reserve(images.size());
    for (const BackupImage& image : images) {
      ids.emplace_back(image.backup_id);
    }
    return ids;
  }
  std::vector<BackupImage> images;
  Outcome outcome;
};

/// A query that succeeds without a word.
void ExpectIds(const std::string& listing, const std::vector<std::string>& ids) {
  const Query query(listing);
  EXPECT_EQ(query.Ids(), ids);
  EXPECT_EQ(query.outcome.status, 0);
  EXPECT_EQ(query.outcome.out, "");
  EXPECT_EQ(query.outcome.err, "");
  EXPECT_THAT(query.outcome.steps,
              ElementsAre("popen /usr/ostra/keelhaven/bin/admincmd/qvroll", "pclose qvroll"));
}

/// A query that fails with `message`, and closes the stream behind it.
void ExpectFailure(const std::string& listing, const std::vector<std::string>& ids,
                   const std::string& message) {
  const Query query(listing);
  EXPECT_EQ(query.Ids(), ids);
  EXPECT_EQ(query.outcome.status, 1);
  EXPECT_EQ(query.outcome.out, "");
  EXPECT_EQ(query.outcome.err, message);
  EXPECT_THAT(query.outcome.steps, ElementsAre("popen /usr/ostra/keelhaven/bin/admincmd/qvroll",
                                               "stderr " + message, "pclose qvroll"));
}

const char* const kHeaderMessage = "parse output of qvroll failed. expecting \"Backupid \"\n";

/// The text of the command that is run for a policy and a client.
std::string CommandFor(const std::string& policy, const std::string& client) {
  FakeHost host;
  host.Prints("");
  std::vector<BackupImage> images;
  return host.Run([&] { return GetBackupImageList(policy, client, &images); }).commands.at(0);
}

TEST(ImageList, TheCommandNamesTheClientBeforeThePolicy) {
  EXPECT_EQ(CommandFor("", ""), "/usr/ostra/keelhaven/bin/admincmd/qvroll");
  EXPECT_EQ(CommandFor("P1", ""), "/usr/ostra/keelhaven/bin/admincmd/qvroll -policy P1");
  EXPECT_EQ(CommandFor("", "c1"), "/usr/ostra/keelhaven/bin/admincmd/qvroll -client c1");
  EXPECT_EQ(CommandFor("P1", "c1"),
            "/usr/ostra/keelhaven/bin/admincmd/qvroll -client c1 -policy P1");
}

TEST(ImageList, FiltersAreNotQuoted) {
  EXPECT_EQ(CommandFor("$(id) 'x'", " a;b "),
            "/usr/ostra/keelhaven/bin/admincmd/qvroll -client  a;b  -policy $(id) 'x'");
}

TEST(ImageList, ARefusedCommandFails) {
  FakeHost host;
  host.Refuses();
  std::vector<BackupImage> images(1);
  const Outcome outcome = host.Run([&] { return GetBackupImageList("p", "c", &images); });
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.out, "");
  EXPECT_EQ(outcome.err, "run command qvroll failed.\n");
  EXPECT_EQ(images.size(), 1U);
}

TEST(ImageList, NoOutputIsNoImage) {
  ExpectIds("", {});
}

TEST(ImageList, ABlockIsAnEmptyLineAHeaderAndRows) {
  ExpectIds("\nBackupid  Date Files\n" + kRow1 + kRow2, {"a_1", "b_2"});
}

TEST(ImageList, BlocksFollowEachOther) {
  ExpectIds("\nBackupid x\n" + kRow1 + "\nBackupid y\n", {"a_1"});
  ExpectIds("\nBackupid x\n" + kRow1 + "\nBackupid y\n" + kRow2, {"a_1", "b_2"});
  ExpectIds("\nBackupid x\n\nBackupid y\n\nBackupid z\n" + kRow2, {"b_2"});
}

TEST(ImageList, EverythingBeforeTheFirstEmptyLineIsIgnored) {
  ExpectIds("Backupid x\n" + kRow1, {});
  ExpectIds("no id\n\r\n \nBackupid x\n" + kRow1 + "\nBackupid y\n" + kRow2, {"b_2"});
}

TEST(ImageList, AnEmptyLineMayEndTheListing) {
  ExpectIds("\n", {});
  ExpectIds("\nBackupid x\n" + kRow1 + "\n", {"a_1"});
}

TEST(ImageList, AHeaderMayEndTheListing) {
  ExpectIds("\nBackupid ", {});
  ExpectIds("\nBackupid \n", {});
}

TEST(ImageList, TwoEmptyLinesInARowFail) {
  ExpectFailure("\n\n", {}, kHeaderMessage);
  ExpectFailure("\nBackupid x\n" + kRow1 + "\n\nBackupid y\n" + kRow2, {"a_1"}, kHeaderMessage);
}

TEST(ImageList, OnlyTheExactStartMakesAHeader) {
  for (const char* const line : {"Backupid\n", "Backupid", "Backupid\tx\n", "backupid x\n",
                                 " Backupid x\n", "BackupID x\n", "a_1 x\n", "\r\n", "Backup"}) {
    ExpectFailure("\n"s + line, {}, kHeaderMessage);
  }
}

TEST(ImageList, SecondHeaderInsideABlockIsARow) {
  ExpectFailure("\nBackupid x\n" + kRow1 + "Backupid y\n" + kRow2, {"a_1"},
                "invalid backup id: Backupid. no '_' found.\n");
}

TEST(ImageList, ARowWithoutAnUnderscoreInItsIdFails) {
  ExpectFailure("\nBackupid x\n" + kRow1 + "client1 a_b\n" + kRow2, {"a_1"},
                "invalid backup id: client1. no '_' found.\n");
  ExpectFailure("\nBackupid x\nclient1\n", {}, "invalid backup id: client1\n. no '_' found.\n");
  ExpectFailure("\nBackupid x\n\r\n", {}, "invalid backup id: \r\n. no '_' found.\n");
}

TEST(ImageList, ARowThatBeginsWithABlankFails) {
  ExpectFailure("\nBackupid x\n " + kRow1, {}, "invalid backup id: . no '_' found.\n");
}

TEST(ImageList, AZeroByteEndsALine) {
  // A line of which nothing is left is no empty line.
  ExpectIds("\0\nBackupid x\n"s + kRow1, {});
  ExpectIds("\nBackupid \0x\n"s + kRow1, {"a_1"});
  ExpectFailure("\n\0Backupid x\n"s + kRow1, {}, kHeaderMessage);
  ExpectFailure("\nBackupid x\n\0a_1\n"s + kRow1, {}, "invalid backup id: . no '_' found.\n");
}

TEST(ImageList, RecordsAreAppendedInListingOrder) {
  FakeHost host;
  std::string listing = "\nBackupid x\n";
  for (int i = 0; i < 3000; ++i) {  // the array grows several times
    listing += "c_" + std::to_string(i) + " x\n";
  }
  host.Prints(listing);
  std::vector<BackupImage> images(1);
  images[0].backup_id = "before";
  const Outcome outcome = host.Run([&] { return GetBackupImageList("", "", &images); });
  EXPECT_EQ(outcome.status, 0);
  ASSERT_EQ(images.size(), 3001U);
  EXPECT_EQ(images[0].backup_id, "before");
  for (int i = 0; i < 3000; ++i) {
    EXPECT_EQ(images[static_cast<std::size_t>(i) + 1].backup_time, i);
  }
}

TEST(ImageList, TheExitStatusOfTheCommandIsNotLookedAt) {
  FakeHost host;
  host.Prints("\nBackupid x\n" + kRow1, 1);
  std::vector<BackupImage> images;
  const Outcome outcome = host.Run([&] { return GetBackupImageList("", "", &images); });
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.err, "");
  EXPECT_EQ(images.size(), 1U);
}

TEST(ImageList, LevelOneTracesTheCommandAndEveryLine) {
  const std::string listing = "ignored\n\nBackupid x\n" + kRow1 + "\n";
  const Query query(listing, 1);
  EXPECT_EQ(query.outcome.out,
            "[cmd] /usr/ostra/keelhaven/bin/admincmd/qvroll\n"
            "ignored\n"
            "\n"
            "Backupid x\n"
            "a_1 Sun Sep 13 2020     12 3.5M full Daily /x\n"
            "\n");
  EXPECT_EQ(query.outcome.err, "");
}

TEST(ImageList, LevelTwoCountsTheImages) {
  const std::string listing = "\nBackupid x\n" + kRow1 + kRow2;
  for (const int level : {2, 3}) {
    const Query query(listing, level);
    EXPECT_EQ(query.outcome.out,
              "[cmd] /usr/ostra/keelhaven/bin/admincmd/qvroll\n"
              "\n"
              "Backupid x\n"
              "a_1 Sun Sep 13 2020     12 3.5M full Daily /x\n"
              "b_2 Sun Sep 13 2020     0 1K incr Weekly z /y\n"
              "backup image count: 2\n");
  }
}

TEST(ImageList, TheCountIncludesTheRecordsFromBefore) {
  FakeHost host;
  host.Prints("\nBackupid x\n" + kRow1);
  verbose = 2;
  std::vector<BackupImage> images(4);
  const Outcome outcome = host.Run([&] { return GetBackupImageList("", "", &images); });
  EXPECT_EQ(outcome.out,
            "[cmd] /usr/ostra/keelhaven/bin/admincmd/qvroll\n"
            "\n"
            "Backupid x\n"
            "a_1 Sun Sep 13 2020     12 3.5M full Daily /x\n"
            "backup image count: 5\n");
}

TEST(ImageList, AfterAFailureNothingIsReadOrCounted) {
  const Query query("\n\n" + kRow1, 3);
  EXPECT_EQ(query.outcome.out, "[cmd] /usr/ostra/keelhaven/bin/admincmd/qvroll\n\n\n");
  EXPECT_EQ(query.outcome.err, kHeaderMessage);
}

TEST(ImageList, TheTraceOfARefusedCommandIsWritten) {
  FakeHost host;
  host.Refuses();
  verbose = 3;
  std::vector<BackupImage> images;
  const Outcome outcome = host.Run([&] { return GetBackupImageList("p", "", &images); });
  EXPECT_EQ(outcome.out, "[cmd] /usr/ostra/keelhaven/bin/admincmd/qvroll -policy p\n");
  EXPECT_EQ(outcome.err, "run command qvroll failed.\n");
}

TEST(ImageList, APieceOfALongLineIsALineOfItsOwn) {
  // The newline that did not fit is an empty line, and the row behind the piece a row.
  ExpectIds(std::string(4194303, 'a') + "\nBackupid x\n" + kRow1, {"a_1"});
  const std::string long_row = "a_1 " + std::string(4194299, 'x');
  ExpectIds("\nBackupid x\n" + long_row + kRow2, {"a_1", "b_2"});
  ExpectFailure("\nBackupid x\n" + long_row + "rest\n", {"a_1"},
                "invalid backup id: rest\n. no '_' found.\n");
}

TEST(ImageList, TheBufferIsClearedOnceTheCommandIsStarted) {
  FakeHost host;
  host.Prints("longer line\nab\n").OnStart([] {
    std::fill(line_buf, line_buf + kLineBufSize, 'x');
  });
  std::vector<BackupImage> images;
  host.Run([&] { return GetBackupImageList("", "", &images); });
  // Not between the reads, though: the end of the line before is still there.
  EXPECT_EQ(std::string(line_buf, 14), "ab\n\0er line\n\0\0"s);
  EXPECT_TRUE(std::all_of(line_buf + 14, line_buf + kLineBufSize, [](char c) { return c == 0; }));
}

TEST(ImageList, TheBufferIsClearedForNoOutputToo) {
  FakeHost host;
  host.Prints("").OnStart([] { std::fill(line_buf, line_buf + kLineBufSize, 'x'); });
  std::vector<BackupImage> images;
  host.Run([&] { return GetBackupImageList("", "", &images); });
  EXPECT_TRUE(std::all_of(line_buf, line_buf + kLineBufSize, [](char c) { return c == 0; }));
}

TEST(ImageList, ARefusedCommandLeavesTheBufferAlone) {
  FakeHost host;
  host.Refuses();
  std::fill(line_buf, line_buf + kLineBufSize, 'x');
  std::vector<BackupImage> images;
  host.Run([&] { return GetBackupImageList("", "", &images); });
  EXPECT_TRUE(std::all_of(line_buf, line_buf + kLineBufSize, [](char c) { return c == 'x'; }));
}

}  // namespace
