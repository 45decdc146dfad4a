#ifndef QUILLMERE_ARCHIVE_WORKER_H_
#define QUILLMERE_ARCHIVE_WORKER_H_

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "archive/manifest.h"
#include "archive/store.h"
#include "archive/units.h"

/// `text` as one word of the shell, whatever bytes it has.
std::string ShellWord(std::string_view text);

/// What a wait status says of `command` when it is not that of success: "COMMAND ended with status
/// N" or "COMMAND was ended by signal N". Empty for success, and for -1, a command not waited for.
std::string FailureOf(const std::string& command, int wait_status);

/// Runs `call`, in a ChildProcess, which runs commands with the tool's units, and returns what
/// these write to std::cerr, without its last newline. When a command prints nothing for `timeout`,
/// `on_silence` is called and the process ends.
std::string RunUnits(const Age& timeout, const std::function<void()>& on_silence,
                     const std::function<void()>& call);

/// "COMMAND printed nothing for AGE"
std::string SilenceOf(const std::string& command, const Age& timeout);

/// Which image is exported, and how.
struct ExportRequest {
  Manifest manifest;          ///< without what only the export can tell
  int compression_level = 0;  ///< of zstd; 0: none
  Age timeout;                ///< for a command that prints nothing
};

/// What became of an image.
struct ExportResult {
  std::string failure;  ///< the reason; empty when the image is staged
  std::uint64_t stored_bytes = 0;
  std::uint64_t entries = 0;
  std::vector<CommandRun> commands;  ///< those that were run
};

/// The work of a ChildProcess: stages an image, its manifest last, all of it durably, and tells
/// `results`. So the waiting for the disk is the workers', who do it side by side.
void ExportImage(const ExportRequest& request, const Staging& staging, int results);

/// What that process told before it ended by itself; nothing if it did not come so far.
std::optional<ExportResult> ReadExportResult(std::string_view results);

/// Why it told nothing, from what it did tell and its wait status.
std::string FailureOfWorker(const ExportRequest& request, std::string_view results,
                            int wait_status);

#endif  // QUILLMERE_ARCHIVE_WORKER_H_
