// Sets and images that are removed, the marks that stay, and what a sync makes of those.

#include <errno.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <ctime>
#include <filesystem>
#include <functional>
#include <iostream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "archive/commands/verify.h"
#include "archive/store.h"
#include "archive/units.h"
#include "failing_calls.h"
#include "product.h"
#include "terminal.h"

namespace {

const std::string kRows =
    Row("a_1600000000", 1) + Row("a_1600003600", 1) + Row("b_1600000000", 1) + Row("c_xxxx", 1);

const std::string kSetLine =
    "sets/a/Files/Daily/1600000000.json: of 2020-09-13T12:26:40Z, 1 images\n";
const std::string kImageLine = "a_1600000000: of 2020-09-13T12:26:40Z, 381 bytes\n";
const std::string kPlan = kSetLine + kImageLine + "1 sets, 1 images, 381 bytes to remove\n";
const std::string kDone = "1 sets, 1 images, 381 bytes removed\n";
const std::string kNoSync =
    "0 exported, 0 failed, 0 expired, 0 warnings; sets: 0 written, 0 removed, 0 waiting for "
    "images\n";

/// What is printed; at the first line, `act` is called.
class ActingBuffer : public std::stringbuf {
 public:
  explicit ActingBuffer(std::function<void()> act) : act_(std::move(act)) {}

 protected:
  int sync() override {
    if (act_) {
      act_();
      act_ = nullptr;
    }
    return 0;
  }

 private:
  std::function<void()> act_;
};

/// Four images, each a set, of which only the older one of a has a newer one beside it.
class Prune : public ArchiveTest {
 protected:
  Prune() { Keep(kRows); }

  Outcome RunPrune(const std::vector<std::string>& options = {}) {
    std::vector<std::string> arguments = {"prune", "ARCHIVE", "--older-than", "1d"};
    arguments.insert(arguments.end(), options.begin(), options.end());
    return Run(arguments);
  }

  /// The archive holds nothing of these clients any more.
  void Drop(const std::vector<std::string>& clients) const {
    for (const std::string& client : clients) {
      std::filesystem::remove_all(PathOf("images/" + client));
      std::filesystem::remove_all(PathOf("sets/" + client));
    }
  }

  /// Prunes on a terminal on which `typed` is typed, and returns what that shows.
  std::string RunOnTerminal(const std::string& typed, const std::string& option) const {
    return Terminal(typed).With({STDIN_FILENO, STDOUT_FILENO}, [&] {
      EXPECT_EQ(RunAsItIs({"prune", "ARCHIVE", "--older-than", "1d", option}), 0);
    });
  }

  /// `text` with "N" for this process in the names of what is staged.
  static std::string WithoutProcess(std::string text) {
    const std::string process = ".staging/" + std::to_string(getpid());
    const std::size_t at = text.find(process);
    return at == std::string::npos ? text : text.replace(at, process.size(), ".staging/N");
  }

  [[nodiscard]] bool Has(const std::string& name) const {
    return std::filesystem::exists(PathOf(name));
  }
};

const std::string kImage = "images/a/a_1600000000";
const std::string kSet = "sets/a/Files/Daily/1600000000.json";
const std::string kMark = "pruned/a/a_1600000000.json";

}  // namespace

TEST_F(Prune, RemovesASetAndItsImageAndLeavesAMark) {
  std::map<std::string, std::string> files = Files("");
  std::string manifest = files.at(kImage + "/manifest.json");
  const std::int64_t before = std::time(nullptr);
  EXPECT_EQ(RunPrune(), (Outcome{0, kPlan + kDone, ""}));
  std::map<std::string, std::string> left = Files("");
  const std::string mark = left[kMark];
  const std::string key = "\"pruned\": ";
  ASSERT_NE(mark.find(key), std::string::npos);
  const std::int64_t pruned = std::stoll(mark.substr(mark.find(key) + key.size()));
  EXPECT_GE(pruned, before);
  EXPECT_LE(pruned, std::time(nullptr));
  manifest.replace(manifest.size() - 3, 3,
                   ",\n    \"pruned\": " + std::to_string(pruned) + ",\n    \"pruned_utc\": \"" +
                       Rfc3339(pruned).value() + "\"\n}\n");
  EXPECT_EQ(mark, manifest);
  left.erase(kMark);
  std::erase_if(
      files, [](const auto& file) { return file.first.starts_with(kImage) || file.first == kSet; });
  EXPECT_EQ(left, files);
  EXPECT_FALSE(Has(kImage));
  EXPECT_TRUE(std::filesystem::is_empty(PathOf(".staging")));
  EXPECT_EQ(Run({"verify", "ARCHIVE"}),
            (Outcome{0, "3 images, 3 sets, 1143 bytes: 0 problems\n", ""}));
  EXPECT_EQ(RunPrune(), (Outcome{0,
                                 "0 sets, 0 images, 0 bytes to remove\n"
                                 "0 sets, 0 images, 0 bytes removed\n",
                                 ""}));
}

