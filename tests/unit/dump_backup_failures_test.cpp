#include <unistd.h>

#include <functional>
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

const char* const kFoundFile = "1\n2\nx name\n";
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

TEST(DumpBackupFailures, TheEarlierDocumentStaysAndNoOtherFile) {
  const struct {
    std::function<void(FakeHost*)> product;  // behind the metadata
    const char* message;
  } failures[] = {
      {[](FakeHost* host) { host->Refuses(); }, "run command qvroll failed.\n"},
      {[](FakeHost* host) { host->Prints("1\n2\nname\n"); }, "parse output of qvroll failed.\n"},
      {[](FakeHost* host) { host->Prints("1\n2\n"); },
       "parse output of qvrolle failed. output lines is not the same as expected.\n"},
      {[](FakeHost* host) { host->Prints(kFoundFile).Refuses(); },
       "run command rec_unfold failed.\n"},
      {[](FakeHost* host) { host->Prints(kFoundFile).Prints(std::string(kEntry) + "too\tfew\n"); },
       "parse output failed. token size mismatch\n"},
  };
  for (const auto& failure : failures) {
    FakeHost host;
    host.Prints("{}");
    failure.product(&host);
    const Export failed(&host);
    EXPECT_EQ(failed.outcome.thrown, std::nullopt);
    EXPECT_EQ(failed.outcome.status, 1);
    EXPECT_EQ(failed.outcome.out, "");
    EXPECT_EQ(failed.outcome.err, failure.message);
    EXPECT_EQ(failed.document, "before");
    EXPECT_THAT(failed.directory.FileNames(), ElementsAre("a_1600.json"));
  }
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

TEST(DumpBackupFailures, NothingIsOnStandardOutputAfterAFailure) {
  const std::string id = "unit" + std::to_string(getpid()) + "_1600123457";
  FakeHost host;
  host.Prints("{}").Prints(kFoundFile).Prints(std::string(kEntry) + "too\tfew\n");
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
  host.Prints("{}").Prints(kFoundFile).Prints(kEntry).OnStart([&] {
    document_when_asked_for_entries = ReadFile(directory.PathOf("a_1600.json"));
  });
  host.Run([&] { return dump_backup("a_1600", directory.path()); });
  EXPECT_EQ(document_when_asked_for_entries, "before");
  EXPECT_NE(ReadFile(directory.PathOf("a_1600.json")), "before");
}

TEST(DumpBackupFailures, ScalarMetadataAreRefusedBehindTheOpenedDocument) {
  for (const char* const metadata : {"\"text\"", "5", "null"}) {
    for (const char* const entries : {"", kEntry}) {
      FakeHost host;
      host.Prints(metadata).Prints(kFoundFile).Prints(entries);
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

}  // namespace
