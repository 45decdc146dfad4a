// Which lines of the command become file entries.

#include <algorithm>
#include <sstream>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "export/file_entries.h"
#include "fake_host.h"
#include "layout/layout.h"

using namespace std::string_literals;

namespace {

using testing::ElementsAre;

const char* const kUnfold = "/usr/ostra/keelhaven/bin/rec_unfold -dump /c/f";
const char* const kMessage = "parse output failed. token size mismatch\n";
const char* const kHeader = "num\tlen\tplen\tdlen\tblk\tii\traw\tgb\tdev\tpath\tdata\n";

/// The array that is written for `table`.
std::string TableText(const FileEntryTable& table) {
  std::ostringstream out;
  table.WriteArray(out);
  return out.str();
}

/// The array of entries that differ in their last two fields only.
std::string ArrayOf(const std::vector<std::pair<std::string, std::string>>& paths_and_data,
                    const std::string& filenum = "1") {
  std::string array = "[";
  for (const auto& [path, data] : paths_and_data) {
    array += array == "[" ? "\n" : ",\n";
    array +=
        "        {\n"
        "            \"filenum\": \"" +
        filenum +
        "\",\n"
        "            \"length\": \"2\",\n"
        "            \"plength\": \"3\",\n"
        "            \"dlength\": \"4\",\n"
        "            \"blknum\": \"5\",\n"
        "            \"in_image\": \"6\",\n"
        "            \"raw_partition_sz\": \"7\",\n"
        "            \"gigabytes\": \"8\",\n"
        "            \"device_num\": \"9\",\n"
        "            \"path\": \"";
    array.append(path).append("\",\n            \"data\": \"").append(data);
    array += "\"\n        }";
  }
  return array + "\n    ]";
}

/// A read of the catalogue file /c/f when the command prints `output`.
struct Reading {
  explicit Reading(const std::string& output, int level = 0) {
    FakeHost host;
    host.Prints(output);
    verbose = level;
    outcome = host.Run([&] { return ReadFileEntries("/c/f", &table); });
  }

