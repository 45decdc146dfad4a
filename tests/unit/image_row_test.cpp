// How one data row of the listing is cut.

#include <ostream>
#include <string>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>

#include "catalog/image_list.h"
#include "fake_host.h"

// Compared and printed as a whole, so that no field escapes a test.
static bool operator==(const BackupImage& a, const BackupImage& b) {
  return a.backup_id == b.backup_id && a.size == b.size && a.last_field == b.last_field &&
         a.policy == b.policy && a.schedule == b.schedule && a.client == b.client &&
         a.backup_time == b.backup_time && a.files == b.files;
}

static void PrintTo(const BackupImage& image, std::ostream* out) {
  *out << "id '" << image.backup_id << "' client '" << image.client << "' time "
       << image.backup_time << " files " << image.files << " size '" << image.size << "' schedule '"
       << image.schedule << "' policy '" << image.policy << "' last '" << image.last_field << "'";
}

namespace {

/// An image of which nothing but its id is known.
BackupImage OnlyId(std::string_view id, std::string_view client, std::int64_t time) {
  BackupImage image;
  image.backup_id = id;
  image.client = client;
  image.backup_time = time;
  return image;
}

/// The images of a block with these rows; its query succeeds.
std::vector<BackupImage> ImagesOf(const std::string& rows) {
  FakeHost host;
  host.Prints("\nBackupid x\n" + rows);
  std::vector<BackupImage> images;
  const Outcome outcome = host.Run([&] { return GetBackupImageList("", "", &images); });
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.err, "");
  return images;
}

/// The image of the one row `row`.
BackupImage ImageOf(const std::string& row) {
  const std::vector<BackupImage> images = ImagesOf(row);
  EXPECT_EQ(images.size(), 1U);
  return images.empty() ? BackupImage() : images[0];
}

/// The image of `row` in a listing that has a longer row before it.
BackupImage ImageBehindALongerRow(const std::string& row) {
  const std::vector<BackupImage> images = ImagesOf(
      "long_1 Mon Jan 01 2001     77 88M leak_sched leak_policy leak other leak /leak/leak\n" +
      row);
  EXPECT_EQ(images.size(), 2U);
  return images.size() < 2 ? BackupImage() : images[1];
}

TEST(ImageRow, EveryFieldHasItsPlace) {
  const BackupImage expected = {.backup_id = "client1_1600000000",
                                .size = "3.5M",
                                .last_field = "/x",
                                .policy = "pol",
                                .schedule = "sched",
                                .client = "client1",
                                .backup_time = 1600000000,
                                .files = 12};
  EXPECT_EQ(ImageOf("client1_1600000000 Sun Sep 13 2020     12 3.5M sched pol /x\n"), expected);
}

TEST(ImageRow, FieldsBetweenThePolicyAndTheLastAreNotLookedAt) {
  const BackupImage image =
      ImageOf("c_1 Sun Sep 13 2020     12 3.5M sched pol a  b\tc  7 last_one\n");
  EXPECT_EQ(image.policy, "pol");
  EXPECT_EQ(image.last_field, "last_one");
}

TEST(ImageRow, RunsOfBlanksSeparateOnce) {
  const BackupImage expected = {.backup_id = "c_1",
                                .size = "3.5M",
                                .last_field = "/x",
                                .policy = "pol",
                                .schedule = "sched",
                                .client = "c",
                                .backup_time = 1,
                                .files = 12};
  EXPECT_EQ(ImageOf("c_1      Sun Sep 13 2020       12   3.5M  sched     pol   z   /x\n"),
            expected);
}

TEST(ImageRow, FieldsAndRunsOfBlanksHaveAnyLength) {
  for (std::size_t length = 1; length <= 50; ++length) {
    const std::string field(length, 'f');
    const std::string blanks(length, ' ');
    const BackupImage image = ImageOf("c_" + field + blanks + "abcdefghijklmnopqrst" + blanks +
                                      "12" + blanks + "1" + field + blanks + "s" + field + blanks +
                                      "p" + field + blanks + "z" + blanks + "l" + field + "\n");
    EXPECT_EQ(image.backup_id, "c_" + field);
    EXPECT_EQ(image.files, 12);
    EXPECT_EQ(image.size, "1" + field);
    EXPECT_EQ(image.schedule, "s" + field);
    EXPECT_EQ(image.policy, "p" + field);
    EXPECT_EQ(image.last_field, "l" + field);
  }
}

TEST(ImageRow, TabsAreOrdinaryCharacters) {
  const BackupImage expected = {.backup_id = "c_1\tx",
                                .size = "3\tM",
                                .last_field = "/x\ty",
                                .policy = "\tpol",
                                .schedule = "s\t",
                                .client = "c",
                                .backup_time = 1,
                                .files = 12};
  EXPECT_EQ(ImageOf("c_1\tx Sun\tSep\t13\t2020     \t12 3\tM s\t \tpol /x\ty\n"), expected);
}

