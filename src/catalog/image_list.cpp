// The catalogue listing, one block after another:
//
//   listing: ignored-line* block*
//   block:   NL header row*
//   header:  "Backupid " anything NL
//   row:     id SP+ column2(20 wide) SP* files SP+ size SP+ schedule SP+ policy SP+ ... last NL
//
//   client1_1600000000 Sun Sep 13 2020     12 3.5M full Daily ... /x

#include "catalog/image_list.h"

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <memory>
#include <string_view>
#include <system_error>

#include "host/command_output.h"
#include "layout/layout.h"

namespace {

constexpr std::string_view kHeaderStart = "Backupid ";
constexpr std::size_t kSecondColumnWidth = 20;  // bytes, following blanks included
constexpr std::size_t kFirstCapacity = 1024;    // records

/// The rows of all listings, to which the fields of records refer: never moved, never removed.
class RowArena {
 public:
  /// A copy of `row`.
  std::string_view Keep(std::string_view row) {
    if (left_ < row.size()) {
      AddChunk(row.size());
    }
    char* const copy = free_;
    const std::size_t size = row.copy(copy, row.size());
    free_ += size;
    left_ -= size;
    return {copy, size};
  }

 private:
  static constexpr std::size_t kLargestChunkSize = std::size_t{8} * 1024 * 1024;  // bytes

  void AddChunk(std::size_t least_size) {
    next_chunk_ = std::min(2 * next_chunk_, kLargestChunkSize);
    left_ = std::max(next_chunk_, least_size);
    free_ = chunks_.emplace_back(std::make_unique_for_overwrite<char[]>(left_)).get();
  }

  std::vector<std::unique_ptr<char[]>> chunks_;
  std::size_t next_chunk_ = std::size_t{32} * 1024;  // bytes, before it is doubled
  char* free_ = nullptr;
  std::size_t left_ = 0;  // bytes behind free_
};

RowArena& rows = *new RowArena;  // outlives whatever else ends with the process

/// A row that is being cut into fields. A blank is the space character only.
class RowCutter {
 public:
  explicit RowCutter(std::string_view row) : rest_(row) {}

  /// Cuts off the text up to the next blank or the end of the row, and the blanks that follow it.
  std::string_view Cut() {
    const std::string_view field = rest_.substr(0, rest_.find(' '));
    rest_.remove_prefix(field.size());
    CutBlanks();
    return field;
  }

  /// Cuts off `width` characters, or all that are left, and the blanks that follow them.
  void CutColumn(std::size_t width) {
    rest_.remove_prefix(std::min(width, rest_.size()));
    CutBlanks();
  }

 private:
  void CutBlanks() { rest_.remove_prefix(std::min(rest_.find_first_not_of(' '), rest_.size())); }

  std::string_view rest_;
};

/// The last blank-separated field of `row`, which is not empty, without its final character, the
/// newline.
std::string_view LastField(std::string_view row) {
  row.remove_suffix(1);
  return row.substr(row.rfind(' ') + 1);
}

/// What atol makes of `text`. It is asked only about what is no plain number: measured; run the
/// benchmark.
long LikeAtol(std::string_view text) {
  long number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error == std::errc()) {
    return number;
  }
  return std::atol(std::string(text).c_str());
}

/// Cuts `row` into *image, whose texts are then parts of the row. What a short row lacks is empty,
/// and 0 in `files`. Returns false after one line on standard error when its id has no '_'.
bool CutRow(std::string_view row, BackupImage* image) {
  RowCutter cutter(row);
  image->backup_id = cutter.Cut();
  const std::size_t underscore = image->backup_id.find('_');
  if (underscore == std::string_view::npos) {
    std::cerr << "invalid backup id: " << image->backup_id << ". no '_' found.\n";
    return false;
  }
  image->client = image->backup_id.substr(0, underscore);
  image->backup_time = LikeAtol(image->backup_id.substr(underscore + 1));
  cutter.CutColumn(kSecondColumnWidth);
  image->files = static_cast<std::int32_t>(LikeAtol(cutter.Cut()));  // low 32 bits
  image->size = cutter.Cut();
  image->schedule = cutter.Cut();
  image->policy = cutter.Cut();
  image->last_field = LastField(row);
  return true;
}

/// Takes the listing line by line and turns its rows into records.
class ListingParser {
 public:
  explicit ListingParser(std::vector<BackupImage>* images) : images_(images) {}

  /// Returns false after one line on standard error when `line` does not fit in its place.
  bool TakeLine(std::string_view line) {
    if (expect_ == Expect::kHeader) {
      expect_ = Expect::kRow;
      return TakeHeader(line);
    }
    if (line.starts_with('\n')) {
      expect_ = Expect::kHeader;
      return true;
    }
    return expect_ == Expect::kFirstBlock || TakeRow(line);
  }

 private:
  enum class Expect : std::uint8_t { kFirstBlock, kHeader, kRow };

  static bool TakeHeader(std::string_view line) {
    if (!line.starts_with(kHeaderStart)) {
      std::cerr << "parse output of qvroll failed. expecting \"Backupid \"\n";
      return false;
    }
    return true;
  }

  bool TakeRow(std::string_view row) {
    if (images_->size() == images_->capacity()) {
      // In larger steps than the vector would take, as memory is touched only as it fills, and each
      // step moves every record: measured; run the benchmark.
      images_->reserve(std::max(kFirstCapacity, 4 * images_->size()));
    }
    if (!CutRow(rows.Keep(row), &images_->emplace_back())) {
      images_->pop_back();
      return false;
    }
    return true;
  }

  std::vector<BackupImage>* images_;
  Expect expect_ = Expect::kFirstBlock;
};

}  // namespace

int GetBackupImageList(const std::string& policy, const std::string& client,
                       std::vector<BackupImage>* images) {
  std::string command = path_qvroll;
  if (!client.empty()) {
    command += " -client " + client;
  }
  if (!policy.empty()) {
    command += " -policy " + policy;
  }
  CommandOutput output(command);
  if (!output.started()) {
    std::cerr << "run command qvroll failed.\n";
    return 1;
  }
  std::memset(line_buf, 0, kLineBufSize);
  ListingParser parser(images);
  while (output.ReadLine()) {
    if (!parser.TakeLine(output.line())) {
      output.Pclose();
      return 1;
    }
  }
  output.Pclose();
  if (verbose >= 2) {
    std::cout << "backup image count: " << images->size() << '\n';
  }
  return 0;
}
