#include "catalog/list_backups.h"

#include <algorithm>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "fake_host.h"
#include "layout/layout.h"

using namespace std::string_literals;

namespace {

using testing::ElementsAre;

/// What is done without filters when the command prints `listing`.
Outcome Listing(const std::string& listing, int level = 0) {
  FakeHost host;
  host.Prints(listing);
  verbose = level;
  return host.Run([] { return list_backups("", "", ""); });
}

/// The text of the command that is run for these filters.
std::string CommandFor(const std::string& policy, const std::string& client,
                       const std::string& schedule) {
  FakeHost host;
  host.Prints("");
  return host.Run([&] { return list_backups(policy, client, schedule); }).commands.at(0);
}

TEST(ListBackups, TheCommandNamesClientPolicyAndSchedule) {
  const std::string path = "/usr/ostra/keelhaven/bin/admincmd/qvroll";
  EXPECT_EQ(CommandFor("", "", ""), path);
  EXPECT_EQ(CommandFor("P1", "", ""), path + " -policy P1");
  EXPECT_EQ(CommandFor("", "c1", ""), path + " -client c1");
  EXPECT_EQ(CommandFor("", "", "full"), path + " -sched full");
  EXPECT_EQ(CommandFor("P1", "", "full"), path + " -policy P1 -sched full");
  EXPECT_EQ(CommandFor("P1", "c1", "full"), path + " -client c1 -policy P1 -sched full");
}

TEST(ListBackups, TheListingIsCopiedUnchanged) {
  for (const std::string& listing :
       {""s, "\nBackupid x\n\n\n a_1\t%s \\ \"\r\n\xff\x01\n"s, "no newline\nat the end"s}) {
    const Outcome outcome = Listing(listing);
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.out, listing);
    EXPECT_EQ(outcome.err, "");
    EXPECT_THAT(outcome.steps,
                ElementsAre("popen /usr/ostra/keelhaven/bin/admincmd/qvroll", "pclose qvroll"));
  }
}

TEST(ListBackups, AZeroByteDropsTheRestOfItsLine) {
  EXPECT_EQ(Listing("one\0dropped\ntwo\n\0\nthree"s).out, "onetwo\nthree");
}

TEST(ListBackups, ALongLineIsCopiedWhole) {
  std::string text;
  while (text.size() < 8400000) {
    text += std::to_string(text.size()) + " and so on: ";
  }
  for (const std::size_t size : {4194302U, 4194303U, 4194304U, 8400000U}) {
    const std::string listing = text.substr(0, size) + "\nnext\n";
    EXPECT_TRUE(Listing(listing).out == listing) << size;
  }
}

TEST(ListBackups, TheTraceComesFirstAndOnce) {
  for (const int level : {1, 2, 3}) {
    const Outcome outcome = Listing("one\ntwo\n", level);
    EXPECT_EQ(outcome.out,
              "[cmd] /usr/ostra/keelhaven/bin/admincmd/qvroll\n"
              "one\n"
              "two\n");
    EXPECT_THAT(outcome.out_at_start,
                ElementsAre("[cmd] /usr/ostra/keelhaven/bin/admincmd/qvroll\n"));
  }
}

TEST(ListBackups, ARefusedCommandIsTracedAndFails) {
  FakeHost host;
  host.Refuses();
  verbose = 1;
  const Outcome outcome = host.Run([] { return list_backups("P1", "c1", "full"); });
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.out,
            "[cmd] /usr/ostra/keelhaven/bin/admincmd/qvroll -client c1 -policy P1 -sched full\n");
  EXPECT_EQ(outcome.err, "run command qvroll failed.\n");
}

TEST(ListBackups, TheBufferIsClearedOnceTheCommandIsStarted) {
  FakeHost host;
  host.Prints("longer line\nab\n").OnStart([] {
    std::fill(line_buf, line_buf + kLineBufSize, 'x');
  });
  host.Run([] { return list_backups("", "", ""); });
  // Not between the reads, though: the end of the line before is still there.
  EXPECT_EQ(std::string(line_buf, 14), "ab\n\0er line\n\0\0"s);
  EXPECT_TRUE(std::all_of(line_buf + 14, line_buf + kLineBufSize, [](char c) { return c == 0; }));
}

TEST(ListBackups, ARefusedCommandLeavesTheBufferAlone) {
  FakeHost host;
  host.Refuses();
  std::fill(line_buf, line_buf + kLineBufSize, 'x');
  host.Run([] { return list_backups("", "", ""); });
  EXPECT_TRUE(std::all_of(line_buf, line_buf + kLineBufSize, [](char c) { return c == 'x'; }));
}

}  // namespace
