#include "export/json_document.h"

#include <iostream>
#include <locale>
#include <sstream>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <boost/property_tree/json_parser.hpp>
#include <boost/property_tree/ptree.hpp>

#include "export/file_entry_table.h"
#include "fake_host.h"
#include "random_text.h"
#include "temporary_directory.h"

namespace {

using boost::property_tree::ptree;
using testing::IsEmpty;

const Fields kEntry = {"1", "2", "3", "4", "5", "6", "7", "8", "9", "/a b", "x\r"};

/// `root` with the entries as a tree behind it: what the document stands for.
ptree WithEntries(ptree root, const std::vector<Fields>& entries) {
  root.push_back({"fentries", TreeOf(entries)});
  return root;
}

/// The document of an image, in the file `path` or on standard output.
void WriteImageDocument(ptree* root, const FileEntryTable& table, const std::string& path = "") {
  WriteDocument(
      root, "fentries", [&table](std::ostream& out) { table.WriteArray(out); }, path);
}

/// The document on standard output.
Outcome OnStandardOutput(ptree root, const std::vector<Fields>& entries,
                         const std::string& device = "") {
  const FileEntryTable table = TableOf(entries);
  FakeHost host;
  if (!device.empty()) {
    host.SendStandardOutputTo(device);
  }
  return host.Run([&] { WriteImageDocument(&root, table); });
}

/// The document in the file `path`.
Outcome InFile(ptree root, const std::vector<Fields>& entries, const std::string& path) {
  const FileEntryTable table = TableOf(entries);
  FakeHost host;
  return host.Run([&] { WriteImageDocument(&root, table, path); });
}

/// What the JSON writer does on standard output with the real tree.
Outcome WriterOnStandardOutput(const ptree& tree, const std::string& device = "") {
  FakeHost host;
  if (!device.empty()) {
    host.SendStandardOutputTo(device);
  }
  return host.Run([&] { boost::property_tree::write_json(std::cout, tree, true); });
}

/// What the JSON writer does in the file `path` with the real tree.
Outcome WriterInFile(const ptree& tree, const std::string& path) {
  FakeHost host;
  return host.Run([&] { boost::property_tree::write_json(path, tree, std::locale(), true); });
}

/// Both forms of the document have the bytes of the real tree.
void ExpectTheWritersBytes(const ptree& root, const std::vector<Fields>& entries) {
  const TemporaryDirectory directory;
  const std::string path = directory.PathOf("x.json");
  const ptree tree = WithEntries(root, entries);
  ASSERT_EQ(WriterInFile(tree, path).thrown, std::nullopt);
  const std::string expected = ReadFile(path);

  WriteFile(path, std::string(expected.size() + 1000, 'x'));
  const Outcome in_file = InFile(root, entries, path);
  EXPECT_EQ(in_file.thrown, std::nullopt);
  EXPECT_EQ(in_file.out + in_file.err, "");
  EXPECT_TRUE(ReadFile(path) == expected);

  const Outcome on_standard_output = OnStandardOutput(root, entries);
  EXPECT_EQ(on_standard_output.thrown, std::nullopt);
  EXPECT_EQ(on_standard_output.err, "");
  EXPECT_TRUE(on_standard_output.out == expected);
  EXPECT_TRUE(WriterOnStandardOutput(tree).out == expected);
}

ptree Member(const std::string& key, const std::string& value) {
  ptree root;
  root.push_back({key, ptree(value)});
  return root;
}

TEST(JsonDocument, TheEntriesStandBehindTheMetadata) {
  ptree root = Member("z", "1");
  root.push_back({"a", ptree("true")});
  EXPECT_EQ(OnStandardOutput(root, {kEntry, kEntry}).out, R"({
    "z": "1",
    "a": "true",
    "fentries": [
        {
            "filenum": "1",
            "length": "2",
            "plength": "3",
            "dlength": "4",
            "blknum": "5",
            "in_image": "6",
            "raw_partition_sz": "7",
            "gigabytes": "8",
            "device_num": "9",
            "path": "\/a b",
            "data": "x\r"
        },
        {
            "filenum": "1",
            "length": "2",
            "plength": "3",
            "dlength": "4",
            "blknum": "5",
            "in_image": "6",
            "raw_partition_sz": "7",
            "gigabytes": "8",
            "device_num": "9",
            "path": "\/a b",
            "data": "x\r"
        }
    ]
}
)");
}

