#include "host/command_output.h"

#include <fcntl.h>
#include <stdio.h>
#include <string.h>

#include <array>
#include <cstddef>
#include <iostream>
#include <utility>

#include "layout/layout.h"

namespace {

// Against 64 KiB in the pipe and 4 KiB a read: measured; run the benchmark.
constexpr int kPipeSize = 1 << 20;                        // bytes
std::array<char, std::size_t{256} * 1024> stream_buffer;  // one command at a time

}  // namespace

int CommandOutput::last_status_ = -1;
void (*CommandOutput::on_wait_)(int descriptor) = [](int) { std::cout.flush(); };

CommandOutput::CommandOutput(const std::string& command, Echo echo)
    : echo_(echo == Echo::kWhenVerbose && verbose >= 1) {
  if (verbose >= 1) {
    std::cout << "[cmd] " << command << '\n' << std::flush;
  }
  stream_ = popen(command.c_str(), "r");
  if (stream_ != nullptr) {
    setvbuf(stream_, stream_buffer.data(), _IOFBF, stream_buffer.size());
    fcntl(fileno(stream_), F_SETPIPE_SZ, kPipeSize);
  }
}

CommandOutput::~CommandOutput() {
  Pclose();
}

/// True when the next line can be read without waiting. The buffer is searched once for each time
/// that it is filled, not for each line.
bool CommandOutput::HoldsWholeLine() {
  // The two ends of what was read ahead. They are what getc_unlocked compares, so they stay.
  const char* const begin = stream_->_IO_read_ptr;
  const char* const end = stream_->_IO_read_end;
  if (begin < lines_end_) {
    return true;
  }
  const void* const newline =
      begin == end ? nullptr : memrchr(begin, '\n', static_cast<std::size_t>(end - begin));
  // Without a line the buffer is about to be filled anew.
  lines_end_ = newline == nullptr ? nullptr : static_cast<const char*>(newline) + 1;
  return newline != nullptr;
}

bool CommandOutput::ReadLine() {
  if (!HoldsWholeLine()) {
    on_wait_(fileno(stream_));
  }
  if (fgets(line_buf, kLineBufSize, stream_) == nullptr) {
    return false;
  }
  line_ = line_buf;
  if (echo_) {
    std::cout << line_;
  }
  return true;
}

void CommandOutput::Pclose() {
  if (stream_ != nullptr) {
    last_status_ = pclose(std::exchange(stream_, nullptr));
  }
}

void CommandOutput::Fclose() {
  if (stream_ != nullptr) {
    fclose(std::exchange(stream_, nullptr));
    last_status_ = -1;
  }
}
