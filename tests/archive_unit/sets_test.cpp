// Which set files there are after a sync.

#include <errno.h>

#include <filesystem>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "failing_calls.h"
#include "product.h"

namespace {

class Sets : public ArchiveTest {
 protected:
  Sets() { EXPECT_EQ(Run({"init", "ARCHIVE", "--server", "s"}).status, 0); }

  /// Syncs, and returns "WRITTEN REMOVED WAITING".
  std::string Sync(const std::string& rows, std::vector<std::string> options = {}) {
    Lists(rows);
    options.insert(options.begin(), {"sync", "ARCHIVE"});
    const std::string out = Run(options).out;
    int written = -1;
    int removed = -1;
    int waiting = -1;
    sscanf(out.substr(out.find("; sets: ")).c_str(), "; sets: %d written, %d removed, %d", &written,
           &removed, &waiting);
    return std::to_string(written) + ' ' + std::to_string(removed) + ' ' + std::to_string(waiting);
  }

  /// The members of the set in the file `name` of the series of Row; "none" without such a file.
  [[nodiscard]] std::vector<std::string> Members(const std::string& name) const {
    const std::string path = PathOf("sets/a/Files/Daily/" + name);
    if (!std::filesystem::exists(path)) {
      return {"none"};
    }
    std::string error;
    return ReadSetFile(ReadFile(path), &error).value().images;
  }
};

using Ids = std::vector<std::string>;

}  // namespace

TEST_F(Sets, ASetIsWrittenOnceAndSaysWhatItIs) {
  const std::string rows = Row("a_1001", 1) + Row("a_1002", 1) + Row("a_1003", 0);
  EXPECT_EQ(Sync(rows), "1 0 0");
  EXPECT_EQ(Files("sets").at("sets/a/Files/Daily/1003.json"), R"({
    "format": "quillmere-archive set",
    "version": 1,
    "server": "s",
    "client": "a",
    "policy": "Files",
    "schedule": "Daily",
    "backup_id": "a_1003",
    "create_time": 1003,
    "create_time_utc": "1970-01-01T00:16:43Z",
    "size_bytes": 4096,
    "images": [
        {
            "backup_id": "a_1001"
        },
        {
            "backup_id": "a_1002"
        }
    ]
}
)");
  EXPECT_EQ(Sync(rows), "0 0 0");
}

TEST_F(Sets, ASetThatGainsMembersIsReplaced) {
  EXPECT_EQ(Sync(Row("a_1002", 1) + Row("a_1001", 0)), "1 0 0");
  EXPECT_EQ(Sync(Row("a_1003", 1) + Row("a_1002", 1) + Row("a_1001", 0)), "1 0 0");
  EXPECT_EQ(Members("1001.json"), (Ids{"a_1003", "a_1002"}));
}

TEST_F(Sets, AParentThatExpiresJoinsTwoSets) {
  EXPECT_EQ(Sync(Row("a_1001", 1) + Row("a_1002", 0) + Row("a_1003", 1) + Row("a_1004", 0)),
            "2 0 0");
  EXPECT_EQ(Sync(Row("a_1001", 1) + Row("a_1003", 1) + Row("a_1004", 0)), "1 1 0");
  EXPECT_EQ(Members("1002.json"), Ids{"none"});
  EXPECT_EQ(Members("1004.json"), (Ids{"a_1001", "a_1003"}));
}

TEST_F(Sets, ASetThatExpiredStays) {
  EXPECT_EQ(Sync(Row("a_1001", 1) + Row("a_1002", 0) + Row("a_1003", 1) + Row("a_1004", 0)),
            "2 0 0");
  EXPECT_EQ(Sync(Row("a_1003", 1) + Row("a_1004", 0)), "0 0 0");
  EXPECT_EQ(Members("1002.json"), Ids{"a_1001"});
  EXPECT_EQ(Sync(""), "0 0 0");
  EXPECT_EQ(Members("1004.json"), Ids{"a_1003"});
}