  FileEntryTable table;
  Outcome outcome;
};

/// The array of what is read without a word; empty when there are no entries.
std::string Read(const std::string& output) {
  const Reading reading(output);
  EXPECT_EQ(reading.outcome.status, 0);
  EXPECT_EQ(reading.outcome.out, "");
  EXPECT_EQ(reading.outcome.err, "");
  EXPECT_THAT(reading.outcome.steps, ElementsAre("popen "s + kUnfold, "pclose rec_unfold"));
  return reading.table.size() == 0 ? "" : TableText(reading.table);
}

/// The message comes first, then the stream is given up in the middle.
void ExpectMismatch(const std::string& output) {
  const Reading reading(output);
  EXPECT_EQ(reading.outcome.status, 1) << output;
  EXPECT_EQ(reading.outcome.out, "");
  EXPECT_EQ(reading.outcome.err, kMessage);
  EXPECT_THAT(reading.outcome.steps,
              ElementsAre("popen "s + kUnfold, "stderr "s + kMessage, "fclose rec_unfold"));
}

TEST(FileEntries, ThePathIsPassedAsItIs) {
  FakeHost host;
  host.Prints("");
  FileEntryTable table;
  const Outcome outcome = host.Run([&] { return ReadFileEntries(" /c d/$(x) 'y';", &table); });
  EXPECT_THAT(outcome.commands,
              ElementsAre("/usr/ostra/keelhaven/bin/rec_unfold -dump  /c d/$(x) 'y';"));
}

TEST(FileEntries, TheFieldsStandInTheirOrder) {
  EXPECT_EQ(Read("num\tanything\n1\t2\t3\t4\t5\t6\t7\t8\t9\t/a b\tx\n"),
            ArrayOf({{"\\/a b", "x"}}));
}

TEST(FileEntries, EntriesStandInTheOrderOfTheLines) {
  EXPECT_EQ(Read("1\t2\t3\t4\t5\t6\t7\t8\t9\tp\tx\n"
                 "1\t2\t3\t4\t5\t6\t7\t8\t9\tq\ty\n"
                 "1\t2\t3\t4\t5\t6\t7\t8\t9\tp\tx\n"),
            ArrayOf({{"p", "x"}, {"q", "y"}, {"p", "x"}}));
}

TEST(FileEntries, NoOutputIsNoEntry) {
  EXPECT_EQ(Read(""), "");
  EXPECT_EQ(Read(kHeader), "");
  EXPECT_EQ(Read("\n\n"), "");
}

TEST(FileEntries, LinesThatBeginWithAZeroAreDropped) {
  EXPECT_EQ(Read("0\t2\t3\t4\t5\t6\t7\t8\t9\tp\tx\n"
                 "012\t2\t3\t4\t5\t6\t7\t8\t9\tp\tx\n"
                 "0\n"
                 "0 users: too\tfew\n"
                 "0"),
            "");
  EXPECT_EQ(Read("1\t2\t3\t4\t5\t6\t7\t8\t9\t0\t0\n0\n"), ArrayOf({{"0", "0"}}));
}

TEST(FileEntries, TheFirstHeaderIsSkippedWhateverItHolds) {
  EXPECT_EQ(Read("num\t\n1\t2\t3\t4\t5\t6\t7\t8\t9\tp\tx\n"), ArrayOf({{"p", "x"}}));
  EXPECT_EQ(Read(kHeader + "1\t2\t3\t4\t5\t6\t7\t8\t9\tp\tx\n"s), ArrayOf({{"p", "x"}}));
}

TEST(FileEntries, TheHeaderMayComeLate) {
  EXPECT_EQ(
      Read("1\t2\t3\t4\t5\t6\t7\t8\t9\tp\tx\n\n"s + kHeader + "1\t2\t3\t4\t5\t6\t7\t8\t9\tq\ty\n"),
      ArrayOf({{"p", "x"}, {"q", "y"}}));
}

TEST(FileEntries, LinesBeforeTheHeaderAreData) {
  ExpectMismatch("Files of the image:\n"s + kHeader);
}

TEST(FileEntries, ASecondHeaderIsData) {
  ExpectMismatch(kHeader + "num\tlen\n"s);
  EXPECT_EQ(Read(kHeader + "num\t2\t3\t4\t5\t6\t7\t8\t9\tp\tx\n"s), ArrayOf({{"p", "x"}}, "num"));
}

TEST(FileEntries, OnlyTheExactStartMakesAHeader) {
  for (const char* const line : {"num\n", "num", "number\tlen\n", "Num\tlen\n", " num\tlen\n",
                                 "\tnum\tlen\n", "num len\n"}) {
    ExpectMismatch(line);
  }
}

TEST(FileEntries, AnyOtherFieldCountFails) {
  ExpectMismatch("1\n");
  ExpectMismatch("1\t2\t3\t4\t5\t6\t7\t8\t9\tp\n");
  ExpectMismatch("1\t2\t3\t4\t5\t6\t7\t8\t9\tp\tx\ty\n");
  ExpectMismatch("1 2 3 4 5 6 7 8 9 p x\n");
  ExpectMismatch("\t\n");
  ExpectMismatch("\t\t\t\t\t\t\t\t\t\t\n");
  ExpectMismatch(" \n");
  ExpectMismatch("\r\n");
}

TEST(FileEntries, AnEmptyFieldMakesTheCountComeOutShort) {
  ExpectMismatch("1\t\t3\t4\t5\t6\t7\t8\t9\tp\tx\n");
  ExpectMismatch("1\t2\t3\t4\t5\t6\t7\t8\t9\t\tx\n");
  ExpectMismatch("1\t2\t3\t4\t5\t6\t7\t8\t9\tp\t\n");
  ExpectMismatch("\t2\t3\t4\t5\t6\t7\t8\t9\tp\tx\n");
}

TEST(FileEntries, RunsOfTabsSeparateOnce) {
  EXPECT_EQ(Read("\t\t1\t2\t\t3\t4\t5\t6\t\t\t7\t8\t9\tp\tx\t\t\n"), ArrayOf({{"p", "x"}}));
}

TEST(FileEntries, OnlyTheVeryFirstByteDropsALine) {
  EXPECT_EQ(Read("\t0\t2\t3\t4\t5\t6\t7\t8\t9\tp\tx\n"), ArrayOf({{"p", "x"}}, "0"));
}

TEST(FileEntries, EveryOtherCharacterStaysInItsField) {
  EXPECT_EQ(Read("1\t2\t3\t4\t5\t6\t7\t8\t9\t a \"b\" \\ %s \t\x01\x7f\xff \n"),
            ArrayOf({{" a \\\"b\\\" \\\\ %s ", "\\u0001\x7f\xff "}}));
}

TEST(FileEntries, ACarriageReturnStaysAtTheEnd) {
  EXPECT_EQ(Read("1\t2\t3\t4\t5\t6\t7\t8\t9\tp\tx\r\n"), ArrayOf({{"p", "x\\r"}}));
}

TEST(FileEntries, TheLastLineMayLackItsNewline) {
  EXPECT_EQ(Read("1\t2\t3\t4\t5\t6\t7\t8\t9\tp\tx"), ArrayOf({{"p", "x"}}));
}

TEST(FileEntries, AZeroByteEndsALine) {
  EXPECT_EQ(Read("1\t2\t3\t4\t5\t6\t7\t8\t9\tp\tx\0y\tz\n\0\t\n"s), ArrayOf({{"p", "x"}}));
  ExpectMismatch("1\t2\t3\t4\t5\t6\t7\t8\t9\tp\0\tx\n"s);
}

TEST(FileEntries, ALineThatFillsTheBufferLeavesAnEmptyLine) {
  const std::string start = "1\t2\t3\t4\t5\t6\t7\t8\t9\tp\t";
  const std::string data(4194303 - start.size(), 'x');
  EXPECT_TRUE(Read(start + data + "\n") == ArrayOf({{"p", data}}));
}

TEST(FileEntries, APieceOfALongLineIsALineOfItsOwn) {
  const std::string start = "1\t2\t3\t4\t5\t6\t7\t8\t9\tp\t";
  const std::string data(4194303 - start.size(), 'x');
  ExpectMismatch(start + data + "rest\n");
  EXPECT_TRUE(Read(start + data + "0 rest\n") == ArrayOf({{"p", data}}));
}

TEST(FileEntries, ARefusedCommandFails) {
  FakeHost host;
  host.Refuses();
  verbose = 1;
  FileEntryTable table;
  const Outcome outcome = host.Run([&] { return ReadFileEntries("/c/f", &table); });
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.out, "[cmd] /usr/ostra/keelhaven/bin/rec_unfold -dump /c/f\n");
  EXPECT_EQ(outcome.err, "run command rec_unfold failed.\n");
}

