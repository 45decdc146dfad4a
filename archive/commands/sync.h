#ifndef QUILLMERE_ARCHIVE_COMMANDS_SYNC_H_
#define QUILLMERE_ARCHIVE_COMMANDS_SYNC_H_

#include <chrono>
#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "archive/units.h"

struct SyncOptions {
  std::string archive;  ///< path
  // Of an empty list, all are chosen.
  std::vector<std::string> clients;
  std::vector<std::string> policies;
  std::vector<std::string> schedules;
  std::optional<Age> newer_than;             ///< age of the oldest image that is exported
  std::optional<std::size_t> limit;          ///< images
  std::vector<std::string> skipped;          ///< backup ids
  std::size_t jobs = 2;                      ///< images exported at a time
  Age timeout{"1h", std::chrono::hours(1)};  ///< for a command that prints nothing
  std::optional<FreeSpace> keep_free;
  bool is_again = false;               ///< exports also what was pruned
  std::optional<std::string> metrics;  ///< path of a file for Prometheus' node exporter
  bool is_dry_run = false;
  bool is_quiet = false;
};

/// Exports every image of the catalogue that the archive lacks, newest first, and then writes the
/// backup sets. Says on standard output what it does, and on standard error what failed. Returns a
/// Status.
int Sync(const SyncOptions& options);

#endif  // QUILLMERE_ARCHIVE_COMMANDS_SYNC_H_
