#include "fake_host.h"

#include <errno.h>
#include <fcntl.h>
#include <stdio_ext.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <iostream>
#include <utility>

#include <gtest/gtest.h>

#include "layout/layout.h"

// The linker gives the product's calls of these functions to __wrap_NAME, and makes the C library's
// own available as __real_NAME.
// NOLINTBEGIN(bugprone-reserved-identifier)
extern "C" {
std::FILE* __real_popen(const char* command, const char* mode);
int __real_pclose(std::FILE* stream);
std::FILE* __real_fopen(const char* path, const char* mode);
int __real_fclose(std::FILE* stream);
int __real_unlink(const char* path);
}

namespace {

FakeHost* running_host = nullptr;

}  // namespace

extern "C" {
std::FILE* __wrap_popen(const char* command, const char* mode) {
  return running_host == nullptr ? __real_popen(command, mode) : running_host->Popen(command, mode);
}

int __wrap_pclose(std::FILE* stream) {
  return running_host == nullptr ? __real_pclose(stream) : running_host->Pclose(stream);
}

std::FILE* __wrap_fopen(const char* path, const char* mode) {
  return running_host == nullptr ? __real_fopen(path, mode) : running_host->Fopen(path, mode);
}

int __wrap_fclose(std::FILE* stream) {
  return running_host == nullptr ? __real_fclose(stream) : running_host->Fclose(stream);
}

int __wrap_unlink(const char* path) {
  return running_host == nullptr ? __real_unlink(path) : running_host->Unlink(path);
}
}
// NOLINTEND(bugprone-reserved-identifier)

namespace {

/// A new file without a name that holds `content`.
int MemoryFile(const std::string& content) {
  const int descriptor = memfd_create("quillmere_unit", MFD_CLOEXEC);
  std::size_t written = 0;
  while (descriptor != -1 && written < content.size()) {
    const ssize_t count = write(descriptor, content.data() + written, content.size() - written);
    if (count <= 0) {
      ADD_FAILURE() << "no room for scripted output: " << std::strerror(errno);
      break;
    }
    written += static_cast<std::size_t>(count);
  }
  lseek(descriptor, 0, SEEK_SET);
  return descriptor;
}

/// The content of a file behind its first `skipped` bytes. Nothing is read of a device.
std::string ContentOf(int descriptor, std::size_t skipped = 0) {
  struct stat status = {};
  fstat(descriptor, &status);
  const std::size_t size = S_ISREG(status.st_mode) ? static_cast<std::size_t>(status.st_size) : 0;
  std::string content(size - std::min(size, skipped), '\0');
  std::size_t done = 0;
  while (done < content.size()) {
    const ssize_t count = pread(descriptor, content.data() + done, content.size() - done,
                                static_cast<off_t>(skipped + done));
    if (count <= 0) {
      ADD_FAILURE() << "captured output is unreadable: " << std::strerror(errno);
      break;
    }
    done += static_cast<std::size_t>(count);
  }
  return content;
}

/// Sends descriptor `number` to `target` for as long as it lives.
class Redirection {
 public:
  Redirection(int number, int target) : number_(number), saved_(fcntl(number, F_DUPFD_CLOEXEC, 3)) {
    dup2(target, number);
  }
  ~Redirection() {
    dup2(saved_, number_);
    close(saved_);
  }
  Redirection(const Redirection&) = delete;
  Redirection& operator=(const Redirection&) = delete;

 private:
  int number_;
  int saved_;
};

void FlushBothStreams() {
  std::cout.flush();
  std::cerr.flush();
  std::fflush(stdout);
  std::fflush(stderr);
}

/// The file name of the program that `command` runs.
std::string ProgramName(const std::string& command) {
  const std::string program = command.substr(0, command.find(' '));
  return program.substr(program.rfind('/') + 1);
}

}  // namespace

std::ostream& operator<<(std::ostream& out, const Thrown& thrown) {
  return out << thrown.type.name() << ": " << thrown.what;
}

FakeHost::FakeHost() {
  verbose = 0;
  std::memset(line_buf, 0, kLineBufSize);
}

FakeHost::~FakeHost() {
  verbose = 0;
}

FakeHost& FakeHost::Prints(std::string output, int exit_status) {
  scripts_.push_back({Script::Kind::kPrints, std::move(output), exit_status, {}});
  return *this;
}

FakeHost& FakeHost::Refuses() {
  scripts_.push_back({Script::Kind::kRefuses, "", 0, {}});
  return *this;
}

