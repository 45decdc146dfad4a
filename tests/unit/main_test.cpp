// What the whole program does with its arguments.

#include <fcntl.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <exception>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "fake_host.h"
#include "layout/layout.h"
#include "temporary_directory.h"

/// The program's main function, which has this name here.
int QuillmereMain(int argc, char** argv);

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;

int CallMain(std::vector<std::string> arguments) {
  arguments.insert(arguments.begin(), "/some/path/another_name");
  std::vector<char*> pointers;
  pointers.reserve(arguments.size() + 1);
  for (std::string& argument : arguments) {
    pointers.push_back(argument.data());
  }
  pointers.push_back(nullptr);
  return QuillmereMain(static_cast<int>(arguments.size()), pointers.data());
}

/// Runs the program with the commands that `host` has.
Outcome RunMain(FakeHost* host, const std::vector<std::string>& arguments) {
  const std::terminate_handler handler = std::get_terminate();
  Outcome outcome = host->Run([&] { return CallMain(arguments); });
  std::set_terminate(handler);
  return outcome;
}

/// A run that starts no command and says no more than `message`.
void ExpectMessage(const std::vector<std::string>& arguments, const std::string& message) {
  FakeHost host;
  const Outcome outcome = RunMain(&host, arguments);
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.out, "");
  EXPECT_EQ(outcome.err, message);
  EXPECT_THAT(outcome.commands, IsEmpty());
}

const char* const kUsage =
    "Usage:\n"
    "quillmere --action dump_backup_set_list [--policy <policy>] [--client <client>] "
    "[--count <count>] [--output_dir <output_dir>]\n"
    "quillmere --action dump_backup_set[--policy <policy>] [--client <client>] "
    "--time <time> --output_dir <output_dir>\n"
    "quillmere --action list_backups [--policy <policy>] [--client <client>] "
    "[--schedule <schedule>]\n"
    "quillmere --action dump_backup --backup_id <backup_id> [--output_dir <output_dir>]\n";

TEST(Main, WithoutAnActionTheUsageIsAFailure) {
  for (const std::vector<std::string>& arguments :
       {std::vector<std::string>{}, {"--policy", "--help"}, {"--time", "5", "--verbose"}}) {
    FakeHost host;
    const Outcome outcome = RunMain(&host, arguments);
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.out, kUsage);
    EXPECT_EQ(outcome.err, "");
  }
}

TEST(Main, TheUsageThatIsAskedForIsASuccess) {
  for (const std::vector<std::string>& arguments :
       {std::vector<std::string>{"-h"}, {"--action", "list_backups", "--help", "--bogus"}}) {
    FakeHost host;
    const Outcome outcome = RunMain(&host, arguments);
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.out, kUsage);
    EXPECT_EQ(outcome.err, "");
    EXPECT_THAT(outcome.commands, IsEmpty());
  }
}

TEST(Main, WrongArgumentsEndTheRun) {
  ExpectMessage({"--action", "bogus"}, "unknown action value: bogus\n");
  ExpectMessage({"--action", "list_backups", "--policy"},
                "missing value for <policy> parameter.\n");
  ExpectMessage({"--action", "list_backups", "--policy=x"}, "unrecognized parameter: --policy=x\n");
}

TEST(Main, ABackupSetNeedsATime) {
  const std::string message = "missing \" --time <time> \" parameter.\n";
  ExpectMessage({"--action", "dump_backup_set", "--output_dir", "/x"}, message);
  ExpectMessage({"--action", "dump_backup_set", "--output_dir", "/x", "--time", "0"}, message);
  ExpectMessage({"--action", "dump_backup_set", "--output_dir", "/x", "--time", "abc"}, message);
  ExpectMessage({"--action", "dump_backup_set"}, message);
}

TEST(Main, ABackupSetNeedsADirectory) {
  const std::string message = "missing \" --output_dir <output_dir> \" parameter.\n";
  ExpectMessage({"--action", "dump_backup_set", "--time", "5"}, message);
  ExpectMessage({"--action", "dump_backup_set", "--time", "5", "--output_dir", ""}, message);
}