TEST(ImageRow, TheSecondColumnIsSkippedByItsWidthAlone) {
  // Twenty characters without a blank: the third field starts in the middle of the word.
  const BackupImage image = ImageOf("c_1 abcdefghijklmnopqrst12 3.5M sched pol /x\n");
  EXPECT_EQ(image.files, 12);
  EXPECT_EQ(image.size, "3.5M");
  // Eighteen characters, so that two more are lost.
  EXPECT_EQ(ImageOf("c_1 Sun Sep 13 2020   1234 3.5M sched pol /x\n").files, 34);
  // A column that is empty begins behind the blanks of the id.
  EXPECT_EQ(ImageOf("c_1                     12 3.5M sched pol 1 /x\n").files, 0);
}

TEST(ImageRow, ItsContentDoesNotMatter) {
  EXPECT_EQ(ImageOf("c_1 _ _ _ _ _ _ _ _ _ _ 12 3.5M sched pol /x\n").files, 12);
  EXPECT_EQ(ImageOf("c_1 1 2 3 4 5 6 7 8 9 0 12 3.5M sched pol /x\n").backup_id, "c_1");
}

TEST(ImageRow, TheIdSplitsAtItsFirstUnderscore) {
  const BackupImage two = ImageOf("a_b_17 Sun Sep 13 2020     12 3.5M sched pol /x\n");
  EXPECT_EQ(two.backup_id, "a_b_17");
  EXPECT_EQ(two.client, "a");
  EXPECT_EQ(two.backup_time, 0);
  const BackupImage number_first = ImageOf("a_5_17 Sun Sep 13 2020     12 3.5M sched pol /x\n");
  EXPECT_EQ(number_first.backup_time, 5);
  const BackupImage nothing_before = ImageOf("_17 Sun Sep 13 2020     12 3.5M sched pol /x\n");
  EXPECT_EQ(nothing_before.client, "");
  EXPECT_EQ(nothing_before.backup_time, 17);
  const BackupImage nothing_behind = ImageOf("a_ Sun Sep 13 2020     12 3.5M sched pol /x\n");
  EXPECT_EQ(nothing_behind.client, "a");
  EXPECT_EQ(nothing_behind.backup_time, 0);
}

TEST(ImageRow, TheTimeIsASigned64BitNumber) {
  const std::string rest = " Sun Sep 13 2020     12 3.5M sched pol /x\n";
  EXPECT_EQ(ImageOf("a_-5" + rest).backup_time, -5);
  EXPECT_EQ(ImageOf("a_4294967301" + rest).backup_time, 4294967301);
  EXPECT_EQ(ImageOf("a_9223372036854775807" + rest).backup_time, 9223372036854775807);
  EXPECT_EQ(ImageOf("a_16x17" + rest).backup_time, 16);
  EXPECT_EQ(ImageOf("a_x16" + rest).backup_time, 0);
}

TEST(ImageRow, TheTimeIsWhatTheLibraryReads) {
  const std::string rest = " Sun Sep 13 2020     12 3.5M sched pol /x\n";
  EXPECT_EQ(ImageOf("a_+5" + rest).backup_time, 5);
  EXPECT_EQ(ImageOf("a_\t5" + rest).backup_time, 5);
  EXPECT_EQ(ImageOf("a_\t-5x" + rest).backup_time, -5);
  EXPECT_EQ(ImageOf("a_-" + rest).backup_time, 0);
  EXPECT_EQ(ImageOf("a_--5" + rest).backup_time, 0);
  EXPECT_EQ(ImageOf("a_0x10" + rest).backup_time, 0);
  EXPECT_EQ(ImageOf("a_9223372036854775808" + rest).backup_time, 9223372036854775807);
  EXPECT_EQ(ImageOf("a_-9223372036854775809" + rest).backup_time, -9223372036854775807 - 1);
}

TEST(ImageRow, FilesKeepsTheLow32Bits) {
  const auto files_of = [](const std::string& files) {
    return ImageOf("a_1 Sun Sep 13 2020     " + files + " 3.5M sched pol /x\n").files;
  };
  EXPECT_EQ(files_of("0"), 0);
  EXPECT_EQ(files_of("2147483647"), 2147483647);
  EXPECT_EQ(files_of("2147483648"), -2147483648);
  EXPECT_EQ(files_of("4294967296"), 0);
  EXPECT_EQ(files_of("4294967297"), 1);
  EXPECT_EQ(files_of("-1"), -1);
  EXPECT_EQ(files_of("+3"), 3);
  EXPECT_EQ(files_of("12x"), 12);
  EXPECT_EQ(files_of("many"), 0);
}