TEST_F(Sets, ImagesWithoutASetAreKeptAllTheSame) {
  EXPECT_EQ(Sync(Row("a_1001", 0) + Row("a_1002", 1)), "0 0 0");
  EXPECT_TRUE(std::filesystem::exists(PathOf("images/a/a_1002/manifest.json")));
}

TEST_F(Sets, ASetWaitsForItsImages) {
  const std::string rows = Row("a_1001", 1) + Row("a_1002", 1) + Row("a_1003", 0);
  EXPECT_EQ(Sync(rows, {"--limit", "1"}), "0 0 1");
  EXPECT_EQ(Members("1003.json"), Ids{"none"});
  EXPECT_EQ(Sync(rows), "1 0 0");
}

TEST_F(Sets, OfTwoWithTheSameNameTheFirstCounts) {
  EXPECT_EQ(Sync(Row("a_1001", 1) + Row("a_1003", 0) + Row("a_1002", 1) + Row("a_1003", 0)),
            "1 0 0");
  EXPECT_EQ(Members("1003.json"), Ids{"a_1001"});
}

TEST_F(Sets, OnlyThoseOfChosenSeriesAreWritten) {
  EXPECT_EQ(
      Sync(Row("a_1001", 1) + Row("b_1001", 1) + Row("a_1002", 1, "Other"), {"--client", "a"}),
      "2 0 0");
  EXPECT_EQ(Sync(Row("a_1001", 1) + Row("b_1001", 1), {"--newer-than", "1d"}), "0 0 1");
}

TEST_F(Sets, WhatIsNoSetFileIsLeftAlone) {
  EXPECT_EQ(Sync(Row("a_1001", 1)), "1 0 0");
  WriteFile(PathOf("sets/a/Files/Daily/notes"), "text");
  std::filesystem::create_directory(PathOf("sets/a/Files/Daily/1000.json"));
  EXPECT_EQ(Sync(Row("a_1001", 1)), "0 0 0");
  EXPECT_TRUE(std::filesystem::exists(PathOf("sets/a/Files/Daily/notes")));
}

TEST_F(Sets, ManyAreWrittenAtOnce) {
  std::string rows;
  for (int time = 1000; time < 1300; ++time) {
    rows += Row("a_" + std::to_string(time), 0) + Row("a_1", 1);
  }
  EXPECT_EQ(Sync(Row("a_1001", 1) + rows), "1 0 299");
}

TEST_F(Sets, ThatCannotBeSyncedAreNotThere) {
  ASSERT_EQ(Sync(Row("a_1001", 1)), "1 0 0");
  struct Case {
    std::string function;
    int after;  // what is called before: to make and to sync the three directories above a set
  };
  for (const auto& [function, after] : {Case{"fsync", 4}, Case{"write", 0}, Case{"renameat", 0}}) {
    std::filesystem::remove_all(PathOf("sets"));
    FailOnceHere(function, EIO, after);
    const Outcome outcome = Run({"sync", "ARCHIVE", "--quiet"});
    FailNothing();
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.err,
              std::string(function) == "renameat"
                  ? "can't make ARCHIVE/sets/a/Files/Daily/1001.json: Input/output error\n"
                  : "can't write ARCHIVE/.staging/file-0: Input/output error\n");
    EXPECT_TRUE(std::filesystem::is_empty(PathOf("sets/a/Files/Daily")));
    EXPECT_TRUE(std::filesystem::is_empty(PathOf(".staging")));
  }
}

TEST_F(Sets, ThatCannotBeWrittenAreSaidAndTheOthersAreWritten) {
  Lists(Row("a_1001", 1) + Row("b_1001", 1));
  ASSERT_EQ(Run({"sync", "ARCHIVE"}).status, 0);
  std::filesystem::remove_all(PathOf("sets"));
  std::filesystem::create_directory(PathOf("sets"));
  std::filesystem::create_symlink("/", PathOf("sets/a"));
  EXPECT_EQ(Run({"sync", "ARCHIVE"}),
            (Outcome{1,
                     "0 exported, 0 failed, 0 expired, 0 warnings; sets: 1 written, 0 removed, 0 "
                     "waiting for images\n",
                     "ARCHIVE/sets/a is a symbolic link\n"}));
}