TEST(Main, ABackupNeedsAnId) {
  const std::string message = "missing \" --backup_id <backup_id> \" parameter.\n";
  ExpectMessage({"--action", "dump_backup"}, message);
  ExpectMessage({"--action", "dump_backup", "--backup_id", "", "--output_dir", "/x"}, message);
}

TEST(Main, ListBackupsGetsItsFilters) {
  FakeHost host;
  host.Prints("the listing\n");
  const Outcome outcome = RunMain(&host, {"--action", "list_backups", "--policy", "P1", "--client",
                                          "c1", "--schedule", "full", "--count", "1"});
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.out, "the listing\n");
  EXPECT_THAT(outcome.commands,
              ElementsAre("/usr/ostra/keelhaven/bin/admincmd/qvroll -client c1 -policy P1 "
                          "-sched full"));
}

TEST(Main, AFailedListBackupsIsTheExitStatus) {
  FakeHost host;
  host.Refuses();
  const Outcome outcome = RunMain(&host, {"--action", "list_backups"});
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.out, "");
  EXPECT_EQ(outcome.err, "run command qvroll failed.\n");
}

/// A listing of `count` sets, created at 1, 2, 3 and so on.
std::string ListingOfSets(int count) {
  std::string listing = "\nBackupid x\n";
  for (int time = 1; time <= count; ++time) {
    listing += "c_" + std::to_string(time) + " Sun Sep 13 2020     1 1 s p /x\n";
  }
  return listing;
}

std::size_t ElementsIn(const std::string& document) {
  std::size_t count = 0;
  for (std::size_t at = document.find("BackupCreateTime"); at != std::string::npos;
       at = document.find("BackupCreateTime", at + 1)) {
    ++count;
  }
  return count;
}

TEST(Main, DumpBackupSetListGetsItsFiltersCountAndDirectory) {
  const TemporaryDirectory directory;
  FakeHost host;
  host.Prints(ListingOfSets(3));
  const Outcome outcome =
      RunMain(&host, {"--action", "dump_backup_set_list", "--policy", "P1", "--client", "c1",
                      "--count", "2", "--output_dir", directory.path(), "--schedule", "weekly"});
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.out, "");
  EXPECT_THAT(outcome.commands,
              ElementsAre("/usr/ostra/keelhaven/bin/admincmd/qvroll -client c1 -policy P1"));
  EXPECT_EQ(ElementsIn(ReadFile(directory.PathOf("backup_sets.json"))), 2U);
}

TEST(Main, WithoutACountAHundredSetsAreListed) {
  FakeHost host;
  host.Prints(ListingOfSets(101));
  EXPECT_EQ(ElementsIn(RunMain(&host, {"--action", "dump_backup_set_list"}).out), 100U);
}

TEST(Main, ACountThatIsNoNumberIsNoLimit) {
  FakeHost host;
  host.Prints(ListingOfSets(101));
  EXPECT_EQ(ElementsIn(RunMain(&host, {"--action", "dump_backup_set_list", "--count", "abc"}).out),
            101U);
}

TEST(Main, DumpBackupSetGetsANegativeTime) {
  FakeHost host;
  host.Prints("\nBackupid x\nc_-5 Sun Sep 13 2020     1 1K s p /x\n");
  const Outcome outcome =
      RunMain(&host, {"--action", "dump_backup_set", "--time", "-5", "--output_dir",
                      "/no/such/directory", "--policy", "P1", "--client", "c1"});
  EXPECT_EQ(outcome.commands.at(0),
            "/usr/ostra/keelhaven/bin/admincmd/qvroll -client c1 -policy P1");
  // The set is found: what stops the run is the length of its image's time.
  ASSERT_TRUE(outcome.thrown.has_value());
  EXPECT_THAT(outcome.thrown->what, StartsWith("basic_string::at"));
}

