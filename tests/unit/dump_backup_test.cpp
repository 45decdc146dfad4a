// The export of one image when all goes well. Failures: dump_backup_failures_test.cpp.

#include "export/dump_backup.h"

#include <unistd.h>

#include <algorithm>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "fake_host.h"
#include "layout/layout.h"
#include "temporary_directory.h"

namespace {

using testing::ElementsAre;

const char* const kMetadata = "{\"client\": \"alpha\",\n\"size\": 12}\n";
const char* const kLookUp = "1\n2\nx name\n";
const char* const kEntries =
    "num\tlen\tplen\tdlen\tblk\tii\traw\tgb\tdev\tpath\tdata\n"
    "12\t4096\t0\t0\t88\t1\t0\t0\t64768\t/home/a b\t33188 3\n";

const char* const kDocument = R"({
    "client": "alpha",
    "size": "12",
    "fentries": [
        {
            "filenum": "12",
            "length": "4096",
            "plength": "0",
            "dlength": "0",
            "blknum": "88",
            "in_image": "1",
            "raw_partition_sz": "0",
            "gigabytes": "0",
            "device_num": "64768",
            "path": "\/home\/a b",
            "data": "33188 3"
        }
    ]
}
)";

/// An export of the image `backup_id` of which the commands print the texts above.
Outcome Export(const std::string& backup_id, const std::string& output_dir, int level = 0) {
  FakeHost host;
  host.Prints(kMetadata).Prints(kLookUp).Prints(kEntries);
  verbose = level;
  return host.Run([&] { return dump_backup(backup_id, output_dir); });
}

/// An id that no other process uses at the same time.
std::string IdOfThisProcess() {
  return "unit" + std::to_string(getpid()) + "_1600123456";
}

TEST(DumpBackup, TheStepsComeInTheirOrder) {
  const TemporaryDirectory directory;
  const std::string metadata_file = directory.PathOf("alpha_1600123456.qvmeta.json");
  const Outcome outcome = Export("alpha_1600123456", directory.path());
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.out, "");
  EXPECT_EQ(outcome.err, "");
  EXPECT_THAT(
      outcome.steps,
      ElementsAre("fopen " + metadata_file + " wte",
                  "popen /usr/ostra/keelhaven/bin/admincmd/qvmeta -json -backupid alpha_1600123456",
                  "pclose qvmeta", "fclose " + metadata_file, "unlink " + metadata_file,
                  "popen /usr/ostra/keelhaven/bin/admincmd/qvroll -id alpha_1600123456",
                  "pclose qvroll",
                  "popen /usr/ostra/keelhaven/bin/rec_unfold -dump "
                  "/usr/ostra/keelhaven/db/images/alpha/1600000000/name",
                  "pclose rec_unfold"));
}

TEST(DumpBackup, TheDocumentGoesIntoTheDirectory) {
  const TemporaryDirectory directory;
  for (const char* const end : {"", "/"}) {
    EXPECT_EQ(Export("alpha_1600123456", directory.path() + end).status, 0);
    EXPECT_THAT(directory.FileNames(), ElementsAre("alpha_1600123456.json"));
    EXPECT_EQ(ReadFile(directory.PathOf("alpha_1600123456.json")), kDocument);
  }
}

TEST(DumpBackup, WithoutADirectoryTheDocumentGoesToStandardOutput) {
  const std::string id = IdOfThisProcess();
  const Outcome outcome = Export(id, "");
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.out, kDocument);
  EXPECT_EQ(outcome.err, "");
  EXPECT_EQ(outcome.steps.at(0), "fopen /tmp/" + id + ".qvmeta.json wte");
  EXPECT_NE(access(("/tmp/" + id + ".qvmeta.json").c_str(), F_OK), 0);
  EXPECT_NE(access(("/tmp/" + id + ".json").c_str(), F_OK), 0);
}

TEST(DumpBackup, AllMetadataReachesTheDocumentAsText) {
  const TemporaryDirectory directory;
  FakeHost host;
  host.Prints(
          "{\"n\": 1.50, \"t\": true, \"o\": {\"l\": [1, [], {}, \"/\"]}, \"e\": \"\", "
          "\"fentries\": 7, \"p\": \"5%%\"}")
      .Prints(kLookUp)
      .Prints("");
  EXPECT_EQ(host.Run([&] { return dump_backup("a_1600", directory.path()); }).status, 0);
  EXPECT_EQ(ReadFile(directory.PathOf("a_1600.json")), R"({
    "n": "1.50",
    "t": "true",
    "o": {
        "l": [
            "1",
            "",
            "",
            "\/"
        ]
    },
    "e": "",
    "fentries": "7",
    "p": "5%",
    "fentries": ""
}
)");
}

