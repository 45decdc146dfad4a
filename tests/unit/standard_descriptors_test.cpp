#include "system/standard_descriptors.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <functional>
#include <vector>

#include <gtest/gtest.h>

namespace {

using Descriptors = std::vector<int>;

/// Whether `check` holds in a child process that closes `closed`, and then calls the function.
bool HoldsWithout(const Descriptors& closed, const std::function<bool()>& check) {
  const pid_t child = fork();
  if (child == 0) {
    for (const int descriptor : closed) {
      close(descriptor);
    }
    OccupyStandardDescriptors();
    _exit(check() ? 0 : 1);
  }
  int status = -1;
  waitpid(child, &status, 0);
  return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

/// Every choice of descriptors that a caller can leave closed.
const std::array<Descriptors, 7> kClosedChoices = {
    {{0}, {1}, {2}, {0, 1}, {0, 2}, {1, 2}, {0, 1, 2}}};

/// Whether neither reading nor writing is possible, as if `descriptor` were closed.
bool FailsAsClosed(int descriptor) {
  char byte = 'x';
  errno = 0;
  const bool read_fails = read(descriptor, &byte, 1) == -1 && errno == EBADF;
  errno = 0;
  return write(descriptor, &byte, 1) == -1 && errno == EBADF && read_fails;
}

TEST(StandardDescriptors, ClosedOnesStayUselessAndNoFileTakesThem) {
  for (const Descriptors& closed : kClosedChoices) {
    EXPECT_TRUE(HoldsWithout(closed, [&] {
      return std::all_of(closed.begin(), closed.end(), FailsAsClosed) &&
             open("/dev/null", O_WRONLY) > 2;
    })) << testing::PrintToString(closed);
  }
}

TEST(StandardDescriptors, CommandsGetThemToo) {
  EXPECT_TRUE(HoldsWithout({0, 1, 2}, [] {
    return fcntl(0, F_GETFD) == 0 && fcntl(1, F_GETFD) == 0 && fcntl(2, F_GETFD) == 0;
  }));
}

TEST(StandardDescriptors, OpenOnesStayWhatTheyAre) {
  EXPECT_TRUE(HoldsWithout({}, [] {
    std::array<int, 2> ends = {};
    if (pipe(ends.data()) != 0 || dup2(ends[0], 0) != 0 || dup2(ends[1], 1) != 1 ||
        dup2(ends[1], 2) != 2) {
      return false;
    }
    OccupyStandardDescriptors();
    std::array<char, 2> bytes = {};
    return write(1, "a", 1) == 1 && write(2, "b", 1) == 1 && read(0, bytes.data(), 1) == 1 &&
           read(0, bytes.data() + 1, 1) == 1 && bytes[0] == 'a' && bytes[1] == 'b';
  }));
}

TEST(StandardDescriptors, NoFurtherDescriptorIsOpened) {
  EXPECT_TRUE(HoldsWithout({1}, [] {
    const int before = dup(0);
    OccupyStandardDescriptors();
    return dup(0) == before + 1;
  }));
}

}  // namespace
