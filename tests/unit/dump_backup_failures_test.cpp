#include <unistd.h>

#include <cstdio>
#include <stdexcept>
#include <string>
#include <typeinfo>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "export/dump_backup.h"
#include "fake_host.h"
#include "layout/layout.h"
#include "temporary_directory.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;

const char* const kLookUp = "1\n2\nx name\n";
const char* const kEntry = "1\t2\t3\t4\t5\t6\t7\t8\t9\tp\tx\n";

/// Exports the image a_1600 into a directory that holds the document of an earlier export, by the
/// commands that `host` has, and keeps the document's content.
struct Export {
  explicit Export(FakeHost* host) {
    WriteFile(directory.PathOf("a_1600.json"), "before");
    outcome = host->Run([&] { return dump_backup("a_1600", directory.path()); });
    document = ReadFile(directory.PathOf("a_1600.json"));
  }

  TemporaryDirectory directory;
  Outcome outcome;
  std::string document;
};

/// A failure that the function reports leaves the earlier document and no other file.
void ExpectFailure(const Export& failed, const std::string& message) {
  EXPECT_EQ(failed.outcome.thrown, std::nullopt);
  EXPECT_EQ(failed.outcome.status, 1);
  EXPECT_EQ(failed.outcome.out, "");
  EXPECT_EQ(failed.outcome.err, message);
  EXPECT_EQ(failed.document, "before");
  EXPECT_THAT(failed.directory.FileNames(), ElementsAre("a_1600.json"));
}

TEST(DumpBackupFailures, AnIdWithoutAnUnderscoreFailsBeforeAnythingElse) {
  for (const char* const id : {"alpha", "", "alpha-1600123456"}) {
    const TemporaryDirectory directory;
    FakeHost host;
    verbose = 3;
    const Outcome outcome = host.Run([&] { return dump_backup(id, directory.path()); });
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.out, "");
    EXPECT_EQ(outcome.err, "wrong backup_id, no '_' found.\n");
    EXPECT_THAT(outcome.steps, ElementsAre("stderr wrong backup_id, no '_' found.\n"));
    EXPECT_THAT(directory.FileNames(), IsEmpty());
  }
}

TEST(DumpBackupFailures, ATimeOfLessThanFourCharactersThrowsBeforeAnythingElse) {
  for (const char* const id : {"alpha_123", "alpha_", "_", "_1_2"}) {
    const TemporaryDirectory directory;
    FakeHost host;
    verbose = 3;
    const Outcome outcome = host.Run([&] { return dump_backup(id, directory.path()); });
    ASSERT_TRUE(outcome.thrown.has_value());
    EXPECT_TRUE(outcome.thrown->type == typeid(std::out_of_range));
    EXPECT_THAT(outcome.thrown->what, StartsWith("basic_string::at"));
    EXPECT_EQ(outcome.out + outcome.err, "");
    EXPECT_THAT(outcome.steps, IsEmpty());
    EXPECT_THAT(directory.FileNames(), IsEmpty());
  }
}

TEST(DumpBackupFailures, AMissingDirectoryFails) {
  const TemporaryDirectory directory;
  const std::string missing = directory.PathOf("missing");
  FakeHost host;
  const Outcome outcome = host.Run([&] { return dump_backup("a_1600", missing); });
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.err, "fopen() failed. can't create file " + missing + "/a_1600.qvmeta.json\n");
  EXPECT_THAT(outcome.commands, IsEmpty());
}

TEST(DumpBackupFailures, RefusedMetadataLeaveAnEmptyFile) {
  FakeHost host;
  host.Refuses();
  const Export failed(&host);
  EXPECT_EQ(failed.outcome.status, 1);
  EXPECT_EQ(failed.outcome.out, "");
  EXPECT_EQ(failed.outcome.err, "run command qvmeta failed.\n");
  EXPECT_EQ(failed.document, "before");
  EXPECT_THAT(failed.directory.FileNames(), ElementsAre("a_1600.json", "a_1600.qvmeta.json"));
  EXPECT_EQ(ReadFile(failed.directory.PathOf("a_1600.qvmeta.json")), "");
}

TEST(DumpBackupFailures, MetadataThatAreNoJsonStayInTheirFile) {
  FakeHost host;
  host.Prints("error: no such image\n");
  const Export failed(&host);
  ASSERT_TRUE(failed.outcome.thrown.has_value());
  EXPECT_EQ(failed.outcome.thrown->what,
            failed.directory.PathOf("a_1600.qvmeta.json") + "(1): expected value");
  EXPECT_EQ(failed.outcome.out + failed.outcome.err, "");
  EXPECT_EQ(failed.document, "before");
  EXPECT_EQ(ReadFile(failed.directory.PathOf("a_1600.qvmeta.json")), "error: no such image\n");
  EXPECT_EQ(failed.outcome.commands.size(), 1U);
}

