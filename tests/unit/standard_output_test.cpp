#include "host/standard_output.h"

#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <functional>
#include <iostream>
#include <string>

#include <gtest/gtest.h>

namespace {

/// Does `action` in a child process whose standard output is `descriptor`. Returns whether `action`
/// was true and the child ended in the ordinary way, its streams flushed.
bool HoldsInAChild(int descriptor, const std::function<bool()>& action) {
  std::cout.flush();
  fflush(stdout);
  const pid_t child = fork();
  if (child == 0) {
    dup2(descriptor, STDOUT_FILENO);
    const bool holds = action();
    std::cout.flush();
    fflush(stdout);
    _exit(holds ? 0 : 1);
  }
  int status = -1;
  waitpid(child, &status, 0);
  return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

TEST(StandardOutput, APipeTakesAMebibyteAtATime) {
  std::array<int, 2> ends = {};
  ASSERT_EQ(pipe(ends.data()), 0);
  EXPECT_TRUE(HoldsInAChild(ends[1], [] {
    WidenStandardOutput();
    return fcntl(STDOUT_FILENO, F_GETPIPE_SZ) == 1048576;
  }));
  close(ends[0]);
  close(ends[1]);
}

TEST(StandardOutput, TextIsHeldBackUntilItIsMuch) {
  std::array<int, 2> ends = {};
  ASSERT_EQ(pipe(ends.data()), 0);
  EXPECT_TRUE(HoldsInAChild(ends[1], [] {
    WidenStandardOutput();
    for (int i = 0; i < 30000; ++i) {
      std::cout << "12345\n";
    }
    int written = -1;  // bytes; of a stream that was in use the first line may go out alone
    return ioctl(STDOUT_FILENO, FIONREAD, &written) == 0 && written <= 6;
  }));
  close(ends[0]);
  close(ends[1]);
}

TEST(StandardOutput, AllThatIsWrittenArrivesInOrder) {
  std::array<int, 2> ends = {};
  ASSERT_EQ(pipe(ends.data()), 0);
  EXPECT_TRUE(HoldsInAChild(ends[1], [] {
    WidenStandardOutput();
    for (int i = 0; i < 60000; ++i) {  // more than its buffer holds
      std::cout << "12345\n";
    }
    printf("the end\n");
    return std::cout.good();
  }));
  close(ends[1]);
  std::string expected;
  for (int i = 0; i < 60000; ++i) {
    expected += "12345\n";
  }
  expected += "the end\n";
  std::string written;
  std::array<char, 65536> piece = {};
  for (ssize_t size = 1; size > 0;) {
    size = read(ends[0], piece.data(), piece.size());
    written.append(piece.data(), size > 0 ? static_cast<std::size_t>(size) : 0);
  }
  close(ends[0]);
  EXPECT_TRUE(written == expected) << written.size() << " bytes";
}

TEST(StandardOutput, AFileWillDo) {
  FILE* const file = tmpfile();
  ASSERT_NE(file, nullptr);
  EXPECT_TRUE(HoldsInAChild(fileno(file), [] {
    WidenStandardOutput();
    std::cout << "text\n";
    return true;
  }));
  std::array<char, 10> text = {};
  EXPECT_EQ(pread(fileno(file), text.data(), text.size(), 0), 5);
  EXPECT_STREQ(text.data(), "text\n");
  fclose(file);
}

TEST(StandardOutput, ATerminalStillGetsEachLineAtOnce) {
  const int terminal = posix_openpt(O_RDWR | O_NOCTTY);
  if (terminal == -1 || grantpt(terminal) != 0 || unlockpt(terminal) != 0) {
    GTEST_SKIP() << "the system makes no terminals";
  }
  const int user = open(ptsname(terminal), O_RDWR | O_NOCTTY);
  ASSERT_NE(user, -1);
  const int seen = fcntl(terminal, F_SETFL, O_NONBLOCK);
  ASSERT_NE(seen, -1);
  EXPECT_TRUE(HoldsInAChild(user, [&] {
    // A stream that was in use elsewhere would keep the buffering that it had there.
    if (freopen(ptsname(terminal), "w", stdout) == nullptr) {
      return false;
    }
    WidenStandardOutput();
    printf("line\nrest");
    std::array<char, 20> text = {};
    return read(terminal, text.data(), text.size()) == 6 && std::string(text.data()) == "line\r\n";
  }));
  close(user);
  close(terminal);
}

}  // namespace
