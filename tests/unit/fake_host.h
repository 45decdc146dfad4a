#ifndef QUILLMERE_TESTS_UNIT_FAKE_HOST_H_
#define QUILLMERE_TESTS_UNIT_FAKE_HOST_H_

#include <cstdio>

#include <deque>
#include <exception>
#include <functional>
#include <map>
#include <optional>
#include <ostream>
#include <string>
#include <type_traits>
#include <typeindex>
#include <typeinfo>
#include <vector>

/// An exception as a caller tells it from others: its dynamic type and its text.
struct Thrown {
  std::type_index type;
  std::string what;

  friend bool operator==(const Thrown&, const Thrown&) = default;
};

std::ostream& operator<<(std::ostream& out, const Thrown& thrown);

/// What `call` throws; nothing when it returns.
template <class Call>
std::optional<Thrown> WhatIsThrownBy(Call call) {
  try {
    call();
  } catch (const std::exception& error) {
    return Thrown{typeid(error), error.what()};
  }
  return std::nullopt;
}

/// Everything that one call did to the world around it.
struct Outcome {
  int status = -1;  ///< what the call returned; -1 when it threw or returns nothing
  std::optional<Thrown> thrown;
  std::string out;  ///< all of standard output
  std::string err;  ///< all of standard error
  /// The command texts in the order of their starts, refused ones included.
  std::vector<std::string> commands;
  /// For each start, what had reached the descriptor of standard output by then.
  std::vector<std::string> out_at_start;
  /// In order: "popen COMMAND", "pclose NAME" and "fclose NAME" (NAME is the command's file name),
  /// "fopen PATH MODE", "fclose PATH", "unlink PATH", and "stderr TEXT" for what standard error got
  /// between two of them. A stream that nobody closed ends the list as "left open NAME".
  std::vector<std::string> steps;
};

/// Stands in for the host product while a call runs: what the product's commands print is scripted
/// beforehand, what the call did is seen afterwards. Each start takes the next script. One object
/// at a time. `verbose` and line_buf are zero when it is made, and `verbose` is when it goes.
class FakeHost {
 public:
  FakeHost();
  ~FakeHost();
  FakeHost(const FakeHost&) = delete;
  FakeHost& operator=(const FakeHost&) = delete;

  /// The next command prints `output`, any bytes, and ends with `exit_status`.
  FakeHost& Prints(std::string output, int exit_status = 0);

  /// The next command can't be started.
  FakeHost& Refuses();

  /// The next command is really run by the shell.
  FakeHost& LeavesToTheShell();

  /// `action` is done just before the command that was scripted last is started.
  FakeHost& OnStart(std::function<void()> action);

  /// Standard output of the next Run is the file `path` instead of being captured.
  void SendStandardOutputTo(const std::string& path) { out_path_ = path; }

  /// From now on closing a file fails, after it was closed.
  void FailClose() { close_fails_ = true; }

  /// From now on no file can be removed.
  void RefuseUnlink() { unlink_refused_ = true; }

  /// Calls `call` with both output streams captured. A script that is left over, and a start
  /// without a script, fail the test.
  template <class Call>
  Outcome Run(Call call) {
    return Capture([&call] {
      if constexpr (std::is_void_v<decltype(call())>) {
        call();
        return -1;
      } else {
        return static_cast<int>(call());
      }
    });
  }

  // What the wrapped functions of the C library do during Run.
  std::FILE* Popen(const char* command, const char* mode);
  int Pclose(std::FILE* stream);
  std::FILE* Fopen(const char* path, const char* mode);
  int Fclose(std::FILE* stream);
  int Unlink(const char* path);

 private:
  struct Script {
    enum class Kind { kPrints, kRefuses, kLeavesToTheShell } kind;
    std::string output;
    int exit_status = 0;
    std::function<void()> on_start;
  };

  struct OpenStream {
    std::string name;
    int exit_status = 0;
    bool is_real_command = false;
  };

  Outcome Capture(const std::function<int()>& call);
  void AddStep(std::string step);
  void AddNewErrors();

  std::deque<Script> scripts_;
  std::map<std::FILE*, OpenStream> open_streams_;
  std::optional<std::string> out_path_;
  bool unlink_refused_ = false;
  bool close_fails_ = false;
  Outcome* outcome_ = nullptr;  // of the call that is running
  int out_descriptor_ = -1;     // where the running call's standard output goes
  int err_descriptor_ = -1;
  std::size_t err_seen_ = 0;  // bytes
};

#endif  // QUILLMERE_TESTS_UNIT_FAKE_HOST_H_