TEST(JsonDocument, NoEntriesMakeAnEmptyText) {
  EXPECT_EQ(OnStandardOutput(Member("z", "1"), {}).out,
            "{\n    \"z\": \"1\",\n    \"fentries\": \"\"\n}\n");
  EXPECT_EQ(OnStandardOutput(ptree(), {}).out, "{\n    \"fentries\": \"\"\n}\n");
}

TEST(JsonDocument, AMemberOfThatNameStays) {
  EXPECT_EQ(OnStandardOutput(Member("fentries", "mine"), {}).out,
            "{\n    \"fentries\": \"mine\",\n    \"fentries\": \"\"\n}\n");
  ExpectTheWritersBytes(Member("fentries", "mine"), {kEntry});
  ExpectTheWritersBytes(Member("fentries", ""), {kEntry});
}

TEST(JsonDocument, TheMembersOfAnArrayHaveEmptyKeys) {
  ptree root = Member("", "1");
  root.push_back({"", ptree("2")});
  EXPECT_EQ(OnStandardOutput(root, {}).out,
            "{\n    \"\": \"1\",\n    \"\": \"2\",\n    \"fentries\": \"\"\n}\n");
  ExpectTheWritersBytes(root, {kEntry});
}

TEST(JsonDocument, TheEntriesAreAppendedToTheTree) {
  ptree root = Member("z", "1");
  const FileEntryTable table = TableOf({kEntry});
  FakeHost host;
  host.Run([&] { WriteImageDocument(&root, table); });
  ASSERT_EQ(root.size(), 2U);
  EXPECT_EQ(root.back().first, "fentries");
}

TEST(JsonDocument, TextsThatLookLikeItsEndAreJustTexts) {
  ExpectTheWritersBytes(Member("\"\"\n}\n", "\"fentries\": \"\"\n}\n"), {kEntry});
}

TEST(JsonDocument, HasTheBytesOfARealTreeForRandomMetadata) {
  RandomText random(99);
  for (int i = 0; i < 150; ++i) {
    SCOPED_TRACE(i);
    const ptree root = random.Tree(5);
    const std::vector<Fields> entries = random.Entries(random.Number(0, 3), 30);
    if (root.data().empty()) {  // a scalar root is refused
      ExpectTheWritersBytes(root, entries);
    }
  }
}

TEST(JsonDocument, HasTheBytesOfARealTreeForManyEntries) {
  RandomText random(1234);
  std::vector<Fields> entries = random.Entries(1500, 60);
  entries[1000][9] = std::string(1200000, 'p') + "/\"\\";
  ExpectTheWritersBytes(random.Tree(4), entries);
}

TEST(JsonDocument, AScalarIsRefusedBehindTheOpenedFile) {
  const TemporaryDirectory directory;
  const std::string path = directory.PathOf("x.json");
  for (const std::vector<Fields>& entries : {std::vector<Fields>{}, {kEntry}}) {
    WriteFile(path, "before");
    const Outcome outcome = InFile(ptree("scalar"), entries, path);
    EXPECT_EQ(ReadFile(path), "");
    ASSERT_TRUE(outcome.thrown.has_value());
    EXPECT_EQ(outcome.thrown->what,
              path + ": ptree contains data that cannot be represented in JSON format");
    EXPECT_EQ(outcome.thrown, WriterInFile(WithEntries(ptree("scalar"), entries), path).thrown);
    EXPECT_EQ(outcome.out + outcome.err, "");
  }
}

TEST(JsonDocument, AScalarIsRefusedOnStandardOutput) {
  for (const std::vector<Fields>& entries : {std::vector<Fields>{}, {kEntry}}) {
    const Outcome outcome = OnStandardOutput(ptree("scalar"), entries);
    ASSERT_TRUE(outcome.thrown.has_value());
    EXPECT_EQ(outcome.thrown->what,
              "<unspecified file>: ptree contains data that cannot be represented in JSON format");
    EXPECT_EQ(outcome.thrown, WriterOnStandardOutput(WithEntries(ptree("scalar"), entries)).thrown);
    EXPECT_EQ(outcome.out + outcome.err, "");
  }
}

