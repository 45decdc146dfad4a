#include "system/standard_streams.h"

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <iostream>

namespace {

// Against 4 KiB a write and 64 KiB in the pipe: measured; run the benchmark.
constexpr int kOutputPipeSize = 1 << 20;                  // bytes
std::array<char, std::size_t{256} * 1024> output_memory;  // of the one StandardStreams

/// Writes all of `text`. Returns false when some of it can't be written.
bool WriteAll(int descriptor, std::span<const char> text) {
  while (!text.empty()) {
    const ssize_t size = write(descriptor, text.data(), text.size());
    if (size >= 0) {
      text = text.subspan(static_cast<std::size_t>(size));
    } else if (errno == EAGAIN) {
      pollfd writable = {.fd = descriptor, .events = POLLOUT, .revents = 0};
      poll(&writable, 1, -1);  // the next write tells what has become of it
    } else if (errno != EINTR) {
      return false;
    }
  }
  return true;
}

}  // namespace

DescriptorBuffer::DescriptorBuffer(int descriptor, std::span<char> memory)
    : descriptor_(descriptor) {
  setp(memory.data(), memory.data() + memory.size());
}

DescriptorBuffer::int_type DescriptorBuffer::overflow(int_type c) {
  if (sync() != 0) {
    return traits_type::eof();
  }
  if (!traits_type::eq_int_type(c, traits_type::eof())) {
    *pptr() = traits_type::to_char_type(c);
    pbump(1);
  }
  return traits_type::not_eof(c);
}

std::streamsize DescriptorBuffer::xsputn(const char* text, std::streamsize size) {
  if (size > epptr() - pptr() && sync() != 0) {
    return 0;
  }
  if (size > epptr() - pptr()) {
    return WriteAll(descriptor_, {text, static_cast<std::size_t>(size)}) ? size : 0;
  }
  traits_type::copy(pptr(), text, static_cast<std::size_t>(size));
  pbump(static_cast<int>(size));
  return size;
}

int DescriptorBuffer::sync() {
  const std::span<const char> text(pbase(), pptr());
  setp(pbase(), epptr());  // also what can't be written goes: nothing is written twice
  return WriteAll(descriptor_, text) ? 0 : -1;
}

StandardStreams::StandardStreams()
    : output_(STDOUT_FILENO, output_memory),
      error_(STDERR_FILENO, error_memory_),
      output_before_(std::cout.rdbuf(&output_)),
      error_before_(std::cerr.rdbuf(&error_)) {
  fcntl(STDOUT_FILENO, F_SETPIPE_SZ, kOutputPipeSize);
}

StandardStreams::~StandardStreams() {
  std::cout.flush();
  std::cout.rdbuf(output_before_);
  std::cerr.rdbuf(error_before_);
}
