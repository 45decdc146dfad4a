// Part of each program that counts its coverage. A process that is aborted would take its counts
// with it: they are written at exit.

#include <csignal>

extern "C" {
#include <gcov.h>
}

namespace {

void DumpAndAbort(int signal) {
  __gcov_dump();
  std::signal(signal, SIG_DFL);
  std::raise(signal);
}

[[maybe_unused]] const bool is_installed = std::signal(SIGABRT, DumpAndAbort) != SIG_ERR;

}  // namespace
