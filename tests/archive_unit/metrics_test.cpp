#include "archive/metrics.h"

#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <regex>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "archive/status.h"
#include "failing_calls.h"
#include "product.h"

using testing::HasSubstr;

namespace {

/// The head of a gauge and its samples, "LABELS} VALUE" each, without "quillmere_archive_".
std::string GaugeText(const std::string& name, const std::string& help,
                      const std::vector<std::string>& samples) {
  const std::string full_name = "quillmere_archive_" + name;
  std::string text = "# HELP " + full_name + ' ' + help + "\n# TYPE " + full_name + " gauge\n";
  for (const std::string& sample : samples) {
    text += full_name + '{' + sample + '\n';
  }
  return text;
}

/// A product and the program, which writes metrics to FILE beside the archive.
class Metrics : public ArchiveTest {
 protected:
  Metrics() {
    std::filesystem::create_directory(directory_.PathOf("metrics"));
    EXPECT_EQ(Run({"init", "ARCHIVE", "--server", "s"}).status, 0);
  }

  Outcome Sync(std::vector<std::string> options = {}) {
    options.insert(options.begin(), {"sync", "ARCHIVE", "--quiet", "--metrics", file_});
    return Run(options);
  }

  /// What the file holds, with "ARCHIVE" for the path of the archive.
  [[nodiscard]] std::string Text() const {
    return std::regex_replace(ReadFile(file_), std::regex(archive_), "ARCHIVE");
  }

  /// The number of the sample that begins with `name` and, if any are given, with these labels
  /// behind that of the archive; empty without such a sample.
  [[nodiscard]] std::string Value(const std::string& name, const std::string& labels = "") const {
    const std::string text = Text();
    const std::string head = "\nquillmere_archive_" + name + "{archive=\"ARCHIVE\"" + labels + "} ";
    const std::size_t at = text.find(head);
    return at == std::string::npos
               ? ""
               : text.substr(at + head.size(), text.find('\n', at + 1) - at - head.size());
  }

  [[nodiscard]] std::string NewestSet(const std::string& client) const {
    return Value("newest_set_timestamp_seconds",
                 ",client=\"" + client + R"(",policy="Files",schedule="Daily")");
  }

  /// A file that says when a run before succeeded.
  void LastSucceeded(const std::string& text) const {
    WriteFile(file_, GaugeText("last_success_timestamp_seconds", "x",
                               {"archive=\"" + archive_ + "\"} " + text}));
  }

  std::string file_ = directory_.PathOf("metrics/archive.prom");
};

}  // namespace

TEST_F(Metrics, SayHowTheRunWentAndWhatIsKept) {
  const std::int64_t before = std::time(nullptr);
  DoesFor("qvmeta", "b_*", "echo one >&2; exit 1");
  DoesFor("rec_unfold", "c", "echo two >&2");
  Lists(Row("a_1600000000", 1) + Row("a_1600003600", 1) + Row("b_1600000000", 1) +
        Row("c_-777", 1, "P", "S"));
  EXPECT_EQ(Sync({"--jobs", "1"}), (Outcome{1, "",
                                            "b_1600000000: one\n"
                                            "b_1600000000: failed: qvmeta ended with status 1\n"
                                            "c_-777: two\n"}));
  const std::string ended = Value("last_run_timestamp_seconds");
  EXPECT_GE(std::stoll(ended), before);
  EXPECT_LE(std::stoll(ended), std::time(nullptr));
  const std::string duration = Value("last_run_duration_seconds");
  EXPECT_THAT(duration, testing::MatchesRegex("[0-9]+\\.[0-9]+"));
  EXPECT_LT(std::stod(duration), 600);
  const std::string archive = R"(archive="ARCHIVE")";
  EXPECT_EQ(
      Text(),
      GaugeText("last_run_timestamp_seconds", "When the last sync ended.",
                {archive + "} " + ended}) +
          GaugeText("last_run_status", "Exit status of the last sync.", {archive + "} 1"}) +
          GaugeText("last_run_duration_seconds", "How long the last sync took.",
                    {archive + "} " + duration}) +
          GaugeText("last_success_timestamp_seconds",
                    "When a sync last ended with status 0; 0 when that is not known.",
                    {archive + "} 0"}) +
          GaugeText("last_run_exported_images", "Images that the last sync exported.",
                    {archive + "} 3"}) +
          GaugeText("last_run_failed_images", "Images that failed in the last sync.",
                    {archive + "} 1"}) +
          GaugeText("last_run_expired_images",
                    "Images that expired while the last sync exported them.", {archive + "} 0"}) +
          GaugeText("last_run_warnings", "Warnings of the last sync.", {archive + "} 2"}) +
          GaugeText("last_run_waiting_sets",
                    "Backup sets that the last sync left waiting for images.", {archive + "} 1"}) +
          GaugeText("last_run_stored_bytes", "Bytes of the documents that the last sync stored.",
                    {archive + "} " + std::to_string(3 * kDocument.size())}) +
          GaugeText("images", "Images in the archive.", {archive + "} 3"}) +
          GaugeText("newest_set_timestamp_seconds",
                    "When the newest backup set of a series was made.",
                    {archive + R"(,client="a",policy="Files",schedule="Daily"} 1600003600)",
                     archive + R"(,client="c",policy="P",schedule="S"} -777)"}));
}

