#ifndef QUILLMERE_ARCHIVE_COMMANDS_LIST_H_
#define QUILLMERE_ARCHIVE_COMMANDS_LIST_H_

#include <cstdint>
#include <optional>
#include <string>

#include "archive/units.h"

struct ListOptions {
  enum class Rows : std::uint8_t { kSeries, kSets, kImages };

  std::string archive;  ///< path
  Rows rows = Rows::kSeries;
  bool is_json = false;
  std::optional<Age> stale;  ///< age of the newest set; of series only
};

/// Prints what is in the archive, as a table or as a JSON array. Returns a Status: kFound when
/// series are stale.
int List(const ListOptions& options);

#endif  // QUILLMERE_ARCHIVE_COMMANDS_LIST_H_
