#include "system/standard_streams.h"

#include <fcntl.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <functional>
#include <iostream>
#include <string>
#include <utility>

#include <gtest/gtest.h>

namespace {

/// Starts a child process whose standard output is `descriptor`, and standard error as well where
/// `also_errors` says so. It ends with 0 when `action` is true.
pid_t StartChild(int descriptor, const std::function<bool()>& action, bool also_errors = false) {
  std::cout.flush();
  fflush(stdout);
  const pid_t child = fork();
  if (child == 0) {
    dup2(descriptor, STDOUT_FILENO);
    dup2(also_errors ? descriptor : STDERR_FILENO, STDERR_FILENO);
    exit(action() ? 0 : 1);
  }
  return child;
}

bool EndedWell(pid_t child) {
  int status = -1;
  waitpid(child, &status, 0);
  return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

/// Two connected descriptors: what is written to the second can be read from the first.
using Ends = std::array<int, 2>;

Ends Pipe(int flags = 0) {
  Ends ends = {-1, -1};
  EXPECT_EQ(pipe2(ends.data(), flags), 0);
  return ends;
}

Ends SocketPair(int flags) {
  Ends ends = {-1, -1};
  EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | flags, 0, ends.data()), 0);
  fcntl(ends[0], F_SETFL, 0);
  return ends;
}

/// All that comes from `descriptor` until its end, read in small pieces. Closes it.
std::string ReadToTheEnd(int descriptor) {
  std::string text;
  std::array<char, 5000> piece = {};
  for (ssize_t size = 1; size > 0;) {
    size = read(descriptor, piece.data(), piece.size());
    text.append(piece.data(), size > 0 ? static_cast<std::size_t>(size) : 0);
  }
  close(descriptor);
  return text;
}

/// More than any buffer on the way holds.
std::string LongText() {
  std::string text;
  for (int i = 0; i < 300000; ++i) {
    text += std::to_string(i) + '\n';
  }
  return text;
}

/// Writes all of LongText() in pieces of all sizes, a character at a time where that is not many.
bool WriteLongText() {
  const StandardStreams streams;
  const std::string text = LongText();
  std::size_t size = 1;
  for (std::size_t at = 0; at < text.size(); at += size, size = 1 + size * 3 % 1000003) {
    std::cout << text.substr(at, size == 1 ? 0 : size);
    if (size == 1) {
      std::cout.put(text[at]);
    }
  }
  return std::cout.flush().good();
}

TEST(StandardStreams, APipeTakesAMebibyteAtATime) {
  const Ends ends = Pipe();
  EXPECT_TRUE(EndedWell(StartChild(ends[1], [] {
    const StandardStreams streams;
    return fcntl(STDOUT_FILENO, F_GETPIPE_SZ) == 1048576;
  })));
  close(ends[0]);
  close(ends[1]);
}

TEST(StandardStreams, OutputIsHeldBackUntilItIsMuchOrFlushed) {
  const Ends ends = Pipe();
  EXPECT_TRUE(EndedWell(StartChild(ends[1], [] {
    const auto written = [] {
      int bytes = -1;
      ioctl(STDOUT_FILENO, FIONREAD, &bytes);
      return bytes;
    };
    const StandardStreams streams;
    std::cout << std::string(262144, 'x');
    const bool is_held_back = written() == 0;
    std::cout.put('y');
    const bool is_much = written() == 262144;
    std::cout.flush();
    return is_held_back && is_much && written() == 262145;
  })));
  close(ends[1]);
  EXPECT_TRUE(ReadToTheEnd(ends[0]) == std::string(262144, 'x') + 'y');
}

TEST(StandardStreams, EveryByteArrivesInOrder) {
  const Ends ends = Pipe();
  const pid_t child = StartChild(ends[1], WriteLongText);
  close(ends[1]);
  EXPECT_TRUE(ReadToTheEnd(ends[0]) == LongText());
  EXPECT_TRUE(EndedWell(child));
}

TEST(StandardStreams, WhatDoesNotBlockIsWaitedFor) {
  for (const Ends& ends : {Pipe(O_NONBLOCK), SocketPair(SOCK_NONBLOCK)}) {
    fcntl(ends[0], F_SETFL, 0);
    const pid_t child = StartChild(ends[1], WriteLongText);
    close(ends[1]);
    usleep(50000);
    EXPECT_TRUE(ReadToTheEnd(ends[0]) == LongText());
    EXPECT_TRUE(EndedWell(child));
  }
}

