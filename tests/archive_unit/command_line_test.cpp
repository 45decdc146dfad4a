#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "archive/command_line.h"
#include "archive/manifest.h"
#include "product.h"

using CommandLine = ArchiveTest;

namespace {

const std::string kHint = "Run with --help for more information.\n";

}  // namespace

TEST_F(CommandLine, HelpAndVersionGoToStandardOutput) {
  EXPECT_EQ(Run({"--version"}), (Outcome{0, kProgram + "\n", ""}));
  for (const std::vector<std::string>& arguments :
       std::vector<std::vector<std::string>>{{"--help"},
                                             {"init", "--help"},
                                             {"sync", "-h"},
                                             {"list", "--help"},
                                             {"verify", "-h"},
                                             {"prune", "-h"}}) {
    const Outcome outcome = Run(arguments);
    EXPECT_EQ(outcome.status, 0);
    EXPECT_THAT(outcome.out, testing::HasSubstr("Usage: quillmere-archive"));
    EXPECT_EQ(outcome.err, "");
  }
}

TEST_F(CommandLine, WrongArgumentsAreSaid) {
  struct Case {
    std::vector<std::string> arguments;
    std::string message;
  };
  const std::vector<Case> kCases = {
      {{}, "A subcommand is required"},
      {{"frob"}, "A subcommand is required"},
      {{"sync"}, "ARCHIVE is required"},
      {{"sync", "a", "b"}, "The following argument was not expected: b"},
      {{"sync", "a", "--client", "b", "c"}, "The following argument was not expected: c"},
      {{"sync", "a", "--jobs", "0"}, "--jobs: Value 0 not in range 1 to 256"},
      {{"sync", "a", "--limit", "-1"}, "--limit: -1 is no N"},
      {{"sync", "a", "--timeout", "5"}, "--timeout: 5 is no AGE"},
      {{"sync", "a", "--newer-than", "x"}, "--newer-than: x is no AGE"},
      {{"sync", "a", "--keep-free", "5GB"}, "--keep-free: 5GB is no SIZE"},
      {{"init", "a", "--compress", "20"}, "--compress: Value 20 not in range 1 to 19"},
      {{"list", "a", "--sets", "--images"}, "--sets excludes --images"},
      {{"list", "a", "--sets", "--stale", "1h"}, "--sets excludes --stale"},
      {{"verify", "a", "--jobs", "257"}, "--jobs: Value 257 not in range 1 to 256"},
      {{"prune", "a"}, "--older-than is required"},
      {{"prune", "a", "--older-than", "x"}, "--older-than: x is no AGE"},
      {{"prune", "a", "--older-than", "1d", "--keep-last", "0"},
       "--keep-last: Value 0 not in range 1 to 1000000"},
  };
  for (const Case& wrong : kCases) {
    EXPECT_EQ(Run(wrong.arguments), (Outcome{2, "", wrong.message + '\n' + kHint}));
  }
}

TEST_F(CommandLine, EveryCommandRefusesWhatIsNoArchive) {
  struct Case {
    std::string text;
    std::string message;
  };
  const std::vector<std::vector<std::string>> kCommands = {{"sync", "ARCHIVE"},
                                                           {"list", "ARCHIVE"},
                                                           {"verify", "ARCHIVE"},
                                                           {"prune", "ARCHIVE", "--older-than=1d"}};
  for (const std::vector<std::string>& command : kCommands) {
    EXPECT_EQ(Run(command), (Outcome{4, "", "can't open ARCHIVE: No such file or directory\n"}));
  }
  ASSERT_EQ(Run({"init", "ARCHIVE"}).status, 0);
  for (const Case& wrong :
       {Case{"", "not JSON"}, Case{"{}", "not of quillmere-archive"},
        Case{R"({"format": "quillmere-archive", "version": 2})",
             "format version 2 is newer than this program"},
        Case{R"({"format": "quillmere-archive", "version": 1})", "program is missing or wrong"}}) {
    WriteFile(PathOf("archive.json"), wrong.text);
    for (const std::vector<std::string>& command : kCommands) {
      EXPECT_EQ(Run(command), (Outcome{4, "", "ARCHIVE/archive.json: " + wrong.message + '\n'}));
    }
  }
  remove(PathOf("archive.json").c_str());
  EXPECT_EQ(Run({"sync", "ARCHIVE"}),
            (Outcome{4, "",
                     "ARCHIVE/archive.json: no such file; quillmere-archive init makes an "
                     "archive\n"}));
}

TEST_F(CommandLine, OutputThatCannotBeWrittenIsSaid) {
  const std::string messages = directory_.PathOf("messages");
  const pid_t child = fork();
  if (child == 0) {
    dup2(open("/dev/full", O_WRONLY), STDOUT_FILENO);
    dup2(open(messages.c_str(), O_WRONLY | O_CREAT, 0600), STDERR_FILENO);
    std::string program = "quillmere-archive";
    std::string option = "--version";
    char* arguments[] = {program.data(), option.data(), nullptr};
    std::exit(RunCommandLine(2, arguments));
  }
  int status = -1;
  waitpid(child, &status, 0);
  EXPECT_EQ(WEXITSTATUS(status), 4);
  EXPECT_EQ(ReadFile(messages), "can't write standard output\n");
}
