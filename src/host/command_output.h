#ifndef QUILLMERE_HOST_COMMAND_OUTPUT_H_
#define QUILLMERE_HOST_COMMAND_OUTPUT_H_

#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>

/// The standard output of one command of the host product, read a line at a time into line_buf.
///
/// This is the only place that starts a process. The command's standard error is the tool's own.
/// One object at a time: all of them share line_buf.
class CommandOutput {
 public:
  enum class Echo : std::uint8_t { kNever, kWhenVerbose };

  /// Starts `command` through the system's shell. When `verbose` is at least 1, first writes
  /// "[cmd] ", the command and a newline to standard output and flushes it, so that the trace is
  /// there before anything that the command writes. With Echo::kWhenVerbose each line is copied to
  /// standard output as it is read, at the same level.
  explicit CommandOutput(const std::string& command, Echo echo = Echo::kWhenVerbose);

  /// Waits for the command as Pclose does, if it was started and is still open.
  ~CommandOutput();

  CommandOutput(const CommandOutput&) = delete;
  CommandOutput& operator=(const CommandOutput&) = delete;

  /// False when no pipe or process could be made.
  [[nodiscard]] bool started() const { return stream_ != nullptr; }

  /// Reads the next line into line_buf. A line ends with its newline, at the end of the output, or
  /// after kLineBufSize - 1 bytes, whatever comes first. Returns false when there is no more. When
  /// the line is not there yet, what std::cout holds back is written before it is waited for.
  bool ReadLine();

  /// The line last read, in line_buf: up to its first zero byte, newline included.
  [[nodiscard]] std::string_view line() const { return line_; }

  /// Ends the stream and waits for the command. Does nothing when the stream is not open.
  void Pclose();

  /// Ends the stream as an ordinary one: what a caller does that gives up in the middle of it.
  void Fclose();

  /// How the last command ended, as waitpid says it: 0 when all is well; -1 when it is not known,
  /// because the stream was ended as an ordinary one. The tool judges a command by its output
  /// alone.
  static int last_status() { return last_status_; }

  /// From now on, `action` is called with the descriptor of the pipe each time before more of a
  /// command's output is waited for.
  static void OnWait(void (*action)(int descriptor)) { on_wait_ = action; }

 private:
  [[nodiscard]] bool HoldsWholeLine();

  static int last_status_;
  static void (*on_wait_)(int descriptor);

  std::FILE* stream_ = nullptr;
  const char* lines_end_ = nullptr;  // behind the last newline that is known to be in the buffer
  bool echo_;
  std::string_view line_;
};

#endif  // QUILLMERE_HOST_COMMAND_OUTPUT_H_
