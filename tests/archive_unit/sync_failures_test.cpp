// What becomes of a run when the product or the system fails: exactly that, and nothing lies
// around.

#include <errno.h>
#include <signal.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "failing_calls.h"
#include "product.h"

namespace {

const std::string kOneFailed =
    "1 exported, 1 failed, 0 expired, 0 warnings; sets: 1 written, 0 removed, 1 waiting for "
    "images\n";

/// True when there is a process that is more than a status to be collected.
bool IsRunning(const std::string& pid) {
  std::ifstream file("/proc/" + pid.substr(0, pid.find('\n')) + "/stat");
  const std::string text{std::istreambuf_iterator<char>(file), {}};
  return !text.empty() && text.find(") Z ") == std::string::npos;
}

/// True when the process ends; one that was killed may take a moment on a busy machine.
bool Ends(const std::string& pid) {
  for (int i = 0; i < 500 && IsRunning(pid); ++i) {
    usleep(10000);
  }
  return !IsRunning(pid);
}

std::vector<std::string> LinesOf(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) {
    lines.push_back(line);
  }
  return lines;
}

/// Two images, of which bad_1600000000 is exported first and fails.
class SyncFailures : public ArchiveTest {
 protected:
  SyncFailures() {
    Lists(Row("good_1500000000", 1) + Row("bad_1600000000", 1));
    EXPECT_EQ(Run({"init", "ARCHIVE", "--server", "s"}).status, 0);
  }

  /// Syncs. The one image is exported, and of the other one nothing is left.
  Outcome SyncOneAtATime() {
    Outcome outcome = Run({"sync", "ARCHIVE", "--jobs", "1"});
    EXPECT_TRUE(std::filesystem::exists(PathOf("images/good/good_1500000000/manifest.json")));
    EXPECT_FALSE(std::filesystem::exists(PathOf("images/bad/bad_1600000000")));
    EXPECT_TRUE(std::filesystem::is_empty(PathOf(".staging")));
    return outcome;
  }

  static Outcome Failed(const std::string& reason, const std::string& complaints = "") {
    std::string summary = kOneFailed;
    if (!complaints.empty()) {
      summary.replace(summary.find("0 warnings"), 1, "1");
    }
    return {1, kGoodLine + summary, complaints + "bad_1600000000: failed: " + reason + '\n'};
  }

  static inline const std::string kGoodLine =
      "good_1500000000: 1 entries, " + std::to_string(kDocument.size()) + " bytes\n";
};

}  // namespace

TEST_F(SyncFailures, ACommandThatFailsFailsItsImage) {
  struct Case {
    std::string command;
    std::string ids;
    std::string script;
    std::string reason;
  };
  const std::vector<Case> kCases = {
      {"qvmeta", "bad_*", "echo '{'; exit 1", "qvmeta ended with status 1"},
      {"qvmeta", "bad_*", "echo '{'; exit 0", "qvmeta.json(2): expected key string"},
      {"qvroll", "bad_*", "exit 3", "qvroll ended with status 3"},
      {"qvroll", "bad_*", "echo; exit 0",
       "parse output of qvrolle failed. output lines is not the same as expected."},
      {"qvroll", "bad_*", "printf '1\\n2\\n3\\n4\\n'; exit 0", "parse output of qvroll failed."},
      {"rec_unfold", "bad", "cat \"$ROOT/entries\"; exit 2", "rec_unfold ended with status 2"},
      {"rec_unfold", "bad", "echo 1; exit 0", "parse output failed. token size mismatch"},
  };
  for (const Case& failing : kCases) {
    std::filesystem::remove_all(PathOf("images"));
    std::filesystem::remove_all(PathOf("sets"));
    DoesFor(failing.command, failing.ids, failing.script);
    EXPECT_EQ(SyncOneAtATime(), Failed(failing.reason)) << failing.script;
    Does(failing.command, Usual(failing.command));
  }
  EXPECT_EQ(Run({"sync", "ARCHIVE", "--quiet"}), (Outcome{0, "", ""}));
}

TEST_F(SyncFailures, ACommandThatIsKilledIsSaidAsTheShellDoes) {
  DoesFor("qvmeta", "bad_*", "kill -9 $$");
  EXPECT_EQ(SyncOneAtATime(), Failed("qvmeta ended with status 137", "bad_1600000000: Killed\n"));
  std::filesystem::remove_all(PathOf("images"));
  std::filesystem::remove_all(PathOf("sets"));
  DoesFor("qvmeta", "bad_*", "kill -9 $PPID");
  EXPECT_EQ(SyncOneAtATime(), Failed("qvmeta was ended by signal 9"));
}