TEST(FileEntries, EveryLineIsTracedAsItIsRead) {
  const std::string output = "0 dropped\n"s + kHeader + "\n1\t2\t3\t4\t5\t6\t7\t8\t9\t/p\tx\r\n";
  for (const int level : {1, 2, 3}) {
    const Reading reading(output, level);
    EXPECT_EQ(reading.outcome.out,
              "[cmd] /usr/ostra/keelhaven/bin/rec_unfold -dump /c/f\n" + output);
    EXPECT_EQ(reading.outcome.err, "");
  }
}

TEST(FileEntries, TheLineThatFailsIsTracedAndNoneBehindIt) {
  const Reading reading("too\tfew\n\nmore\n", 1);
  EXPECT_EQ(reading.outcome.out,
            "[cmd] /usr/ostra/keelhaven/bin/rec_unfold -dump /c/f\ntoo\tfew\n");
}

TEST(FileEntries, TheBufferIsNotCleared) {
  FakeHost host;
  host.Prints("\n");
  std::fill(line_buf, line_buf + kLineBufSize, 'x');
  FileEntryTable table;
  host.Run([&] { return ReadFileEntries("/c/f", &table); });
  EXPECT_EQ(std::string(line_buf, 4), "\n\0xx"s);
  EXPECT_EQ(line_buf[kLineBufSize - 1], 'x');
}

}  // namespace