TEST_F(Metrics, AreReadableForTheExporterWhateverTheUmask) {
  const mode_t umask_before = umask(0077);
  EXPECT_EQ(Sync(), (Outcome{0, "", ""}));
  umask(umask_before);
  struct stat status {};
  ASSERT_EQ(stat(file_.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode, mode_t{S_IFREG | 0644});
  EXPECT_EQ(std::filesystem::path(file_).parent_path(), directory_.PathOf("metrics"));
  EXPECT_FALSE(std::filesystem::exists(file_ + ".new"));
}

TEST_F(Metrics, ASuccessIsRememberedUntilTheNextOne) {
  ASSERT_EQ(Sync().status, 0);
  EXPECT_EQ(Value("last_success_timestamp_seconds"), Value("last_run_timestamp_seconds"));
  EXPECT_EQ(Value("last_run_status"), "0");
  LastSucceeded("1234");
  Does("qvroll", "exit 1\n");
  EXPECT_EQ(Sync().status, kNoListing);
  EXPECT_EQ(Value("last_run_status"), "3");
  Does("qvroll", "kill -TERM " + std::to_string(getpid()) + "; sleep 60\n");
  EXPECT_EQ(Sync(), (Outcome{kSignalled + SIGTERM, "", ""}));
  EXPECT_EQ(Value("last_run_status"), "143");
  EXPECT_EQ(Value("images"), "0");
  std::filesystem::rename(PathOf("archive.json"), PathOf("gone"));
  EXPECT_EQ(Sync().status, kArchiveFailed);
  EXPECT_EQ(Value("last_run_status"), "4");
  EXPECT_EQ(Value("last_success_timestamp_seconds"), "1234");
  std::filesystem::rename(PathOf("gone"), PathOf("archive.json"));
  Does("qvroll", Usual("qvroll"));
  EXPECT_EQ(Sync().status, 0);
  EXPECT_EQ(Value("last_success_timestamp_seconds"), Value("last_run_timestamp_seconds"));
}

TEST_F(Metrics, WithoutAFileToBelieveNoSuccessIsKnown) {
  Does("qvroll", "exit 1\n");
  EXPECT_EQ(Sync().status, kNoListing);
  EXPECT_EQ(Value("last_success_timestamp_seconds"), "0");
  const std::string line = "\nquillmere_archive_last_success_timestamp_seconds{archive=\"";
  for (const std::string& text :
       {std::string(), std::string(1000, '\0'), line, line + archive_ + "\"} ",
        line + archive_ + "\"} 1234", line + archive_ + "\"} x\n", line + archive_ + "\"} 12.5\n",
        line + archive_ + "\"} 99999999999\n", line + archive_ + "/other\"} 1234\n"}) {
    WriteFile(file_, text);
    EXPECT_EQ(Sync().status, kNoListing);
    EXPECT_EQ(Value("last_success_timestamp_seconds"), "0") << text;
  }
  std::filesystem::rename(file_, directory_.PathOf("elsewhere"));
  std::filesystem::create_symlink(directory_.PathOf("elsewhere"), file_);
  EXPECT_EQ(Sync().status, kNoListing);
  EXPECT_FALSE(std::filesystem::is_symlink(file_));
}

TEST_F(Metrics, OfAnArchiveThatIsMissingSayThatMuch) {
  std::filesystem::remove(PathOf("archive.json"));
  EXPECT_EQ(Sync(), (Outcome{4, "",
                             "ARCHIVE/archive.json: no such file; quillmere-archive init makes an "
                             "archive\n"}));
  EXPECT_EQ(Value("last_run_status"), "4");
  EXPECT_EQ(Value("last_run_exported_images"), "0");
  EXPECT_EQ(Value("images"), "");
}

TEST_F(Metrics, AreNotWrittenByWhatIsNoRun) {
  EXPECT_EQ(Sync({"--dry-run"}), (Outcome{0, "", ""}));
  const pid_t other = fork();
  if (other == 0) {
    Does("qvroll", "touch \"$ROOT/started\"\nwhile [ ! -e \"$ROOT/go\" ]; do sleep 0.01; done\n");
    Run({"sync", "ARCHIVE"});
    _exit(0);
  }
  while (!std::filesystem::exists(root_ + "/started")) {
    usleep(1000);
  }
  EXPECT_EQ(Sync(), (Outcome{75, "", "another sync or prune works on ARCHIVE\n"}));
  WriteFile(root_ + "/go", "");
  waitpid(other, nullptr, 0);
  EXPECT_FALSE(std::filesystem::exists(file_));
}

TEST_F(Metrics, NamesAreEscapedAndMadeUtf8) {
  Lists(Row("a\\b\"_1600000000", 1) + Row("\xC3\xA4\x01_1600000000", 1) +
        Row("\xFE_1600000000", 1) + Row("\xFF_1600000001", 1));
  ASSERT_EQ(Sync(), (Outcome{0, "", ""}));
  EXPECT_EQ(NewestSet(R"(a\\b\")"), "1600000000");
  EXPECT_EQ(NewestSet("\xC3\xA4\x01"), "1600000000");
  // Two clients that are the same text now.
  const std::string text = Text();
  const std::string replaced = "client=\"\xEF\xBF\xBD\"";
  EXPECT_EQ(text.find(replaced), text.rfind(replaced));
  EXPECT_EQ(NewestSet("\xEF\xBF\xBD"), "1600000001");
}

TEST_F(Metrics, APathMayHoldANewline) {
  LastRun run;
  run.archive = "a\nb";
  EXPECT_EQ(WriteMetrics(file_, run, nullptr, [](const ArchiveError&) {}), 0);
  EXPECT_THAT(Text(), HasSubstr("quillmere_archive_last_run_status{archive=\"a\\nb\"} 0\n"));
}

TEST_F(Metrics, TheNewestSetIsThatOfTheHighestNumber) {
  // The last one by its bytes, and by what is no number, is another one.
  Lists(Row("a_999999999", 1) + Row("a_1600000000", 1) + Row("a_zzzz", 1) + Row("a_-555", 1) +
        Row("b_zzzz", 1) + Row("c_1600000000", 1));
  ASSERT_EQ(Sync(), (Outcome{0, "", ""}));
  EXPECT_EQ(NewestSet("a"), "1600000000");
  EXPECT_EQ(NewestSet("b"), "0");
  // A series that the product lists no more is still there, and its newest set alone is looked at.
  Lists("");
  WriteFile(PathOf("sets/a/Files/Daily/999999999.json"), "wrong");
  WriteFile(PathOf("sets/a/Files/Daily/zzzz.json"), "wrong");
  WriteFile(PathOf("sets/a/Files/Daily/2000000000"), "no set");
  std::filesystem::create_directory(PathOf("sets/a/Files/Daily/2000000000.json"));
  ASSERT_EQ(Sync(), (Outcome{0, "", ""}));
  EXPECT_EQ(NewestSet("a"), "1600000000");
  EXPECT_EQ(NewestSet("c"), "1600000000");
}

TEST_F(Metrics, ASetThatCannotBeReadIsSaidAndLeftOut) {
  Lists(Row("a_1500000000", 1) + Row("a_1600000000", 1) + Row("b_1600000000", 1));
  ASSERT_EQ(Sync(), (Outcome{0, "", ""}));
  Lists("");
  WriteFile(PathOf("sets/a/Files/Daily/1600000000.json"), "");
  WriteFile(PathOf("sets/b/Files/Daily/1600000000.json"), "{}");
  EXPECT_EQ(Sync(), (Outcome{1, "",
                             "ARCHIVE/sets/a/Files/Daily/1600000000.json: not JSON\n"
                             "ARCHIVE/sets/b/Files/Daily/1600000000.json: not of "
                             "quillmere-archive\n"}));
  EXPECT_EQ(NewestSet("a"), "1500000000");
  EXPECT_EQ(NewestSet("b"), "");
  EXPECT_EQ(Value("last_run_status"), "1");
  EXPECT_EQ(Value("images"), "3");
  std::filesystem::remove_all(PathOf("sets"));
  std::filesystem::create_symlink("/", PathOf("sets"));
  EXPECT_EQ(Sync(), (Outcome{1, "", "ARCHIVE/sets is a symbolic link\n"}));
  EXPECT_EQ(Value("images"), "3");
}

TEST_F(Metrics, ThatCannotBeWrittenAreSaidAndLeaveTheFileBefore) {
  struct Case {
    std::string function;
    int error;
    std::string reason;
  };
  LastRun run;
  run.ended = 2000;
  run.archive = archive_;
  ASSERT_EQ(WriteMetrics(file_, run, nullptr, [](const ArchiveError&) {}), 0);
  const std::string before = Text();
  run.ended = 3000;
  for (const auto& [function, error, reason] :
       {Case{"openat", EACCES, "Permission denied"},
        Case{"fchmod", EPERM, "Operation not permitted"},
        Case{"write", ENOSPC, "No space left on device"}, Case{"fsync", EIO, "Input/output error"},
        Case{"renameat", EROFS, "Read-only file system"}}) {
    std::vector<std::string> complaints;
    const auto complain = [&](const ArchiveError& said) { complaints.emplace_back(said.what()); };
    FailOnceHere(function, error);
    EXPECT_EQ(WriteMetrics(file_, run, nullptr, complain), kFound) << function;
    EXPECT_EQ(complaints, std::vector<std::string>{"can't write " + file_ + ": " + reason});
    EXPECT_EQ(Text(), before) << function;
    EXPECT_FALSE(std::filesystem::exists(file_ + ".new")) << function;
  }
  // What a run that was killed left is in nobody's way.
  WriteFile(file_ + ".new", "left");
  EXPECT_EQ(WriteMetrics(file_, run, nullptr, [](const ArchiveError&) {}), 0);
  EXPECT_EQ(Value("last_success_timestamp_seconds"), "3000");
}

TEST_F(Metrics, AFailureToWriteThemFailsAGoodRunAndNoOther) {
  std::filesystem::remove(directory_.PathOf("metrics"));
  const std::string complaint = "can't write " + file_ + ": No such file or directory\n";
  EXPECT_EQ(Sync(), (Outcome{1, "", complaint}));
  Does("qvroll", "exit 1\n");
  EXPECT_EQ(Sync(),
            (Outcome{3, "", "the listing failed: qvroll ended with status 1\n" + complaint}));
}

TEST_F(Metrics, AFileWithoutADirectoryIsInTheCurrentOne) {
  const std::filesystem::path former = std::filesystem::current_path();
  std::filesystem::current_path(directory_.PathOf("metrics"));
  file_ = "archive.prom";
  LastSucceeded("1234");
  Does("qvroll", "exit 1\n");
  EXPECT_EQ(Sync().status, kNoListing);
  EXPECT_EQ(Value("last_success_timestamp_seconds"), "1234");
  std::filesystem::current_path(former);
}

TEST_F(Metrics, AreThereBeforeASecondSignalEndsTheProcess) {
  const pid_t child = fork();
  if (child == 0) {
    const std::string pid = std::to_string(getpid());
    Does("qvroll", "trap '' TERM\nkill -INT " + pid + "\nkill -TERM " + pid + '\n');
    Sync();
    _exit(0);
  }
  int status = -1;
  waitpid(child, &status, 0);
  EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGTERM) << status;
  EXPECT_EQ(Value("last_run_status"), "130");
}

TEST_F(Metrics, HaveTheStatusOfARunWhoseOutputWentNowhere) {
  Lists(Row("a_1600000000", 1));
  const pid_t child = fork();
  if (child == 0) {
    dup2(open("/dev/full", O_WRONLY), STDOUT_FILENO);
    dup2(open("/dev/null", O_WRONLY), STDERR_FILENO);
    std::exit(RunAsItIs({"sync", "ARCHIVE", "--metrics", file_}));
  }
  int status = -1;
  waitpid(child, &status, 0);
  EXPECT_EQ(WEXITSTATUS(status), kArchiveFailed);
  EXPECT_EQ(Value("last_run_status"), "4");
  EXPECT_EQ(Value("last_run_exported_images"), "1");
}