TEST_F(Prune, ADryRunOnlySaysWhatWouldGo) {
  WriteFile(PathOf(".staging/left"), "");
  const std::map<std::string, std::string> files = Files("");
  std::filesystem::remove(PathOf(".lock"));
  EXPECT_EQ(RunPrune({"--dry-run"}), (Outcome{0, kPlan, ""}));
  EXPECT_EQ(Files(""), files);
  EXPECT_FALSE(Has(".lock"));
}

TEST_F(Prune, ItRemovesWhatInterruptedRunsLeft) {
  std::filesystem::create_directories(PathOf(".staging/1-1"));
  WriteFile(PathOf(".staging/1-1/manifest.json"), "");
  EXPECT_EQ(RunPrune({"--keep-last", "2"}).status, 0);
  EXPECT_TRUE(std::filesystem::is_empty(PathOf(".staging")));
}

TEST_F(Prune, SoManySetsOfASeriesStay) {
  EXPECT_EQ(RunPrune({"--keep-last", "2"}), (Outcome{0,
                                                     "0 sets, 0 images, 0 bytes to remove\n"
                                                     "0 sets, 0 images, 0 bytes removed\n",
                                                     ""}));
}

TEST_F(Prune, MoreThanHalfOfTheImagesNeedForce) {
  Lists(kRows + Row("a_1600007200", 1));
  ASSERT_EQ(Run({"sync", "ARCHIVE", "--quiet"}).status, 0);
  Drop({"b", "c"});
  const std::string plan =
      kSetLine + "sets/a/Files/Daily/1600003600.json: of 2020-09-13T13:26:40Z, 1 images\n" +
      kImageLine + "a_1600003600: of 2020-09-13T13:26:40Z, 381 bytes\n2 sets, 2 images, 762 bytes ";
  EXPECT_EQ(RunPrune({"--dry-run"}), (Outcome{0, plan + "to remove\n", ""}));
  WriteFile(PathOf(".staging/left"), "");
  const std::map<std::string, std::string> files = Files("");
  EXPECT_EQ(
      RunPrune({"--yes"}),
      (Outcome{1, plan + "to remove\n", "2 of 3 images would go: more than half needs --force\n"}));
  EXPECT_EQ(Files(""), files);
  EXPECT_EQ(RunPrune({"--force"}),
            (Outcome{0, plan + "to remove\n2 sets, 2 images, 762 bytes removed\n", ""}));
}

TEST_F(Prune, HalfOfTheImagesNeedNoForce) {
  Drop({"b", "c"});
  EXPECT_EQ(RunPrune(), (Outcome{0, kPlan + kDone, ""}));
}

TEST_F(Prune, OnATerminalItAsks) {
  struct Case {
    std::string typed;
    std::string rest;
    bool is_removed;
  };
  const std::string question = "Remove them? [y/N] ";
  const std::vector<Case> kCases = {
      {"\n", "nothing removed\n", false},
      {"n\n", "nothing removed\n", false},
      {"yesterday\n", "nothing removed\n", false},
      {"\x04", "\nnothing removed\n", false},
      {"y\n", kDone, true},
      {"YES\n", kDone, true},
  };
  for (const Case& answered : kCases) {
    EXPECT_EQ(RunOnTerminal(answered.typed, "--keep-last=1"), kPlan + question + answered.rest);
    EXPECT_EQ(!Has(kImage), answered.is_removed) << answered.typed;
    ASSERT_EQ(Run({"sync", "ARCHIVE", "--quiet", "--again"}), (Outcome{0, "", ""}));
  }
  EXPECT_EQ(RunOnTerminal("\x04", "--keep-last=2"),
            "0 sets, 0 images, 0 bytes to remove\n0 sets, 0 images, 0 bytes removed\n");
  EXPECT_EQ(RunOnTerminal("\x04", "--yes"), kPlan + kDone);
}

