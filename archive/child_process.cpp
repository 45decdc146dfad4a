#include "archive/child_process.h"

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/signalfd.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <cstdlib>
#include <iostream>
#include <thread>

namespace {

constexpr int kTick = 1000;  // milliseconds
constexpr std::chrono::milliseconds kPause(10);
constexpr int kPausesToEnd = 100;

sigset_t TakenSignals() {
  sigset_t signals;
  sigemptyset(&signals);
  for (const int signal : {SIGHUP, SIGINT, SIGTERM}) {
    sigaddset(&signals, signal);
  }
  return signals;
}

/// What a process sets right before it begins to work. Ends at once if `parent` is gone already.
void BecomeWorker(pid_t parent) {
  setpgid(0, 0);
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  if (getppid() != parent) {
    std::exit(1);
  }
  const sigset_t signals = TakenSignals();
  sigprocmask(SIG_UNBLOCK, &signals, nullptr);
  // In a process group behind, a command that reads from the terminal would stop.
  const Descriptor nothing(open("/dev/null", O_RDONLY | O_CLOEXEC));
  dup2(nothing.get(), STDIN_FILENO);
}

}  // namespace

Signals::Signals() {
  const sigset_t signals = TakenSignals();
  sigprocmask(SIG_BLOCK, &signals, &former_mask_);
  descriptor_ = Descriptor(signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK));
}

Signals::~Signals() {
  sigprocmask(SIG_SETMASK, &former_mask_, nullptr);
}

int Signals::Received() {
  signalfd_siginfo info{};
  if (received_ == 0 && read(descriptor(), &info, sizeof(info)) == sizeof(info)) {
    received_ = static_cast<int>(info.ssi_signo);
  }
  return received_;
}

ChildProcess::ChildProcess(const std::function<void(int results)>& work) {
  std::array<int, 2> ends{-1, -1};
  if (pipe2(ends.data(), O_CLOEXEC) != 0) {
    throw SystemError("start", "a worker");
  }
  results_ = Descriptor(ends[0]);
  Descriptor worker_end(ends[1]);
  std::cout.flush();
  const pid_t parent = getpid();
  pid_ = fork();
  if (pid_ < 0) {
    throw SystemError("start", "a worker");
  }
  if (pid_ == 0) {
    results_.Close();
    BecomeWorker(parent);
    work(worker_end.get());
    std::exit(0);
  }
  setpgid(pid_, pid_);  // Both do it: whoever comes first.
  fcntl(results_.get(), F_SETFL, O_NONBLOCK);
}

ChildProcess::~ChildProcess() {
  if (is_running_) {
    End();
  }
}

bool ChildProcess::Read() {
  static std::array<char, std::size_t{64} * 1024> buffer;
  ssize_t size = 0;
  while ((size = read(results_.get(), buffer.data(), buffer.size())) > 0) {
    text_.append(buffer.data(), static_cast<std::size_t>(size));
  }
  return size != 0;
}

int ChildProcess::Wait() {
  if (is_running_) {
    waitpid(pid_, &status_, 0);
    is_running_ = false;
  }
  return status_;
}

bool ChildProcess::IsGone() {
  if (is_running_ && waitpid(pid_, &status_, WNOHANG) == pid_) {
    is_running_ = false;
  }
  return !is_running_ && kill(-pid_, 0) != 0;
}

int ChildProcess::End() {
  kill(-pid_, SIGTERM);
  for (int i = 0; i < kPausesToEnd && !IsGone(); ++i) {
    std::this_thread::sleep_for(kPause);
  }
  if (!IsGone()) {
    kill(-pid_, SIGKILL);
  }
  return Wait();
}

void WaitForAny(const std::vector<const ChildProcess*>& children, const Signals& signals) {
  std::vector<pollfd> descriptors{{.fd = signals.descriptor(), .events = POLLIN, .revents = 0}};
  for (const ChildProcess* const child : children) {
    descriptors.push_back({.fd = child->descriptor(), .events = POLLIN, .revents = 0});
  }
  poll(descriptors.data(), descriptors.size(), kTick);
}