TEST_F(SyncFailures, ACommandThatIsGoneSaysSo) {
  DoesFor("rec_unfold", "bad", "exec \"$ROOT/gone\"");
  EXPECT_EQ(SyncOneAtATime(), Failed("rec_unfold ended with status 127",
                                     "bad_1600000000: " + root_ + "/bin/rec_unfold: 4: exec: " +
                                         root_ + "/gone: not found\n"));
}

// A timeout of some seconds, so that a machine that stands still for a moment silences nobody else.
TEST_F(SyncFailures, ASilentCommandIsEnded) {
  const std::vector<std::string> kIds = {"complains_1600000001", "begins_1600000002",
                                         "closes_1600000003"};
  std::string rows = Row("good_1500000000", 1);
  for (const std::string& id : kIds) {
    rows += Row(id, 1);
  }
  Lists(rows);
  Does("qvmeta",
       "[ \"$3\" = good_1500000000 ] || echo $$ >\"$ROOT/$3\"\n"
       "case \"$3\" in\n"
       "complains_*) echo waiting >&2; sleep 60;;\n"
       "begins_*) printf half; sleep 60;;\n"
       "closes_*) exec >&-; trap '' TERM; sleep 60;;\n"
       "esac\n" +
           Usual("qvmeta"));
  const Outcome outcome = Run({"sync", "ARCHIVE", "--jobs", "3", "--timeout", "4s"});
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.out, kGoodLine +
                             "1 exported, 3 failed, 0 expired, 1 warnings; sets: 1 written, 0 "
                             "removed, 3 waiting for images\n");
  EXPECT_THAT(
      LinesOf(outcome.err),
      testing::UnorderedElementsAre("complains_1600000001: waiting",
                                    "complains_1600000001: failed: qvmeta printed nothing for 4s",
                                    "begins_1600000002: failed: qvmeta printed nothing for 4s",
                                    "closes_1600000003: failed: qvmeta printed nothing for 4s"));
  for (const std::string& id : kIds) {
    EXPECT_TRUE(Ends(ReadFile(root_ + '/' + id))) << id;
    EXPECT_FALSE(
        std::filesystem::exists(PathOf("images/" + id.substr(0, id.find('_')) + '/' + id)));
  }
  EXPECT_TRUE(std::filesystem::is_empty(PathOf(".staging")));
}

TEST_F(SyncFailures, ACommandThatComplainsIsNotSilent) {
  DoesFor("qvmeta", "bad_*", "for i in 1 2 3 4 5; do sleep 1; echo $i >&2; done");
  EXPECT_EQ(Run({"sync", "ARCHIVE", "--quiet", "--timeout", "4s"}),
            (Outcome{0, "",
                     "bad_1600000000: 1\nbad_1600000000: 2\nbad_1600000000: 3\n"
                     "bad_1600000000: 4\nbad_1600000000: 5\n"}));
}

TEST_F(SyncFailures, AWorkerThatDiesFailsItsImage) {
  DoesFor("qvmeta", "bad_*", "kill -9 $(cut -d' ' -f4 /proc/$PPID/stat); exit 0");
  EXPECT_EQ(SyncOneAtATime(), Failed("the worker was ended by signal 9"));
}

TEST_F(SyncFailures, WhatASecondListingNoLongerHasWasExpired) {
  DoesFor("qvmeta", "bad_*",
          "printf '\\nBackupid x\\n" + Row("good_1500000000", 1).substr(0, 47) +
              " /x\\n' >\"$ROOT/listing\"; exit 1");
  EXPECT_EQ(SyncOneAtATime(),
            (Outcome{0,
                     kGoodLine +
                         "bad_1600000000: expired\n"
                         "1 exported, 0 failed, 1 expired, 0 warnings; sets: 1 written, 0 removed, "
                         "0 waiting for images\n",
                     "bad_1600000000: failed: qvmeta ended with status 1\n"}));
}

TEST_F(SyncFailures, WithoutASecondListingAFailureStays) {
  DoesFor("qvmeta", "bad_*", "printf half >>\"$ROOT/listing\"; exit 1");
  EXPECT_EQ(SyncOneAtATime(), Failed("qvmeta ended with status 1"));
}