TEST_F(Prune, WithAnotherOneAtWorkNothingIsDone) {
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  const pid_t other = fork();
  if (other == 0) {
    Store store(archive_);
    const char is_locked = store.Lock() ? 'y' : 'n';
    (void)!write(ends[1], &is_locked, 1);
    pause();
  }
  char is_locked = 'n';
  ASSERT_EQ(read(ends[0], &is_locked, 1), 1);
  ASSERT_EQ(is_locked, 'y');
  EXPECT_EQ(RunPrune(), (Outcome{75, "", "another sync or prune works on ARCHIVE\n"}));
  EXPECT_EQ(RunPrune({"--dry-run"}), (Outcome{0, kPlan, ""}));
  kill(other, SIGKILL);
  waitpid(other, nullptr, 0);
  close(ends[0]);
  close(ends[1]);
}

TEST_F(Prune, WhatCannotBeReadMayNeedAnyImage) {
  struct Case {
    std::string file;
    std::string from;
    std::string to;
    std::string message;
  };
  const std::string kManifest = "images/b/b_1600000000/manifest.json";
  const std::string kOther = "sets/b/Files/Daily/1600000000.json";
  const std::vector<Case> kCases = {
      {kManifest, "{", "", "not JSON"},
      {kManifest, "\"version\": 1", "\"version\": 2",
       "format version 2 is newer than this program"},
      {kManifest, "\"backup_id\": \"b_1", "\"backup_id\": \"b_2", "of another image"},
      {kManifest, "\"client\": \"b\"", "\"client\": \"a\"", "of another image"},
      {kOther, "{", "", "not JSON"},
      {kOther, "\"policy\": \"Files\"", "\"policy\": \"Other\"", "of another set"},
  };
  const std::string kEnd = "nothing removed: what can't be read may need any image\n";
  for (const Case& damaged : kCases) {
    const std::string text = ReadFile(PathOf(damaged.file));
    std::string changed = text;
    ASSERT_NE(text.find(damaged.from), std::string::npos);
    WriteFile(PathOf(damaged.file),
              changed.replace(text.find(damaged.from), damaged.from.size(), damaged.to));
    EXPECT_EQ(RunPrune({"--force"}),
              (Outcome{4, "", "ARCHIVE/" + damaged.file + ": " + damaged.message + '\n' + kEnd}));
    WriteFile(PathOf(damaged.file), text);
  }
  std::filesystem::remove(PathOf(kManifest));
  WriteFile(PathOf("images/stray"), "");
  std::filesystem::create_symlink("1600000000.json", PathOf("sets/b/Files/Daily/1.json"));
  EXPECT_EQ(RunPrune(), (Outcome{4, "",
                                 "ARCHIVE/" + kManifest +
                                     ": no such file\n"
                                     "ARCHIVE/images/stray: does not belong here\n"
                                     "ARCHIVE/sets/b/Files/Daily/1.json: does not belong here\n" +
                                     kEnd}));
  EXPECT_TRUE(Has(kImage));
}

TEST_F(Prune, ASetThatCannotBeRemovedKeepsItsImages) {
  struct Case {
    std::string function;
    std::string message;
  };
  const std::vector<Case> kCases = {
      {"unlinkat", "can't remove ARCHIVE/" + kSet + ": Input/output error\n"},
      {"fsync", "can't write ARCHIVE/sets/a/Files/Daily: Input/output error\n"},
  };
  for (const auto& [function, message] : kCases) {
    FailOnceHere(function, EIO);
    EXPECT_EQ(RunPrune(), (Outcome{1, kPlan + "0 sets, 0 images, 0 bytes removed\n",
                                   message + "a_1600000000: not removed: its set is there\n"}));
    EXPECT_TRUE(Has(kImage));
    ASSERT_EQ(Run({"sync", "ARCHIVE", "--quiet"}), (Outcome{0, "", ""}));
  }
  EXPECT_EQ(RunPrune(), (Outcome{0, kPlan + kDone, ""}));
}

