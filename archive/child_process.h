#ifndef QUILLMERE_ARCHIVE_CHILD_PROCESS_H_
#define QUILLMERE_ARCHIVE_CHILD_PROCESS_H_

#include <signal.h>
#include <sys/types.h>

#include <functional>
#include <string>
#include <vector>

#include "archive/directory.h"

/// Takes SIGHUP, SIGINT and SIGTERM, which don't end the process any more, as long as it lives.
class Signals {
 public:
  Signals();
  ~Signals();
  Signals(const Signals&) = delete;
  Signals& operator=(const Signals&) = delete;

  /// Readable when there is a signal.
  [[nodiscard]] int descriptor() const { return descriptor_.get(); }

  /// The first signal that came; 0 as long as there was none.
  int Received();

 private:
  sigset_t former_mask_{};
  Descriptor descriptor_;
  int received_ = 0;
};

/// Work in a process of its own, which leads a process group and dies with this one. The tool's
/// units need that: a process has one buffer for lines. So does a failure: running out of memory
/// ends the work alone.
class ChildProcess {
 public:
  /// Starts `work`. What that writes to the descriptor `results` is read here; the process ends
  /// when it returns. Throws an ArchiveError when there can be no process.
  explicit ChildProcess(const std::function<void(int results)>& work);
  /// Ends it if it still runs.
  ~ChildProcess();
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;

  /// Readable when there are results, or no more are to come.
  [[nodiscard]] int descriptor() const { return results_.get(); }

  /// Takes what can be read. Returns false when no more is to come.
  bool Read();

  /// All that was read.
  [[nodiscard]] const std::string& results() const { return text_; }

  /// Waits for the process and returns its status, as waitpid has it.
  int Wait();

  /// Ends the process with its group, which has a second to go by itself. Returns as Wait.
  int End();

 private:
  bool IsGone();

  pid_t pid_ = -1;
  bool is_running_ = true;
  int status_ = 0;  // as waitpid has it
  Descriptor results_;
  std::string text_;
};

/// Waits until one of `children` or `signals` has something to read, or a second has passed.
void WaitForAny(const std::vector<const ChildProcess*>& children, const Signals& signals);

#endif  // QUILLMERE_ARCHIVE_CHILD_PROCESS_H_