TEST(Main, DumpBackupSetGetsItsDirectory) {
  FakeHost host;
  host.Prints("\nBackupid x\nc_1600 Sun Sep 13 2020     1 1K s p /x\n");
  const Outcome outcome = RunMain(
      &host, {"--action", "dump_backup_set", "--time", "1600", "--output_dir", "/no/such/dir"});
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.err,
            "fopen() failed. can't create file /no/such/dir/c_1600.qvmeta.json\n"
            "dump_backup() failed. ret=1\n");
}

TEST(Main, DumpBackupGetsItsIdAndDirectory) {
  const TemporaryDirectory directory;
  FakeHost host;
  host.Prints("{}").Prints("1\n2\nx name\n").Prints("");
  const Outcome outcome =
      RunMain(&host, {"--action", "list_backups", "--action", "dump_backup", "--backup_id",
                      "a_1600", "--output_dir", directory.path() + "/", "--time", "7"});
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.out, "");
  EXPECT_THAT(directory.FileNames(), ElementsAre("a_1600.json"));
}

TEST(Main, DumpBackupMayGoWithoutADirectory) {
  FakeHost host;
  const Outcome outcome = RunMain(&host, {"--action", "dump_backup", "--backup_id", "5"});
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.err, "wrong backup_id, no '_' found.\n");
}

TEST(Main, TheLevelIsThatOfTheCommandLine) {
  FakeHost host;
  host.Prints("");
  const Outcome outcome = RunMain(&host, {"--verbose", "2", "--action", "dump_backup_set_list"});
  EXPECT_EQ(outcome.out,
            "[cmd] /usr/ostra/keelhaven/bin/admincmd/qvroll\n"
            "backup image count: 0\n"
            "=====================================\n"
            "backup set count: 0\n"
            "{\n"
            "    \"backup_sets\": \"\"\n"
            "}\n");
}

TEST(Main, APipeBehindStandardOutputTakesAMebibyte) {
  const TemporaryDirectory directory;
  const std::string path = directory.PathOf("pipe");
  ASSERT_EQ(mkfifo(path.c_str(), S_IRUSR | S_IWUSR), 0);
  const int reader = open(path.c_str(), O_RDONLY | O_NONBLOCK);
  ASSERT_NE(reader, -1);
  FakeHost host;
  host.SendStandardOutputTo(path);
  EXPECT_EQ(RunMain(&host, {"--help"}).status, 0);
  EXPECT_EQ(fcntl(reader, F_GETPIPE_SZ), 1048576);
  close(reader);
}

/// Runs the program in a child process, which an exception leaves as it leaves main. Returns the
/// signal that ended it, or 0.
int SignalOf(const std::vector<std::string>& arguments, FakeHost* host) noexcept {
  const pid_t child = fork();
  if (child == 0) {
    const rlimit no_core = {};
    setrlimit(RLIMIT_CORE, &no_core);
    host->Prints("error\n");
    CallMain(arguments);
    _exit(0);
  }
  int status = 0;
  waitpid(child, &status, 0);
  return WIFSIGNALED(status) ? WTERMSIG(status) : 0;
}

TEST(Main, AnUncaughtExceptionAbortsBehindTheTraces) {
  const TemporaryDirectory directory;
  const std::vector<std::string> arguments = {"--action", "dump_backup",  "--backup_id",
                                              "a_1600",   "--output_dir", directory.path(),
                                              "--verbose"};
  FakeHost host;
  const Outcome outcome = host.Run([&] { return SignalOf(arguments, &host); });
  EXPECT_EQ(outcome.status, SIGABRT);
  EXPECT_EQ(outcome.out,
            "[cmd] /usr/ostra/keelhaven/bin/admincmd/qvmeta -json -backupid a_1600\n"
            "error\n");
  EXPECT_THAT(outcome.err, testing::HasSubstr("terminate called after throwing an instance of"));
  EXPECT_THAT(outcome.err, testing::HasSubstr("a_1600.qvmeta.json(1): expected value"));
}

}  // namespace