TEST_F(Prune, AnImageThatCannotBeRemovedLeavesTheOthersToGo) {
  struct Case {
    std::string function;
    int after;  // calls: the set's, and those of the image that succeed
    std::string message;
    bool is_there;
    bool is_marked;
  };
  const std::string plan =
      "sets/a/Files/Daily/1500000000.json: of 2017-07-14T02:40:00Z, 1 images\n" + kSetLine +
      "a_1500000000: of 2017-07-14T02:40:00Z, 381 bytes\n" + kImageLine +
      "2 sets, 2 images, 762 bytes to remove\n";
  const std::vector<Case> kCases = {
      {"mkdirat", 0, "can't make ARCHIVE/pruned: No space left on device", true, false},
      // Behind that of the plan.
      {"write", 1, "can't write ARCHIVE/.staging/file-0: No space left on device", true, false},
      // Behind those of the sets' directory, of ARCHIVE and of pruned, in which directories are
      // made.
      {"fsync", 3, "can't write ARCHIVE/.staging/file-0: No space left on device", true, false},
      {"renameat", 0, "can't make ARCHIVE/pruned/a/a_1500000000.json: No space left on device",
       true, false},
      {"fsync", 4, "can't write ARCHIVE/pruned/a: No space left on device", true, true},
      {"renameat", 1, "can't make ARCHIVE/.staging/N-1: No space left on device", true, true},
      {"fsync", 5, "can't write ARCHIVE/images/a: No space left on device", false, true},
      {"fsync", 6, "can't write ARCHIVE/.staging: No space left on device", false, true},
      // Behind those of two sets, and of the name under which the mark is made.
      {"unlinkat", 3, "can't remove ARCHIVE/.staging/N-1: No space left on device", false, true},
  };
  Lists(kRows + Row("a_1500000000", 1));
  for (const Case& refused : kCases) {
    std::filesystem::remove_all(PathOf("pruned"));
    ASSERT_EQ(Run({"sync", "ARCHIVE", "--quiet"}), (Outcome{0, "", ""}));
    FailOnceHere(refused.function, ENOSPC, refused.after);
    Outcome outcome = RunPrune();
    FailNothing();
    outcome.err = WithoutProcess(outcome.err);
    EXPECT_EQ(outcome, (Outcome{1, plan + "2 sets, 1 images, 381 bytes removed\n",
                                "a_1500000000: not removed: " + refused.message + '\n'}));
    EXPECT_EQ(Has("images/a/a_1500000000"), refused.is_there) << refused.message;
    EXPECT_EQ(Has("pruned/a/a_1500000000.json"), refused.is_marked) << refused.message;
    EXPECT_TRUE(std::filesystem::is_empty(PathOf(".staging")));
    EXPECT_EQ(Run({"verify", "ARCHIVE"}).status, 0);
  }
}

TEST_F(Prune, StagingThatCannotBeClearedIsSaid) {
  // What is listed before: images with three clients, sets with three clients, policies and
  // schedules, .staging, and the image that is removed.
  FailOnceHere("fdopendir", EMFILE, 4 + 10 + 2);
  EXPECT_EQ(RunPrune(),
            (Outcome{1, kPlan + kDone, "can't read ARCHIVE/.staging: Too many open files\n"}));
}

TEST_F(Prune, ASignalStopsItBetweenTwoImages) {
  sigset_t signals;
  sigset_t former;
  sigemptyset(&signals);
  sigaddset(&signals, SIGTERM);
  sigprocmask(SIG_BLOCK, &signals, &former);
  kill(getpid(), SIGTERM);
  EXPECT_EQ(RunPrune(), (Outcome{143, kPlan, ""}));
  sigprocmask(SIG_SETMASK, &former, nullptr);
  EXPECT_TRUE(Has(kImage));
  EXPECT_EQ(Run({"verify", "ARCHIVE"}).status, 0);
  EXPECT_EQ(RunPrune(), (Outcome{0,
                                 kImageLine + "0 sets, 1 images, 381 bytes to remove\n"
                                              "0 sets, 1 images, 381 bytes removed\n",
                                 ""}));
}