TEST(DumpBackupFailures, ARefusedLookUpFails) {
  FakeHost host;
  host.Prints("{}").Refuses();
  ExpectFailure(Export(&host), "run command qvroll failed.\n");
}

TEST(DumpBackupFailures, ALookUpWithoutABlankFails) {
  FakeHost host;
  host.Prints("{}").Prints("1\n2\nname\n");
  ExpectFailure(Export(&host), "parse output of qvroll failed.\n");
}

TEST(DumpBackupFailures, ALookUpOfAnyOtherNumberOfLinesFails) {
  for (const char* const output : {"", "1\n2\n", "1\n2\nx name\n4\n"}) {
    FakeHost host;
    host.Prints("{}").Prints(output);
    ExpectFailure(Export(&host),
                  "parse output of qvrolle failed. output lines is not the same as expected.\n");
  }
}

TEST(DumpBackupFailures, AMissingNameThrows) {
  FakeHost host;
  host.Prints("{}").Prints("1\n2\nx ");
  const Export failed(&host);
  ASSERT_TRUE(failed.outcome.thrown.has_value());
  EXPECT_TRUE(failed.outcome.thrown->type == typeid(std::out_of_range));
  EXPECT_THAT(failed.outcome.thrown->what, StartsWith("basic_string::erase"));
  EXPECT_EQ(failed.outcome.err, "");
  EXPECT_THAT(failed.directory.FileNames(), ElementsAre("a_1600.json"));
}

TEST(DumpBackupFailures, RefusedEntriesFail) {
  FakeHost host;
  host.Prints("{}").Prints(kLookUp).Refuses();
  ExpectFailure(Export(&host), "run command rec_unfold failed.\n");
}

TEST(DumpBackupFailures, EntriesOfAnyOtherFieldCountFail) {
  FakeHost host;
  host.Prints("{}").Prints(kLookUp).Prints(std::string(kEntry) + kEntry + "too\tfew\n");
  ExpectFailure(Export(&host), "parse output failed. token size mismatch\n");
}

TEST(DumpBackupFailures, NothingIsOnStandardOutputAfterAFailure) {
  const std::string id = "unit" + std::to_string(getpid()) + "_1600123457";
  FakeHost host;
  host.Prints("{}").Prints(kLookUp).Prints(std::string(kEntry) + "too\tfew\n");
  const Outcome outcome = host.Run([&] { return dump_backup(id, ""); });
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.out, "");
  EXPECT_NE(access(("/tmp/" + id + ".qvmeta.json").c_str(), F_OK), 0);
}

TEST(DumpBackupFailures, NoDocumentIsThereBeforeTheEntriesAreRead) {
  std::string document_when_asked_for_entries;
  const TemporaryDirectory directory;
  WriteFile(directory.PathOf("a_1600.json"), "before");
  FakeHost host;
  host.Prints("{}").Prints(kLookUp).Prints(kEntry).OnStart(
      [&] { document_when_asked_for_entries = ReadFile(directory.PathOf("a_1600.json")); });
  host.Run([&] { return dump_backup("a_1600", directory.path()); });
  EXPECT_EQ(document_when_asked_for_entries, "before");
  EXPECT_NE(ReadFile(directory.PathOf("a_1600.json")), "before");
}

TEST(DumpBackupFailures, ScalarMetadataAreRefusedBehindTheOpenedDocument) {
  for (const char* const metadata : {"\"text\"", "5", "null"}) {
    for (const char* const entries : {"", kEntry}) {
      FakeHost host;
      host.Prints(metadata).Prints(kLookUp).Prints(entries);
      const Export failed(&host);
      ASSERT_TRUE(failed.outcome.thrown.has_value());
      EXPECT_EQ(failed.outcome.thrown->what,
                failed.directory.PathOf("a_1600.json") +
                    ": ptree contains data that cannot be represented in JSON format");
      EXPECT_EQ(failed.document, "");
      EXPECT_THAT(failed.directory.FileNames(), ElementsAre("a_1600.json"));
    }
  }
}

TEST(DumpBackupFailures, ADocumentThatCannotBeOpenedIsTheWritersError) {
  const TemporaryDirectory directory;
  FakeHost host;
  host.Prints("{}").Prints(kLookUp).Prints(kEntry).OnStart([&] {
    // A file stands where the directory was.
    EXPECT_EQ(rmdir(directory.path().c_str()), 0);
    WriteFile(directory.path(), "");
  });
  const Outcome outcome = host.Run([&] { return dump_backup("a_1600", directory.path()); });
  ASSERT_TRUE(outcome.thrown.has_value());
  EXPECT_EQ(outcome.thrown->what, directory.path() + "/a_1600.json: cannot open file");
  EXPECT_EQ(outcome.err, "");
  std::remove(directory.path().c_str());
}

}  // namespace
