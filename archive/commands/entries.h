#ifndef QUILLMERE_ARCHIVE_COMMANDS_ENTRIES_H_
#define QUILLMERE_ARCHIVE_COMMANDS_ENTRIES_H_

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "archive/image_choice.h"

struct EntriesOptions {
  enum class Format : std::uint8_t { kTsv, kNdjson };

  std::vector<std::string> sources;  ///< paths of archives, images and documents; "-"
  Format format = Format::kTsv;
  std::vector<std::size_t> columns;  ///< positions; none: all
  bool has_header = false;           ///< of TSV
  ImageChoice choice;                ///< of images in archives
};

/// The positions of columns that are named with commas between. Nothing when one has no such name.
std::optional<std::vector<std::size_t>> ParseColumns(std::string_view text);

/// Prints each file entry of the sources as a line. Returns a Status: kFound when a document is not
/// whole, kArchiveFailed when something can't be read.
int Entries(const EntriesOptions& options);

#endif  // QUILLMERE_ARCHIVE_COMMANDS_ENTRIES_H_
