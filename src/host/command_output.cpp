#include "host/command_output.h"

#include <stdio.h>

#include <iostream>
#include <utility>

#include "layout/layout.h"

CommandOutput::CommandOutput(const std::string& command, Echo echo)
    : echo_(echo == Echo::kWhenVerbose && verbose >= 1) {
  if (verbose >= 1) {
    std::cout << "[cmd] " << command << '\n' << std::flush;
  }
  stream_ = popen(command.c_str(), "r");
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
    pclose(std::exchange(stream_, nullptr));
  }
}

void CommandOutput::Fclose() {
  if (stream_ != nullptr) {
    fclose(std::exchange(stream_, nullptr));
  }
}