TEST_F(SyncFailures, AListingThatFailsChangesNothing) {
  struct Case {
    std::string script;
    std::string err;
  };
  WriteFile(PathOf(".staging/left"), "");
  const std::vector<Case> kCases = {
      {"cat \"$ROOT/listing\"; exit 1\n", "the listing failed: qvroll ended with status 1\n"},
      {"cat \"$ROOT/listing\"; kill -9 $PPID\n",
       "the listing failed: qvroll was ended by signal 9\n"},
      {"cat \"$ROOT/listing\"; printf 'half'\n",
       "the listing failed: invalid backup id: half. no '_' found.\n"},
      {"kill -9 $(cut -d' ' -f4 /proc/$PPID/stat)\n",
       "the listing failed: the worker was ended by signal 9\n"},
      {"echo broken >&2; exit 2\n", "broken\nthe listing failed: qvroll ended with status 2\n"},
  };
  for (const Case& failing : kCases) {
    Does("qvroll", failing.script);
    EXPECT_EQ(Run({"sync", "ARCHIVE"}), (Outcome{3, "", failing.err}));
  }
  Does("qvroll", "sleep 60\n");
  EXPECT_EQ(Run({"sync", "ARCHIVE", "--timeout", "1s"}),
            (Outcome{3, "", "the listing failed: qvroll printed nothing for 1s\n"}));
  EXPECT_FALSE(std::filesystem::exists(PathOf("images")));
  EXPECT_TRUE(std::filesystem::exists(PathOf(".staging/left")));
}

TEST_F(SyncFailures, ASignalEndsEverythingAndLeavesNothing) {
  struct Case {
    std::string command;
    int signal;
  };
  for (const auto& [command, signal] :
       {Case{"qvmeta", SIGTERM}, Case{"qvmeta", SIGINT}, Case{"qvroll", SIGTERM}}) {
    Does(command, "echo $$ >\"$ROOT/pid\"; kill -" + std::to_string(signal) + ' ' +
                      std::to_string(getpid()) + "; sleep 60\n");
    EXPECT_EQ(Run({"sync", "ARCHIVE", "--jobs", "1"}), (Outcome{128 + signal, "", ""}));
    EXPECT_TRUE(Ends(ReadFile(root_ + "/pid")));
    EXPECT_TRUE(std::filesystem::is_empty(PathOf(".staging")));
    EXPECT_FALSE(std::filesystem::exists(PathOf("images")));
    Does(command, Usual(command));
  }
}

TEST_F(SyncFailures, ASignalDuringTheSecondListingEndsTheRun) {
  Does("qvmeta", "exit 1\n");
  Does("qvroll", "[ -e \"$ROOT/listed\" ] && kill -TERM " + std::to_string(getpid()) +
                     " && sleep 60\ntouch \"$ROOT/listed\"\ncat \"$ROOT/listing\"\n");
  EXPECT_EQ(Run({"sync", "ARCHIVE", "--jobs", "1"}),
            (Outcome{143, "",
                     "bad_1600000000: failed: qvmeta ended with status 1\n"
                     "good_1500000000: failed: qvmeta ended with status 1\n"}));
}

TEST_F(SyncFailures, WhatTheSystemRefusesFailsAnImage) {
  struct Case {
    std::string function;
    int error;
    int after;
    std::string reason;
  };
  const std::string kStaged = "ARCHIVE/.staging/*/";
  const std::vector<Case> kCases = {
      {"memfd_create", ENOMEM, 0, "can't keep complaints: Cannot allocate memory"},
      {"fchdir", EACCES, 0, "can't open ARCHIVE/.staging/*: Permission denied"},
      {"renameat", EACCES, 0, "can't make ARCHIVE/images/bad/bad_1600000000: Permission denied"},
  };
  for (const Case& refused : kCases) {
    std::filesystem::remove_all(PathOf("images"));
    std::filesystem::remove_all(PathOf("sets"));
    FailOnce(refused.function, refused.error, refused.after);
    Outcome outcome = Run({"sync", "ARCHIVE", "--jobs", "1"});
    FailNothing();
    const std::string staged = ".staging/" + std::to_string(getpid()) + '-';
    const std::size_t at = outcome.err.find(staged);
    if (at != std::string::npos) {
      outcome.err.replace(at, staged.size() + 1, ".staging/*");
    }
    EXPECT_THAT(outcome.err,
                testing::StartsWith("bad_1600000000: failed: " + refused.reason + '\n'));
    EXPECT_EQ(outcome.status, 1);
    EXPECT_TRUE(std::filesystem::is_empty(PathOf(".staging")));
  }
}