TEST(ImageRow, APolicyAtTheEndKeepsTheNewline) {
  const BackupImage image = ImageOf("c_1 Sun Sep 13 2020     12 3.5M sched pol\n");
  EXPECT_EQ(image.policy, "pol\n");
  EXPECT_EQ(image.last_field, "pol");
}

TEST(ImageRow, ACarriageReturnStaysInTheLastField) {
  EXPECT_EQ(ImageOf("c_1 Sun Sep 13 2020     12 3.5M sched pol /x\r\n").last_field, "/x\r");
}

TEST(ImageRow, ABlankAtTheEndLeavesAnEmptyLastField) {
  EXPECT_EQ(ImageOf("c_1 Sun Sep 13 2020     12 3.5M sched pol /x \n").last_field, "");
  const BackupImage image = ImageOf("c_1 Sun Sep 13 2020     12 3.5M sched pol \n");
  EXPECT_EQ(image.policy, "pol");
  EXPECT_EQ(image.last_field, "");
}

TEST(ImageRow, WithoutANewlineTheLastFieldLosesItsLastCharacter) {
  EXPECT_EQ(ImageOf("c_1 Sun Sep 13 2020     12 3.5M sched pol /xyz").last_field, "/xy");
  EXPECT_EQ(ImageOf("c_1 Sun Sep 13 2020     12 3.5M sched pol /x ").last_field, "/x");
}

TEST(ImageRow, AZeroByteEndsTheRow) {
  using namespace std::string_literals;
  const BackupImage expected = {.backup_id = "c_1",
                                .size = "3.5M",
                                .last_field = "sche",
                                .policy = "",
                                .schedule = "sched",
                                .client = "c",
                                .backup_time = 1,
                                .files = 12};
  EXPECT_EQ(ImageOf("c_1 Sun Sep 13 2020     12 3.5M sched\0pol /x\n"s), expected);
}

TEST(ImageRow, WithoutAnyBlankTheWholeRowIsTheId) {
  BackupImage expected = OnlyId("a_1\n", "a", 1);
  expected.last_field = "a_1";
  EXPECT_EQ(ImageOf("a_1\n"), expected);
  EXPECT_EQ(ImageBehindALongerRow("a_1\n"), expected);
}

TEST(ImageRow, AnUnderscoreAloneIsAnId) {
  const BackupImage expected = OnlyId("_", "", 0);
  EXPECT_EQ(ImageOf("_"), expected);
  EXPECT_EQ(ImageBehindALongerRow("_"), expected);
}

TEST(ImageRow, WhatAShortRowLacksIsEmpty) {
  BackupImage expected = OnlyId("b_2", "b", 2);
  EXPECT_EQ(ImageBehindALongerRow("b_2 \n"), expected);
  expected.last_field = "Sun";
  EXPECT_EQ(ImageBehindALongerRow("b_2 Sun\n"), expected);
  expected.last_field = "Sep";
  EXPECT_EQ(ImageBehindALongerRow("b_2 Sun Sep\n"), expected);
  expected.last_field = "";
  EXPECT_EQ(ImageBehindALongerRow("b_2 Sun Sep 13 2020    \n"), expected);
}

TEST(ImageRow, AShortRowMayEndBehindAnyField) {
  BackupImage expected = OnlyId("b_2", "b", 2);
  expected.files = 7;
  expected.last_field = "7";
  EXPECT_EQ(ImageBehindALongerRow("b_2 Sun Sep 13 2020     7\n"), expected);
  expected.last_field = "1K";
  expected.size = "1K\n";
  EXPECT_EQ(ImageBehindALongerRow("b_2 Sun Sep 13 2020     7 1K\n"), expected);
  expected.last_field = "full";
  expected.size = "1K";
  expected.schedule = "full\n";
  EXPECT_EQ(ImageBehindALongerRow("b_2 Sun Sep 13 2020     7 1K full\n"), expected);
  expected.last_field = "Daily";
  expected.schedule = "full";
  expected.policy = "Daily\n";
  EXPECT_EQ(ImageBehindALongerRow("b_2 Sun Sep 13 2020     7 1K full Daily\n"), expected);
}

TEST(ImageRow, ARowThatFillsTheBufferIsCutToo) {
  const std::string start = "c_1 Sun Sep 13 2020     12 3.5M sched pol ";
  const std::string last(4194303 - start.size() - 1, 'z');
  const std::vector<BackupImage> images =
      ImagesOf(start + last + "\nd_2 Sun Sep 13 2020     0 1K full Daily /y\n");
  ASSERT_EQ(images.size(), 2U);
  EXPECT_EQ(images[0].policy, "pol");
  EXPECT_TRUE(images[0].last_field == last);
  EXPECT_EQ(images[1].last_field, "/y");
}

}  // namespace