TEST(StandardStreams, ErrorsAreWaitedForToo) {
  const Ends ends = Pipe(O_NONBLOCK);
  fcntl(ends[0], F_SETFL, 0);
  const auto complain = [] {
    const StandardStreams streams;
    for (int i = 0; i < 300000; ++i) {
      std::cerr << i << '\n';
    }
    return std::cerr.good();
  };
  const pid_t child = StartChild(ends[1], complain, true);
  close(ends[1]);
  usleep(50000);
  EXPECT_TRUE(ReadToTheEnd(ends[0]) == LongText());
  EXPECT_TRUE(EndedWell(child));
}

TEST(StandardStreams, AnInterruptedWriteGoesOn) {
  const Ends ends = Pipe();
  const pid_t child = StartChild(ends[1], [] {
    struct sigaction action = {};  // interrupts writes, as it does not ask for their restart
    action.sa_handler = [](int) {};
    sigaction(SIGALRM, &action, nullptr);
    const itimerval often = {.it_interval = {0, 1000}, .it_value = {0, 1000}};
    setitimer(ITIMER_REAL, &often, nullptr);
    return WriteLongText();
  });
  close(ends[1]);
  usleep(50000);
  EXPECT_TRUE(ReadToTheEnd(ends[0]) == LongText());
  EXPECT_TRUE(EndedWell(child));
}

TEST(StandardStreams, WhatCannotBeWrittenFailsTheStream) {
  for (const auto& [before, size] : {std::pair(0U, 1U), {0U, 1000000U}, {1U, 1000000U}}) {
    const int full = open("/dev/full", O_WRONLY);
    EXPECT_TRUE(EndedWell(StartChild(full, [before = before, size = size] {
      const StandardStreams streams;
      std::cout << std::string(before, 'x') << std::string(size, 'x') << std::flush;
      return std::cout.bad();
    })));
    close(full);
  }
}

TEST(StandardStreams, ABufferThatOverflowsWithoutACharacterIsWritten) {
  struct Buffer : DescriptorBuffer {
    using DescriptorBuffer::DescriptorBuffer;
    using DescriptorBuffer::overflow;
  };
  const Ends ends = Pipe();
  std::array<char, 10> memory = {};
  Buffer buffer(ends[1], memory);
  buffer.sputn("text", 4);
  EXPECT_NE(buffer.overflow(std::char_traits<char>::eof()), std::char_traits<char>::eof());
  close(ends[1]);
  EXPECT_EQ(ReadToTheEnd(ends[0]), "text");
}

TEST(StandardStreams, WhatCouldNotBeWrittenIsNotWrittenLater) {
  const Ends ends = Pipe();
  EXPECT_TRUE(EndedWell(StartChild(ends[1], [] {
    const StandardStreams streams;
    const int pipe_end = dup(STDOUT_FILENO);
    dup2(open("/dev/full", O_WRONLY), STDOUT_FILENO);
    std::cout << std::string(262144, 'x');
    std::cout.put('x');  // finds no room
    const bool has_failed = std::cout.bad();
    std::cout.clear();
    dup2(pipe_end, STDOUT_FILENO);
    std::cout << "later";
    return has_failed;
  })));
  close(ends[1]);
  EXPECT_EQ(ReadToTheEnd(ends[0]), "later");
}

TEST(StandardStreams, ErrorsComeBehindWhatWasWrittenBefore) {
  const Ends ends = Pipe();
  const auto talk = [] {
    const StandardStreams streams;
    std::cout << "first\n";
    std::cerr << "second\n";
    std::cout << "third\n";
    return true;
  };
  EXPECT_TRUE(EndedWell(StartChild(ends[1], talk, true)));
  close(ends[1]);
  EXPECT_EQ(ReadToTheEnd(ends[0]), "first\nsecond\nthird\n");
}

TEST(StandardStreams, TheStreamsAreAsBeforeAfterwards) {
  std::streambuf* const output = std::cout.rdbuf();
  std::streambuf* const error = std::cerr.rdbuf();
  {
    const StandardStreams streams;
    EXPECT_NE(std::cout.rdbuf(), output);
    EXPECT_NE(std::cerr.rdbuf(), error);
  }
  EXPECT_EQ(std::cout.rdbuf(), output);
  EXPECT_EQ(std::cerr.rdbuf(), error);
}

}  // namespace