TEST(DumpBackup, AnArrayOfMetadataHasEmptyKeys) {
  const TemporaryDirectory directory;
  FakeHost host;
  host.Prints("[1, 2]").Prints(kLookUp).Prints("");
  EXPECT_EQ(host.Run([&] { return dump_backup("a_1600", directory.path()); }).status, 0);
  EXPECT_EQ(ReadFile(directory.PathOf("a_1600.json")),
            "{\n    \"\": \"1\",\n    \"\": \"2\",\n    \"fentries\": \"\"\n}\n");
}

/// The command that unfolds the catalogue file of an image.
std::string UnfoldCommandFor(const std::string& backup_id) {
  const TemporaryDirectory directory;
  return Export(backup_id, directory.path()).commands.at(2);
}

TEST(DumpBackup, TheCatalogueFileStandsUnderItsClientAndTime) {
  const std::string start =
      "/usr/ostra/keelhaven/bin/rec_unfold -dump /usr/ostra/keelhaven/db/images";
  EXPECT_EQ(UnfoldCommandFor("alpha_1600123456"), start + "/alpha/1600000000/name");
  EXPECT_EQ(UnfoldCommandFor("_1600123456"), start + "//1600000000/name");
  EXPECT_EQ(UnfoldCommandFor("alpha_1699"), start + "/alpha/1699000000/name");
  EXPECT_EQ(UnfoldCommandFor("alpha_16999999999999"), start + "/alpha/1699000000/name");
}

TEST(DumpBackup, AnIdSplitsAtItsFirstUnderscore) {
  EXPECT_EQ(UnfoldCommandFor("my_host_1600123456"),
            "/usr/ostra/keelhaven/bin/rec_unfold -dump "
            "/usr/ostra/keelhaven/db/images/my/host000000/name");
  EXPECT_EQ(UnfoldCommandFor("a____16"),
            "/usr/ostra/keelhaven/bin/rec_unfold -dump "
            "/usr/ostra/keelhaven/db/images/a/___1000000/name");
}

TEST(DumpBackup, FilesAreNamedAfterTheWholeId) {
  const TemporaryDirectory directory;
  const Outcome outcome = Export("my_host 1_1600123456", directory.path());
  EXPECT_EQ(outcome.steps.at(0),
            "fopen " + directory.path() + "/my_host 1_1600123456.qvmeta.json wte");
  EXPECT_THAT(directory.FileNames(), ElementsAre("my_host 1_1600123456.json"));
}

TEST(DumpBackup, TracesComeBeforeTheDocument) {
  const std::string id = IdOfThisProcess();
  const std::string client = id.substr(0, id.find('_'));
  const std::string expected =
      "[cmd] /usr/ostra/keelhaven/bin/admincmd/qvmeta -json -backupid " + id + "\n" + kMetadata +
      "[cmd] /usr/ostra/keelhaven/bin/admincmd/qvroll -id " + id + "\n" + kLookUp +
      "[cmd] /usr/ostra/keelhaven/bin/rec_unfold -dump /usr/ostra/keelhaven/db/images/" + client +
      "/1600000000/name\n" + kEntries + kDocument;
  for (const int level : {1, 2, 3}) {
    const Outcome outcome = Export(id, "", level);
    EXPECT_EQ(outcome.out, expected);
    EXPECT_EQ(outcome.err, "");
  }
}

TEST(DumpBackup, TheBufferIsNotCleared) {
  const TemporaryDirectory directory;
  FakeHost host;
  host.Prints("{}").Prints(kLookUp).Prints("");
  std::fill(line_buf, line_buf + kLineBufSize, 'x');
  host.Run([&] { return dump_backup("a_1600", directory.path()); });
  EXPECT_STREQ(line_buf, "x name\n");
  EXPECT_TRUE(std::all_of(line_buf + 8, line_buf + kLineBufSize, [](char c) { return c == 'x'; }));
}

}  // namespace