TEST_F(Prune, ASyncFetchesNothingThatWasPruned) {
  ASSERT_EQ(RunPrune().status, 0);
  const std::map<std::string, std::string> files = Files("");
  EXPECT_EQ(Run({"sync", "ARCHIVE"}), (Outcome{0, kNoSync, ""}));
  EXPECT_EQ(Run({"sync", "ARCHIVE", "--dry-run"}), (Outcome{0, "0 to export\n", ""}));
  EXPECT_EQ(Files(""), files);
}

TEST_F(Prune, WhereNobodySeesAQuestionNoneIsAsked) {
  Terminal("n\n").With({STDIN_FILENO}, [&] {
    EXPECT_EQ(RunPrune(), (Outcome{0, kPlan + kDone, ""}));
  });
}

TEST_F(Prune, AnythingElseBesideMarksIsNone) {
  std::filesystem::create_directories(PathOf("pruned/d/d_1600000000.json"));
  WriteFile(PathOf("pruned/d/d_1600000000"), "");
  Lists(Row("d_1600000000", 1));
  EXPECT_EQ(Run({"sync", "ARCHIVE", "--quiet"}), (Outcome{0, "", ""}));
  EXPECT_TRUE(Has("images/d/d_1600000000"));
}

TEST_F(Prune, ASetWithAPrunedImageIsNeitherWrittenNorWaitedFor) {
  // Of a set of two images, one is pruned; the other is not to be had.
  Lists(Row("d_1600000000", 1) + Row("d_1600000001", 1) + Row("d_1600000002", 0));
  ASSERT_EQ(Run({"sync", "ARCHIVE", "--quiet"}), (Outcome{0, "", ""}));
  std::filesystem::create_directories(PathOf("pruned/d"));
  std::filesystem::copy_file(PathOf("images/d/d_1600000001/manifest.json"),
                             PathOf("pruned/d/d_1600000001.json"));
  std::filesystem::remove_all(PathOf("images/d"));
  std::filesystem::remove_all(PathOf("sets/d"));
  EXPECT_EQ(Run({"sync", "ARCHIVE", "--limit", "0"}), (Outcome{0, kNoSync, ""}));
  EXPECT_EQ(Run({"sync", "ARCHIVE", "--quiet"}), (Outcome{0, "", ""}));
  EXPECT_TRUE(Has("images/d/d_1600000000"));
  EXPECT_FALSE(Has("sets/d"));
}

TEST_F(Prune, ASyncExportsAgainWhatItIsToldTo) {
  const std::map<std::string, std::string> files = Files("sets");
  ASSERT_EQ(RunPrune().status, 0);
  EXPECT_EQ(Run({"sync", "ARCHIVE", "--again", "--dry-run"}),
            (Outcome{0, "a_1600000000: would be exported\n1 to export\n", ""}));
  EXPECT_TRUE(Has(kMark));
  EXPECT_EQ(Run({"sync", "ARCHIVE", "--again"}),
            (Outcome{0,
                     "a_1600000000: 1 entries, 381 bytes\n"
                     "1 exported, 0 failed, 0 expired, 0 warnings; sets: 1 written, 0 removed, 0 "
                     "waiting for images\n",
                     ""}));
  EXPECT_FALSE(Has(kMark));
  EXPECT_EQ(Files("sets"), files);
  EXPECT_EQ(Run({"verify", "ARCHIVE"}).status, 0);
}