TEST(JsonDocument, AnEmptyScalarIsAnEmptyObject) {
  EXPECT_EQ(OnStandardOutput(ptree(""), {}).out, "{\n    \"fentries\": \"\"\n}\n");
}

void ExpectCannotBeOpened(const ptree& root, const std::vector<Fields>& entries,
                          const std::string& path) {
  const Outcome outcome = InFile(root, entries, path);
  ASSERT_TRUE(outcome.thrown.has_value());
  EXPECT_EQ(outcome.thrown->what, path + ": cannot open file");
  EXPECT_EQ(outcome.thrown, WriterInFile(WithEntries(root, entries), path).thrown);
}

TEST(JsonDocument, AFileThatCannotBeOpenedIsTheWritersError) {
  const TemporaryDirectory directory;
  for (const std::string& path : {directory.PathOf("missing/x.json"), directory.path()}) {
    for (const std::vector<Fields>& entries : {std::vector<Fields>{}, {kEntry}}) {
      ExpectCannotBeOpened(ptree(), entries, path);
      ExpectCannotBeOpened(ptree("scalar"), entries, path);
    }
  }
  EXPECT_THAT(directory.FileNames(), IsEmpty());
}

/// One entry, which waits in buffers, and entries that do not.
std::vector<std::vector<Fields>> FewAndManyEntries() {
  return {{}, {kEntry}, std::vector<Fields>(3000, kEntry)};
}

TEST(JsonDocument, AFullDiskIsTheWritersError) {
  for (const std::vector<Fields>& entries : FewAndManyEntries()) {
    const Outcome outcome = InFile(Member("z", "1"), entries, "/dev/full");
    ASSERT_TRUE(outcome.thrown.has_value());
    EXPECT_EQ(outcome.thrown->what, "/dev/full: write error");
    EXPECT_EQ(outcome.thrown,
              WriterInFile(WithEntries(Member("z", "1"), entries), "/dev/full").thrown);
  }
}

TEST(JsonDocument, AFullStandardOutputIsTheWritersError) {
  for (const std::vector<Fields>& entries : FewAndManyEntries()) {
    const Outcome outcome = OnStandardOutput(Member("z", "1"), entries, "/dev/full");
    ASSERT_TRUE(outcome.thrown.has_value());
    EXPECT_EQ(outcome.thrown->what, "<unspecified file>: write error");
    EXPECT_EQ(outcome.thrown,
              WriterOnStandardOutput(WithEntries(Member("z", "1"), entries), "/dev/full").thrown);
  }
}

TEST(JsonDocument, GoesToAStreamAsWell) {
  ptree root = Member("z", "1");
  std::ostringstream out;
  WriteDocumentTo(
      &out, &root, "list", [](std::ostream& array) { array << "[]"; }, "x.json");
  EXPECT_EQ(out.str(), "{\n    \"z\": \"1\",\n    \"list\": []\n}\n");
}

TEST(JsonDocument, AStreamThatFailsIsTheWritersErrorAndNamesThePath) {
  ptree root = Member("z", "1");
  std::ostringstream out;
  const auto thrown = WhatIsThrownBy([&] {
    WriteDocumentTo(
        &out, &root, "list", [](std::ostream& array) { array.setstate(std::ios::badbit); },
        "x.json");
  });
  ASSERT_TRUE(thrown.has_value());
  EXPECT_EQ(thrown->what, "x.json: write error");
}

TEST(JsonDocument, IsOnStandardOutputWhenTheCallReturns) {
  ptree root;
  const FileEntryTable table = TableOf({kEntry});
  FakeHost host;
  host.Refuses();
  const Outcome outcome = host.Run([&] {
    WriteImageDocument(&root, table);
    popen("look", "r");
  });
  EXPECT_EQ(outcome.out_at_start.at(0), outcome.out);
  EXPECT_FALSE(outcome.out.empty());
}

}  // namespace
