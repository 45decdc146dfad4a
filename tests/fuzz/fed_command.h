#ifndef QUILLMERE_TESTS_FUZZ_FED_COMMAND_H_
#define QUILLMERE_TESTS_FUZZ_FED_COMMAND_H_

#include <cstddef>
#include <cstdio>
#include <span>
#include <string>
#include <string_view>

/// Stands in for the one command that a tested function runs: popen, fgets, pclose and fclose are
/// replaced at link time, and no process is started. One object at a time; without one, starting a
/// command ends the process.
///
/// Each read leaves text that looks like more of a row behind the line in line_buf, and under
/// AddressSanitizer makes it unreadable: nothing there belongs to the line.
class FedCommand {
 public:
  /// The command prints `output`, which outlives the object. A read fills at most `read_size` bytes
  /// of line_buf, its terminating zero included.
  FedCommand(std::string_view output, std::size_t read_size);
  ~FedCommand();
  FedCommand(const FedCommand&) = delete;
  FedCommand& operator=(const FedCommand&) = delete;

  /// What happened so far, a line each: "popen " with the command, "read into zeros" when the first
  /// read finds line_buf cleared, "pclose", "fclose".
  [[nodiscard]] const std::string& steps() const { return steps_; }

  // What the replaced functions do.
  std::FILE* Popen(const char* command, const char* mode);
  char* Fgets(const char* buffer, int size);
  int Close(std::string_view step);
  [[nodiscard]] bool IsOpen(const std::FILE* stream) const;

 private:
  void HideRest();
  void ShowRest();

  std::string_view left_;  // what was not read yet
  std::size_t read_size_;
  std::span<char> hidden_;  // of line_buf
  std::string steps_;
  bool is_open_ = false;
  bool was_read_ = false;
};

#endif  // QUILLMERE_TESTS_FUZZ_FED_COMMAND_H_