TEST_F(SyncFailures, WorkersThatCannotBeStartedFailTheirImages) {
  FailOnce("fork", EAGAIN, 1);
  EXPECT_EQ(SyncOneAtATime(), Failed("can't start a worker: Resource temporarily unavailable"));
}

TEST_F(SyncFailures, ADocumentThatCannotBeWrittenSaysWhy) {
  // The first three writes of a worker say which command starts.
  FailOnceInWorkers("write", ENOSPC, 3);
  const std::string staging = "ARCHIVE/.staging/" + std::to_string(getpid());
  EXPECT_EQ(Run({"sync", "ARCHIVE", "--jobs", "1"}),
            (Outcome{1,
                     "0 exported, 2 failed, 0 expired, 0 warnings; sets: 0 written, 0 removed, 2 "
                     "waiting for images\n",
                     "bad_1600000000: failed: can't write " + staging +
                         "-1/image/bad_1600000000.json: No space left on device\n"
                         "good_1500000000: failed: can't write " +
                         staging + "-2/image/good_1500000000.json: No space left on device\n"}));
}

TEST_F(SyncFailures, MetadataThatAreNoObjectAreRefused) {
  DoesFor("qvmeta", "bad_*", "echo '\"text\"'; exit 0");
  EXPECT_EQ(SyncOneAtATime(), Failed("<unspecified file>: ptree contains data that cannot be "
                                     "represented in JSON format"));
}

TEST_F(SyncFailures, WithTooLittleFreeNothingIsBegun) {
  EXPECT_EQ(Run({"sync", "ARCHIVE", "--keep-free", "100%"}),
            (Outcome{1,
                     "0 exported, 0 failed, 0 expired, 0 warnings; sets: 0 written, 0 removed, 2 "
                     "waiting for images\n",
                     "less than 100% free: 2 images left out\n"}));
  EXPECT_EQ(Run({"sync", "ARCHIVE", "--keep-free", "0%", "--quiet"}), (Outcome{0, "", ""}));
}

TEST_F(SyncFailures, AnImageThatFillsTheDiskIsGivenUp) {
  Does("qvmeta", "sleep 60\n");
  for (const std::string jobs : {"1", "2"}) {
    FillDisk(2);
    EXPECT_EQ(Run({"sync", "ARCHIVE", "--jobs", jobs, "--keep-free", "1M"}),
              (Outcome{1,
                       "0 exported, 1 failed, 0 expired, 0 warnings; sets: 0 written, 0 removed, 2 "
                       "waiting for images\n",
                       "bad_1600000000: failed: less than 1M free\n"
                       "less than 1M free: 1 images left out\n"}));
    EXPECT_TRUE(std::filesystem::is_empty(PathOf(".staging")));
  }
}

TEST_F(SyncFailures, ALinkInTheWayIsNamedAndNotFollowed) {
  const TemporaryDirectory elsewhere;
  std::filesystem::create_directory(PathOf("images"));
  std::filesystem::create_symlink(elsewhere.path(), PathOf("images/bad"));
  EXPECT_EQ(Run({"sync", "ARCHIVE", "--jobs", "1"}),
            Failed("ARCHIVE/images/bad is a symbolic link"));
  EXPECT_TRUE(elsewhere.FileNames().empty());
  std::filesystem::remove_all(PathOf("images"));
  std::filesystem::create_symlink(elsewhere.path(), PathOf("images"));
  EXPECT_EQ(Run({"sync", "ARCHIVE"}), (Outcome{4, "", "ARCHIVE/images is a symbolic link\n"}));
}

TEST_F(SyncFailures, AStagingDirectoryThatCannotBeRemovedIsSaid) {
  // The first one is of the metadata's temporary file, in the worker.
  FailOnce("unlinkat", EBUSY);
  EXPECT_EQ(Run({"sync", "ARCHIVE", "--jobs", "1", "--quiet"}),
            (Outcome{0, "",
                     "can't remove ARCHIVE/.staging/" + std::to_string(getpid()) +
                         "-1: Device or resource busy\n"}));
}

TEST_F(SyncFailures, AStagingDirectoryThatCannotBeListedIsSaid) {
  Does("qvmeta", "rm -rf '" + PathOf(".staging") + "'\n:>'" + PathOf(".staging") + "'; exit 1");
  const Outcome outcome = Run({"sync", "ARCHIVE", "--jobs", "1", "--limit", "1"});
  EXPECT_EQ(outcome.status, 1);
  EXPECT_THAT(outcome.err, testing::HasSubstr("can't open ARCHIVE/.staging: Not a directory\n"));
}