FakeHost& FakeHost::LeavesToTheShell() {
  scripts_.push_back({Script::Kind::kLeavesToTheShell, "", 0, {}});
  return *this;
}

FakeHost& FakeHost::OnStart(std::function<void()> action) {
  scripts_.back().on_start = std::move(action);
  return *this;
}

Outcome FakeHost::Capture(const std::function<int()>& call) {
  Outcome outcome;
  out_descriptor_ = out_path_ ? open(out_path_->c_str(), O_WRONLY | O_CLOEXEC) : MemoryFile("");
  err_descriptor_ = MemoryFile("");
  err_seen_ = 0;
  FlushBothStreams();
  {
    const Redirection out(STDOUT_FILENO, out_descriptor_);
    const Redirection err(STDERR_FILENO, err_descriptor_);
    outcome_ = &outcome;
    running_host = this;
    outcome.thrown = WhatIsThrownBy([&] { outcome.status = call(); });
    running_host = nullptr;
    FlushBothStreams();
    __fpurge(stdout);  // what could not be written
  }
  std::cout.clear();
  std::clearerr(stdout);
  AddNewErrors();
  for (const auto& [stream, open_stream] : open_streams_) {
    outcome.steps.push_back("left open " + open_stream.name);
  }
  open_streams_.clear();
  outcome_ = nullptr;
  outcome.out = out_path_ ? "" : ContentOf(out_descriptor_);
  outcome.err = ContentOf(err_descriptor_);
  close(out_descriptor_);
  close(err_descriptor_);
  out_path_.reset();
  EXPECT_TRUE(scripts_.empty()) << scripts_.size() << " scripted commands were not started";
  scripts_.clear();
  return outcome;
}

std::FILE* FakeHost::Popen(const char* command, const char* mode) {
  outcome_->commands.emplace_back(command);
  outcome_->out_at_start.push_back(ContentOf(out_descriptor_));
  AddStep((std::strcmp(mode, "r") == 0 ? std::string("popen ")
                                       : "popen with mode " + std::string(mode) + " ") +
          command);
  if (scripts_.empty()) {
    ADD_FAILURE() << "not scripted: " << command;
    return nullptr;
  }
  const Script script = std::move(scripts_.front());
  scripts_.pop_front();
  if (script.on_start) {
    script.on_start();
  }
  std::FILE* stream = nullptr;
  switch (script.kind) {
    case Script::Kind::kPrints:
      stream = fdopen(MemoryFile(script.output), "r");
      break;
    case Script::Kind::kRefuses:
      errno = EAGAIN;
      return nullptr;
    case Script::Kind::kLeavesToTheShell:
      stream = __real_popen(command, mode);
      break;
  }
  open_streams_[stream] = {ProgramName(command), script.exit_status,
                           script.kind == Script::Kind::kLeavesToTheShell};
  return stream;
}

int FakeHost::Pclose(std::FILE* stream) {
  const auto found = open_streams_.find(stream);
  if (found == open_streams_.end()) {
    AddStep("pclose of a stream that is not open");
    return -1;
  }
  const OpenStream open_stream = found->second;
  open_streams_.erase(found);
  AddStep("pclose " + open_stream.name);
  if (open_stream.is_real_command) {
    return __real_pclose(stream);
  }
  __real_fclose(stream);
  return open_stream.exit_status << 8;  // as the system reports an exit
}

std::FILE* FakeHost::Fopen(const char* path, const char* mode) {
  AddStep(std::string("fopen ") + path + " " + mode);
  std::FILE* const stream = __real_fopen(path, mode);
  if (stream != nullptr) {
    open_streams_[stream] = {path};
  }
  return stream;
}

int FakeHost::Fclose(std::FILE* stream) {
  const auto found = open_streams_.find(stream);
  if (found == open_streams_.end()) {
    AddStep("fclose of a stream that is not open");
    return EOF;
  }
  AddStep("fclose " + found->second.name);
  open_streams_.erase(found);
  return __real_fclose(stream) == 0 && !close_fails_ ? 0 : EOF;
}

int FakeHost::Unlink(const char* path) {
  AddStep(std::string("unlink ") + path);
  if (unlink_refused_) {
    errno = EPERM;
    return -1;
  }
  return __real_unlink(path);
}

void FakeHost::AddStep(std::string step) {
  AddNewErrors();
  outcome_->steps.push_back(std::move(step));
}

void FakeHost::AddNewErrors() {
  const std::string errors = ContentOf(err_descriptor_, err_seen_);
  if (!errors.empty()) {
    err_seen_ += errors.size();
    outcome_->steps.push_back("stderr " + errors);
  }
}
