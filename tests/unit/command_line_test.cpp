#include "main/command_line.h"

#include <optional>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "fake_host.h"
#include "layout/layout.h"

namespace {

using testing::StartsWith;

/// A walk over the arguments behind the program name, which is not looked at.
struct Walk {
  explicit Walk(std::vector<const char*> arguments) {
    arguments.insert(arguments.begin(), "another_name");
    FakeHost host;
    outcome = host.Run([&] {
      status = ParseCommandLine(static_cast<int>(arguments.size()), arguments.data(), &options);
      level = verbose;
    });
  }

  Options options;
  std::optional<int> status;
  int level = -1;
  Outcome outcome;
};

/// The options of a walk that reaches the end without a word.
Options Parsed(const std::vector<const char*>& arguments) {
  const Walk walk(arguments);
  EXPECT_EQ(walk.status, std::nullopt);
  EXPECT_EQ(walk.outcome.out, "");
  EXPECT_EQ(walk.outcome.err, "");
  return walk.options;
}

void ExpectMessage(const std::vector<const char*>& arguments, const std::string& message) {
  const Walk walk(arguments);
  EXPECT_EQ(walk.status, 1);
  EXPECT_EQ(walk.outcome.out, "");
  EXPECT_EQ(walk.outcome.err, message);
}

void ExpectUsage(const std::vector<const char*>& arguments) {
  const Walk walk(arguments);
  EXPECT_EQ(walk.status, 0);
  EXPECT_THAT(walk.outcome.out, StartsWith("Usage:\nquillmere --action dump_backup_set_list "));
  EXPECT_EQ(walk.outcome.err, "");
}

TEST(CommandLine, WithoutArgumentsEverythingHasItsDefault) {
  const Options options = Parsed({});
  EXPECT_EQ(options.action, "");
  EXPECT_EQ(options.policy, "");
  EXPECT_EQ(options.client, "");
  EXPECT_EQ(options.time, 0);
  EXPECT_EQ(options.count, 100);
  EXPECT_EQ(options.output_dir, "");
  EXPECT_EQ(options.backup_id, "");
  EXPECT_EQ(options.schedule, "");
  EXPECT_EQ(Walk({}).level, 0);
}

TEST(CommandLine, EveryOptionIsTakenWithEveryAction) {
  for (const char* const action :
       {"dump_backup_set_list", "dump_backup_set", "list_backups", "dump_backup"}) {
    const Options options =
        Parsed({"--schedule", "s", "--backup_id", "b", "--output_dir", "o", "--count", "3",
                "--time", "4", "--client", "c", "--policy", "p", "--action", action});
    EXPECT_EQ(options.action, action);
    EXPECT_EQ(options.policy, "p");
    EXPECT_EQ(options.client, "c");
    EXPECT_EQ(options.time, 4);
    EXPECT_EQ(options.count, 3);
    EXPECT_EQ(options.output_dir, "o");
    EXPECT_EQ(options.backup_id, "b");
    EXPECT_EQ(options.schedule, "s");
  }
}

TEST(CommandLine, TheLastOccurrenceWins) {
  const Options options = Parsed({"--action", "list_backups", "--policy", "p", "--action",
                                  "dump_backup", "--policy", "q", "--time", "1", "--time", "x"});
  EXPECT_EQ(options.action, "dump_backup");
  EXPECT_EQ(options.policy, "q");
  EXPECT_EQ(options.time, 0);
}

TEST(CommandLine, AValueIsTakenWhateverItLooksLike) {
  EXPECT_EQ(Parsed({"--policy", "--help"}).policy, "--help");
  EXPECT_EQ(Parsed({"--client", "-h"}).client, "-h");
  EXPECT_EQ(Parsed({"--schedule", "--policy"}).schedule, "--policy");
  EXPECT_EQ(Parsed({"--output_dir", "--output_dir"}).output_dir, "--output_dir");
  EXPECT_EQ(Parsed({"--backup_id", " a b "}).backup_id, " a b ");
}

TEST(CommandLine, AValueMayBeEmpty) {
  EXPECT_EQ(Parsed({"--policy", "p", "--policy", ""}).policy, "");
  EXPECT_EQ(Parsed({"--output_dir", "o", "--output_dir", ""}).output_dir, "");
  EXPECT_EQ(Parsed({"--count", ""}).count, 0);
}

TEST(CommandLine, TheTimeHas64Bits) {
  EXPECT_EQ(Parsed({"--time", "1600123456"}).time, 1600123456);
  EXPECT_EQ(Parsed({"--time", "4294967301"}).time, 4294967301);
  EXPECT_EQ(Parsed({"--time", "-5"}).time, -5);
  EXPECT_EQ(Parsed({"--time", " \t+7x"}).time, 7);
  EXPECT_EQ(Parsed({"--time", "abc"}).time, 0);
  EXPECT_EQ(Parsed({"--time", "0x10"}).time, 0);
  EXPECT_EQ(Parsed({"--time", "9223372036854775808"}).time, 9223372036854775807);
}

TEST(CommandLine, TheCountKeepsTheLow32Bits) {
  EXPECT_EQ(Parsed({"--count", "7"}).count, 7);
  EXPECT_EQ(Parsed({"--count", "-3"}).count, -3);
  EXPECT_EQ(Parsed({"--count", "abc"}).count, 0);
  EXPECT_EQ(Parsed({"--count", "010"}).count, 10);
  EXPECT_EQ(Parsed({"--count", "0x10"}).count, 0);
  EXPECT_EQ(Parsed({"--count", "4294967397"}).count, 101);
  EXPECT_EQ(Parsed({"--count", "2147483648"}).count, -2147483648);
  EXPECT_EQ(Parsed({"--count", " +2x"}).count, 2);
  // Saturates at 64 bits, of which all but the sign are set.
  EXPECT_EQ(Parsed({"--count", "99999999999999999999"}).count, -1);
}

TEST(CommandLine, VerboseAtTheEndIsLevelOne) {
  const Walk walk({"--policy", "p", "--verbose"});
  EXPECT_EQ(walk.status, std::nullopt);
  EXPECT_EQ(walk.level, 1);
  EXPECT_EQ(walk.options.policy, "p");
}

TEST(CommandLine, VerboseTakesTheArgumentBehindIt) {
  EXPECT_EQ(Walk({"--verbose", "3"}).level, 3);
  EXPECT_EQ(Walk({"--verbose", "-1"}).level, -1);
  EXPECT_EQ(Walk({"--verbose", "4294967298"}).level, 2);
  EXPECT_EQ(Walk({"--verbose", "x"}).level, 0);
  EXPECT_EQ(Walk({"--verbose", ""}).level, 0);
  EXPECT_EQ(Walk({"--verbose", "3", "--verbose"}).level, 1);
  EXPECT_EQ(Walk({"--verbose", "3", "--verbose", "2"}).level, 2);
}

TEST(CommandLine, VerboseSwallowsAnOption) {
  const Walk walk({"--verbose", "--action", "list_backups"});
  EXPECT_EQ(walk.status, 1);
  EXPECT_EQ(walk.level, 0);
  EXPECT_EQ(walk.options.action, "");
  EXPECT_EQ(walk.outcome.err, "unrecognized parameter: list_backups\n");
  EXPECT_EQ(Walk({"--verbose", "--help"}).status, std::nullopt);
}

TEST(CommandLine, HelpEndsTheWalk) {
  ExpectUsage({"-h"});
  ExpectUsage({"--help"});
  ExpectUsage({"--help", "--bogus"});
  ExpectUsage({"--action", "dump_backup", "--verbose", "2", "--time", "1", "-h", "--action"});
}

TEST(CommandLine, TheFirstErrorEndsTheWalk) {
  ExpectMessage({"--action", "bogus", "--help"}, "unknown action value: bogus\n");
  ExpectMessage({"--action", "bogus", "--bogus"}, "unknown action value: bogus\n");
  ExpectMessage({"--action", "bogus", "--action", "dump_backup"}, "unknown action value: bogus\n");
  ExpectMessage({"bogus", "--help"}, "unrecognized parameter: bogus\n");
  ExpectMessage({"--bogus", "--action", "worse"}, "unrecognized parameter: --bogus\n");
}

TEST(CommandLine, AMissingValueIsNamed) {
  ExpectMessage({"--action"}, "missing value for <action> parameter.\n");
  ExpectMessage({"--policy"}, "missing value for <policy> parameter.\n");
  ExpectMessage({"--client"}, "missing value for <client> parameter.\n");
  ExpectMessage({"--time"}, "missing value for <time> parameter.\n");
  ExpectMessage({"--count"}, "missing value for <count> parameter.\n");
  ExpectMessage({"--output_dir"}, "missing value for <output_dir> parameter.\n");
  ExpectMessage({"--backup_id"}, "missing value for <backup_id> parameter.\n");
  ExpectMessage({"--schedule"}, "missing value for <schedule> parameter.\n");
  ExpectMessage({"--action", "list_backups", "--policy", "p", "--client"},
                "missing value for <client> parameter.\n");
}

TEST(CommandLine, NoOtherNameIsAnAction) {
  for (const char* const name : {"", "dump", "dump_backups", "List_backups", "list_backups ",
                                 " list_backups", "dump_backup_set_lis", "--help", "a b"}) {
    ExpectMessage({"--action", name}, "unknown action value: " + std::string(name) + "\n");
  }
}

TEST(CommandLine, AnythingElseIsUnrecognized) {
  for (const char* const argument :
       {"",          "-",         "--",     "---help",      "help",        "-help",
        "-H",        "--Help",    "--he",   "--policy=x",   "--polic",     "--policys",
        "--POLICY",  "-policy",   "policy", "-v",           "--verbose=1", "list_backups",
        "--action ", " --action", "%s",     "--output-dir", "--helpx",     "--caf\xe9\t\"x\""}) {
    ExpectMessage({argument}, "unrecognized parameter: " + std::string(argument) + "\n");
    ExpectMessage({"--policy", "p", argument, "x"},
                  "unrecognized parameter: " + std::string(argument) + "\n");
  }
}

}  // namespace