TEST_F(Prune, AMarkGoesWhenTheProductHasTheImageNoMore) {
  ASSERT_EQ(RunPrune().status, 0);
  const std::string mark = ReadFile(PathOf(kMark));
  // A product that lists nothing may not have begun to work.
  Lists("");
  EXPECT_EQ(Run({"sync", "ARCHIVE", "--quiet"}), (Outcome{0, "", ""}));
  EXPECT_TRUE(Has(kMark));
  Lists(Row("a_1600003600", 1));
  EXPECT_EQ(Run({"sync", "ARCHIVE", "--quiet", "--dry-run"}), (Outcome{0, "", ""}));
  EXPECT_TRUE(Has(kMark));
  FailOnceHere("unlinkat", EACCES);
  EXPECT_EQ(Run({"sync", "ARCHIVE", "--quiet"}),
            (Outcome{0, "", "can't remove ARCHIVE/" + kMark + ": Permission denied\n"}));
  EXPECT_EQ(ReadFile(PathOf(kMark)), mark);
  EXPECT_EQ(Run({"sync", "ARCHIVE", "--quiet", "--client", "b"}), (Outcome{0, "", ""}));
  EXPECT_FALSE(Has(kMark));
}

TEST_F(Prune, AMarkGoesWhenItsImageIsThere) {
  // As a prune leaves it that was killed behind the mark.
  std::filesystem::create_directories(PathOf("pruned/a"));
  std::filesystem::copy_file(PathOf(kImage + "/manifest.json"), PathOf(kMark));
  WriteFile(PathOf("pruned/notes"), "");
  WriteFile(PathOf("pruned/a/notes"), "");
  EXPECT_EQ(Run({"sync", "ARCHIVE"}), (Outcome{0, kNoSync, ""}));
  EXPECT_FALSE(Has(kMark));
  EXPECT_TRUE(Has("pruned/a/notes"));
}

TEST_F(Prune, SetsAndMarksThatGoMeanwhileAreNoProblemForAVerify) {
  std::filesystem::create_directories(PathOf("pruned/a"));
  struct Case {
    std::string broken;
    std::string going;
    std::string sums;
  };
  const std::vector<Case> kCases = {
      {"pruned/a/a_1500000000.json", kMark, "4 images, 4 sets, 1524 bytes: 1 problems\n"},
      {"sets/a/Files/Daily/1500000000.json", kSet, "4 images, 4 sets, 1524 bytes: 1 problems\n"},
  };
  for (const auto& [broken, going, sums] : kCases) {
    WriteFile(PathOf(broken), "");
    WriteFile(PathOf(going), "");
    ActingBuffer buffer([&] { std::filesystem::remove(PathOf(going)); });
    std::streambuf* const former = std::cout.rdbuf(&buffer);
    EXPECT_EQ(Verify({.archive = archive_, .jobs = 1}), 1);
    std::cout.rdbuf(former);
    EXPECT_EQ(buffer.str(), std::string(broken) + ": not JSON\n" + sums);
    std::filesystem::remove(PathOf(broken));
  }
}

TEST_F(Prune, IsNoProblemForAVerifyAtTheSameTime) {
  struct Case {
    std::string file;
    std::string from;
    std::string to;
    std::string out;
  };
  const std::string kSums = kImage + "/SHA256SUMS";
  const std::vector<Case> kCases = {
      {kSums, "  a_", " *a_",
       kSums + ": does not agree with the manifest\n4 images, 3 sets, 1143 bytes: 1 problems\n"},
      {kSet, "            \"backup_id\": \"a_1600000000\"",
       "            \"backup_id\": \"a_2\"},{\"backup_id\": \"a_3\"",
       kSet + ": the image a_2 is not there\n4 images, 4 sets, 1524 bytes: 1 problems\n"},
  };
  for (const auto& [file, from, to, out] : kCases) {
    std::string text = ReadFile(PathOf(file));
    ASSERT_NE(text.find(from), std::string::npos);
    WriteFile(PathOf(file), text.replace(text.find(from), from.size(), to));
    ActingBuffer buffer([this] {
      std::filesystem::remove(PathOf(kSet));
      std::filesystem::remove_all(PathOf(kImage));
    });
    std::streambuf* const former = std::cout.rdbuf(&buffer);
    EXPECT_EQ(Verify({.archive = archive_, .jobs = 1}), 1);
    std::cout.rdbuf(former);
    EXPECT_EQ(buffer.str(), out);
    ASSERT_EQ(Run({"sync", "ARCHIVE", "--quiet"}), (Outcome{0, "", ""}));
  }
}
