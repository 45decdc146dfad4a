#ifndef QUILLMERE_MAIN_COMMAND_LINE_H_
#define QUILLMERE_MAIN_COMMAND_LINE_H_

#include <cstdint>
#include <optional>
#include <string>

/// The option values of one run. The level of traces is not among them: it is the global `verbose`.
struct Options {
  std::string action;  ///< empty, or the name of an action
  std::string policy;
  std::string client;
  std::int64_t time = 0;     ///< seconds; 0 means that none was given
  std::int32_t count = 100;  ///< sets; below 1 means no limit
  std::string output_dir;
  std::string backup_id;
  std::string schedule;
};

/// Walks the arguments from left to right into *options and `verbose`. Returns nothing when it
/// reached the end; otherwise the exit status with which the run ends at once: 0 after the usage
/// text on standard output, or 1 after one line on standard error.
std::optional<int> ParseCommandLine(int argc, const char* const* argv, Options* options);

#endif  // QUILLMERE_MAIN_COMMAND_LINE_H_
