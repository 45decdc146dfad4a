#ifndef QUILLMERE_ARCHIVE_COMMANDS_PRUNE_H_
#define QUILLMERE_ARCHIVE_COMMANDS_PRUNE_H_

#include <cstddef>
#include <string>

#include "archive/units.h"

struct PruneOptions {
  std::string archive;        ///< path
  Age older_than;             ///< age of the youngest that stays
  std::size_t keep_last = 1;  ///< sets of each series that stay whatever their age
  bool is_dry_run = false;
  bool is_confirmed = false;  ///< nothing is asked
  bool is_forced = false;     ///< more than half of the images may go
};

/// Removes the sets and images that are old and that nothing newer needs: prints which, asks on a
/// terminal, and removes them. Returns a Status.
int Prune(const PruneOptions& options);

#endif  // QUILLMERE_ARCHIVE_COMMANDS_PRUNE_H_
