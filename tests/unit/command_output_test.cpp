#include "host/command_output.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <iostream>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "fake_host.h"
#include "layout/layout.h"
#include "temporary_directory.h"

using namespace std::string_literals;

namespace {

using testing::Each;
using testing::ElementsAre;

constexpr std::size_t kLongestLine = 4194303;  // bytes that one read takes

/// The texts of all reads of a command that prints `output`. The sizes are compared before the
/// texts, so that a failure does not print megabytes.
std::vector<std::string> LinesOf(const std::string& output) {
  FakeHost host;
  host.Prints(output);
  std::vector<std::string> lines;
  host.Run([&] {
    CommandOutput command("x");
    while (command.ReadLine()) {
      lines.emplace_back(command.line());
    }
  });
  return lines;
}

std::vector<std::size_t> SizesOf(const std::vector<std::string>& texts) {
  std::vector<std::size_t> sizes;
  sizes.reserve(texts.size());
  for (const std::string& text : texts) {
    sizes.push_back(text.size());
  }
  return sizes;
}

/// Reads a command to its end and does nothing else.
void ReadAll(CommandOutput* command) {
  while (command->ReadLine()) {
  }
}

TEST(CommandOutput, TheCommandTextReachesTheShellAsItIs) {
  FakeHost host;
  host.Prints("");
  const Outcome outcome =
      host.Run([] { EXPECT_TRUE(CommandOutput("a  'b' \"$c\" %d; e | f\\ ").started()); });
  EXPECT_THAT(outcome.steps, ElementsAre("popen a  'b' \"$c\" %d; e | f\\ ", "pclose a"));
}

TEST(CommandOutput, NothingIsWrittenAtLevelZeroOrBelow) {
  for (const int level : {0, -1}) {
    FakeHost host;
    host.Prints("line\n");
    verbose = level;
    const Outcome outcome = host.Run([] {
      CommandOutput command("x");
      ReadAll(&command);
    });
    EXPECT_EQ(outcome.out, "");
    EXPECT_EQ(outcome.err, "");
  }
}

TEST(CommandOutput, TheTraceIsOnStandardOutputBeforeTheCommandStarts) {
  FakeHost host;
  host.Prints("");
  verbose = 1;
  const Outcome outcome = host.Run([] { CommandOutput("/bin/x -y %s"); });
  EXPECT_THAT(outcome.out_at_start, ElementsAre("[cmd] /bin/x -y %s\n"));
  EXPECT_EQ(outcome.out, "[cmd] /bin/x -y %s\n");
  EXPECT_EQ(outcome.err, "");
}

TEST(CommandOutput, EachLineIsEchoedFromLevelOne) {
  for (const int level : {1, 2, 3, 100}) {
    FakeHost host;
    host.Prints("one\n\n%d\r\ncut\0off\nlast"s);
    verbose = level;
    const Outcome outcome = host.Run([] {
      CommandOutput command("x");
      ReadAll(&command);
    });
    EXPECT_EQ(outcome.out, "[cmd] x\none\n\n%d\r\ncutlast");
  }
}

TEST(CommandOutput, ALineIsEchoedWhenItIsReadAndNotBefore) {
  FakeHost host;
  host.Prints("one\ntwo\n");
  verbose = 1;
  const Outcome outcome = host.Run([] {
    CommandOutput command("x");
    EXPECT_TRUE(command.ReadLine());
  });
  EXPECT_EQ(outcome.out, "[cmd] x\none\n");
}

TEST(CommandOutput, WithoutEchoOnlyTheCommandIsTraced) {
  FakeHost host;
  host.Prints("one\n");
  verbose = 3;
  const Outcome outcome = host.Run([] {
    CommandOutput command("x", CommandOutput::Echo::kNever);
    ReadAll(&command);
    EXPECT_EQ(command.line(), "one\n");
  });
  EXPECT_EQ(outcome.out, "[cmd] x\n");
}

TEST(CommandOutput, ARefusedCommandIsTracedButNotStarted) {
  FakeHost host;
  host.Refuses();
  verbose = 1;
  const Outcome outcome = host.Run([] {
    CommandOutput command("x");
    EXPECT_FALSE(command.started());
    command.Pclose();
    command.Fclose();
  });
  EXPECT_EQ(outcome.out, "[cmd] x\n");
  EXPECT_EQ(outcome.err, "");
  EXPECT_THAT(outcome.steps, ElementsAre("popen x"));
}

TEST(CommandOutput, NoOutputIsNoLine) {
  EXPECT_THAT(LinesOf(""), ElementsAre());
}

TEST(CommandOutput, ALineKeepsItsNewline) {
  EXPECT_THAT(LinesOf("one\n\ntwo\n"), ElementsAre("one\n", "\n", "two\n"));
}

TEST(CommandOutput, TheLastLineMayLackItsNewline) {
  EXPECT_THAT(LinesOf("one\ntwo"), ElementsAre("one\n", "two"));
}

TEST(CommandOutput, CarriageReturnsAreKept) {
  EXPECT_THAT(LinesOf("one\r\n\r\nt\rwo"), ElementsAre("one\r\n", "\r\n", "t\rwo"));
}

TEST(CommandOutput, AZeroByteEndsTheTextOfItsRead) {
  EXPECT_THAT(LinesOf("a\0b\nc\n\0d\n\0"s), ElementsAre("a", "c\n", "", ""));
}

TEST(CommandOutput, BytesOfEveryOtherValueArrive) {
  std::string line;
  for (int value = 1; value <= 0xFF; ++value) {
    if (value != '\n') {
      line += static_cast<char>(value);
    }
  }
  EXPECT_THAT(LinesOf(line + "\n"), ElementsAre(line + "\n"));
}

TEST(CommandOutput, ALineThatFillsTheBufferArrivesWhole) {
  const std::string line = std::string(kLongestLine - 1, 'a') + "\n";
  const std::vector<std::string> lines = LinesOf(line + "b\n");
  ASSERT_THAT(SizesOf(lines), ElementsAre(kLongestLine, 2U));
  EXPECT_TRUE(lines[0] == line);
  EXPECT_EQ(lines[1], "b\n");
}

TEST(CommandOutput, ALineOneByteTooLongLeavesItsNewlineToTheNextRead) {
  const std::string text(kLongestLine, 'a');
  const std::vector<std::string> lines = LinesOf(text + "\nb\n");
  ASSERT_THAT(SizesOf(lines), ElementsAre(kLongestLine, 1U, 2U));
  EXPECT_TRUE(lines[0] == text);
  EXPECT_EQ(lines[1], "\n");
  EXPECT_EQ(lines[2], "b\n");
}

TEST(CommandOutput, ALongerLineArrivesInPieces) {
  std::string text;
  while (text.size() < 2 * kLongestLine + 100) {
    text += std::to_string(text.size()) + ' ';
  }
  text.resize(2 * kLongestLine + 100);
  const std::vector<std::string> lines = LinesOf(text + "\nb");
  ASSERT_THAT(SizesOf(lines), ElementsAre(kLongestLine, kLongestLine, 101U, 1U));
  EXPECT_TRUE(lines[0] + lines[1] + lines[2] == text + "\n");
  EXPECT_EQ(lines[3], "b");
}

TEST(CommandOutput, AZeroByteDropsTheRestOfItsPieceOnly) {
  std::string text(kLongestLine, 'a');
  text[3] = '\0';
  const std::vector<std::string> lines = LinesOf(text + "rest\n");
  EXPECT_THAT(lines, ElementsAre("aaa", "rest\n"));
}

TEST(CommandOutput, TheLineStandsInTheSharedBuffer) {
  FakeHost host;
  host.Prints("one\n");
  host.Run([] {
    CommandOutput command("x");
    EXPECT_TRUE(command.ReadLine());
    EXPECT_EQ(command.line().data(), line_buf);
    EXPECT_STREQ(line_buf, "one\n");
  });
}

TEST(CommandOutput, TheBufferIsNotCleared) {
  FakeHost host;
  host.Prints("ab\n");
  std::fill(line_buf, line_buf + kLineBufSize, 'x');
  host.Run([] {
    CommandOutput command("x");
    ReadAll(&command);
  });
  EXPECT_STREQ(line_buf, "ab\n");
  EXPECT_THAT(std::vector<char>(line_buf + 4, line_buf + 1000), Each('x'));
  EXPECT_EQ(line_buf[kLineBufSize - 1], 'x');
}

TEST(CommandOutput, PcloseWaitsForTheCommandOnce) {
  FakeHost host;
  host.Prints("one\n");
  const Outcome outcome = host.Run([] {
    CommandOutput command("x");
    EXPECT_TRUE(command.started());
    command.Pclose();
    EXPECT_FALSE(command.started());
    command.Pclose();
    command.Fclose();
  });
  EXPECT_THAT(outcome.steps, ElementsAre("popen x", "pclose x"));
}

TEST(CommandOutput, FcloseEndsTheStreamWithoutWaiting) {
  FakeHost host;
  host.Prints("one\ntwo\n");
  const Outcome outcome = host.Run([] {
    CommandOutput command("x");
    EXPECT_TRUE(command.ReadLine());
    command.Fclose();
    EXPECT_FALSE(command.started());
    command.Fclose();
    command.Pclose();
  });
  EXPECT_THAT(outcome.steps, ElementsAre("popen x", "fclose x"));
}

TEST(CommandOutput, AnOpenStreamIsClosedWithPcloseAtTheEnd) {
  FakeHost host;
  host.Prints("one\n");
  const Outcome outcome = host.Run([] { const CommandOutput command("x"); });
  EXPECT_THAT(outcome.steps, ElementsAre("popen x", "pclose x"));
}

TEST(CommandOutput, TheExitStatusOfTheCommandIsNotLookedAt) {
  FakeHost host;
  host.Prints("one\n", 3);
  const Outcome outcome = host.Run([] {
    CommandOutput command("x");
    ReadAll(&command);
    command.Pclose();
  });
  EXPECT_EQ(outcome.err, "");
}

TEST(CommandOutput, TheShellRunsTheCommand) {
  FakeHost host;
  host.LeavesToTheShell();
  verbose = 1;
  const Outcome outcome = host.Run([] {
    CommandOutput command("printf 'a %s\n' 'b  c'; echo complaint >&2; printf end; exit 7");
    ReadAll(&command);
  });
  EXPECT_EQ(outcome.out,
            "[cmd] printf 'a %s\n' 'b  c'; echo complaint >&2; printf end; exit 7\n"
            "a b  c\n"
            "end");
  EXPECT_EQ(outcome.err, "complaint\n");
}

TEST(CommandOutput, ACommandCanPrintAMebibyteBeforeAnythingIsRead) {
  const TemporaryDirectory directory;
  const std::string ended = directory.PathOf("ended");
  FakeHost host;
  host.LeavesToTheShell();
  host.Run([&] {
    const CommandOutput command("head -c 1048576 /dev/zero && : >" + ended);
    for (int i = 0; i < 1000 && access(ended.c_str(), F_OK) != 0; ++i) {
      usleep(10000);
    }
    EXPECT_EQ(access(ended.c_str(), F_OK), 0);
  });
}

TEST(CommandOutput, AManyTimesFilledPipeArrivesWhole) {
  FakeHost host;
  host.LeavesToTheShell();
  std::size_t lines = 0;
  std::size_t bytes = 0;
  host.Run([&] {
    CommandOutput command("i=0; while [ $i -lt 300 ]; do printf '%10000d\\n' $i; i=$((i+1)); done");
    while (command.ReadLine()) {
      ++lines;
      bytes += command.line().size();
    }
  });
  EXPECT_EQ(lines, 300U);
  EXPECT_EQ(bytes, 300U * 10001U);
}

/// How many lines had been read each time that more of the output was waited for.
std::vector<std::size_t> WaitsOf(const std::string& output) {
  static std::vector<std::size_t> waits;
  static std::size_t lines;
  waits.clear();
  lines = 0;
  FakeHost host;
  host.Prints(output);
  host.Run([&] {
    CommandOutput::OnWait([](int) { waits.push_back(lines); });
    CommandOutput command("x");
    while (command.ReadLine()) {
      ++lines;
    }
    CommandOutput::OnWait([](int) { std::cout.flush(); });
  });
  return waits;
}

TEST(CommandOutput, MoreIsWaitedForOnlyBehindTheLastWholeLine) {
  EXPECT_THAT(WaitsOf(""), ElementsAre(0));
  EXPECT_THAT(WaitsOf("one\ntwo\n"), ElementsAre(0, 2));
  EXPECT_THAT(WaitsOf("one\nunfinished"), ElementsAre(0, 1, 2));
  // 262,144 bytes are read at a time: 2,621 lines and 44 bytes, then 2,621 and 88 bytes more.
  std::string lines;
  for (int i = 0; i < 5243; ++i) {
    lines += std::string(99, 'x') + '\n';
  }
  EXPECT_THAT(WaitsOf(lines), ElementsAre(0, 2621, 5242, 5243));
}

TEST(CommandOutput, TheDescriptorThatIsWaitedForIsThePipe) {
  static int pipe;
  FakeHost host;
  host.Prints("text");
  host.Run([&] {
    CommandOutput::OnWait([](int descriptor) { pipe = descriptor; });
    CommandOutput("x").ReadLine();
    CommandOutput::OnWait([](int) { std::cout.flush(); });
    EXPECT_EQ(fcntl(pipe, F_GETFD), -1);  // closed since
  });
  EXPECT_GT(pipe, STDERR_FILENO);
}

TEST(CommandOutput, WhatIsHeldBackIsWrittenBeforeMoreIsWaitedFor) {
  FakeHost host;
  host.LeavesToTheShell().Prints("");
  const Outcome outcome = host.Run([] {
    CommandOutput command("echo one; echo two");
    std::cout << "held back";
    EXPECT_TRUE(command.ReadLine());
    CommandOutput("look");
  });
  EXPECT_EQ(outcome.out_at_start.at(1), "held back");
}

TEST(CommandOutput, TellsHowTheLastCommandEnded) {
  FakeHost host;
  host.Prints("", 3).Prints("").Prints("");
  host.Run([] {
    CommandOutput("a").Pclose();
    EXPECT_EQ(CommandOutput::last_status(), 3 << 8);
    CommandOutput("b").Fclose();
    EXPECT_EQ(CommandOutput::last_status(), -1);
    { const CommandOutput command("c"); }
    EXPECT_EQ(CommandOutput::last_status(), 0);
  });
}

}  // namespace
