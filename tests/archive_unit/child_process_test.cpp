#include "archive/child_process.h"

#include <errno.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>

#include <gtest/gtest.h>

#include "failing_calls.h"

namespace {

/// All that `process` tells, once it is done.
std::string AllResults(ChildProcess* process, const Signals& signals) {
  while (process->Read()) {
    WaitForAny({process}, signals);
  }
  return process->results();
}

class ChildProcessTest : public testing::Test {
 protected:
  ~ChildProcessTest() override { FailNothing(); }
  Signals signals_;
};

}  // namespace

TEST_F(ChildProcessTest, TellsResultsAndItsStatus) {
  ChildProcess process([](int results) {
    WriteAll(results, std::string(1000000, 'a'));
    _exit(7);
  });
  EXPECT_EQ(AllResults(&process, signals_), std::string(1000000, 'a'));
  EXPECT_EQ(WEXITSTATUS(process.Wait()), 7);
  EXPECT_EQ(WEXITSTATUS(process.Wait()), 7);
}

TEST_F(ChildProcessTest, LeadsAGroupAndHasNoInput) {
  ChildProcess process([](int results) {
    char c = 0;
    WriteAll(results, getpgrp() == getpid() && read(STDIN_FILENO, &c, 1) == 0 ? "yes" : "no");
  });
  EXPECT_EQ(AllResults(&process, signals_), "yes");
  EXPECT_EQ(process.Wait(), 0);
}

TEST_F(ChildProcessTest, IsEndedBySignals) {
  ChildProcess process([](int /*results*/) { pause(); });
  EXPECT_EQ(WTERMSIG(process.End()), SIGTERM);
}

TEST_F(ChildProcessTest, IsEndedWithItsGroupAlsoWhenThatIgnoresIt) {
  ChildProcess process([](int results) {
    signal(SIGTERM, SIG_IGN);
    WriteAll(results, "ready");
    pause();
  });
  while (process.results().empty()) {
    process.Read();
    WaitForAny({&process}, signals_);
  }
  EXPECT_EQ(WTERMSIG(process.End()), SIGKILL);
}

TEST_F(ChildProcessTest, IsEndedWhenNobodyWaitsForIt) {
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  {
    const ChildProcess process([&](int /*results*/) {
      close(ends[0]);
      pause();
    });
    close(ends[1]);
  }
  char c = 0;
  EXPECT_EQ(read(ends[0], &c, 1), 0);
  close(ends[0]);
}

TEST_F(ChildProcessTest, ThatCannotBeStartedSaysWhy) {
  for (const std::string function : {"pipe2", "fork"}) {
    FailOnce(function, EAGAIN);
    try {
      const ChildProcess process([](int /*results*/) {});
      ADD_FAILURE() << function;
    } catch (const ArchiveError& error) {
      EXPECT_STREQ(error.what(), "can't start a worker: Resource temporarily unavailable");
    }
  }
}

TEST_F(ChildProcessTest, DoesNothingWhenItsParentIsGone) {
  FailOnceInWorkers("getppid", 0);
  ChildProcess process([](int results) { WriteAll(results, "begun"); });
  EXPECT_EQ(AllResults(&process, signals_), "");
  EXPECT_EQ(WEXITSTATUS(process.Wait()), 1);
}

TEST_F(ChildProcessTest, TheFirstSignalCounts) {
  EXPECT_EQ(signals_.Received(), 0);
  kill(getpid(), SIGINT);
  EXPECT_EQ(signals_.Received(), SIGINT);
  kill(getpid(), SIGTERM);
  EXPECT_EQ(signals_.Received(), SIGINT);
  // Taken, so that it does not end the test.
  Signals others;
  EXPECT_EQ(others.Received(), SIGTERM);
}
