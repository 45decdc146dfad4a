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
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <string_view>

#include "host/command_output.h"
#include "layout/layout.h"

namespace {

constexpr std::string_view kHeaderStart = "Backupid ";
constexpr std::ptrdiff_t kSecondColumnWidth = 20;  // bytes, following blanks included
constexpr std::size_t kFirstCapacity = 1024;       // records

/// A row in line_buf that is being cut into fields. A blank is the space character only.
class RowCutter {
 public:
  /// [begin, end) is the row's text; *end is its terminating zero.
  RowCutter(char* begin, char* end) : next_(begin), end_(end) {}

  /// Cuts off the text up to the next blank or the end of the row, and moves on behind the blanks
  /// that follow it. A zero follows the result, which is empty when nothing is left.
  std::string_view Cut() {
    char* const field = next_;
    next_ = std::find(next_, end_, ' ');
    const std::string_view text(field, static_cast<std::size_t>(next_ - field));
    CutBlanks();
    return text;
  }

  /// Moves on by `width` characters, at most to the end of the row, and then behind blanks.
  void SkipColumn(std::ptrdiff_t width) {
    next_ += std::min(width, end_ - next_);
    CutBlanks();
  }

 private:
  void CutBlanks() {
    while (next_ != end_ && *next_ == ' ') {
      *next_++ = '\0';
    }
  }

  char* next_;
  char* end_;
};

/// The last blank-separated field of `row` without the row's final character, its newline.
std::string_view LastField(std::string_view row) {
  row.remove_suffix(row.empty() ? 0 : 1);
  return row.substr(row.rfind(' ') + 1);
}

/// Cuts `row`, the text at the start of line_buf, into *image. What a short row lacks is empty, and
/// 0 in `files`. Returns false after one line on standard error when its id has no '_'.
bool ParseRow(std::string_view row, BackupImage* image) {
  image->last_field = LastField(row);  // before the cuts put zeros in the place of blanks
  RowCutter cutter(line_buf, line_buf + row.size());
  image->backup_id = cutter.Cut();
  const std::size_t underscore = image->backup_id.find('_');
  if (underscore == std::string::npos) {
    std::cerr << "invalid backup id: " << image->backup_id << ". no '_' found.\n";
    return false;
  }
  image->client.assign(image->backup_id, 0, underscore);
  image->backup_time = std::atol(image->backup_id.c_str() + underscore + 1);
  cutter.SkipColumn(kSecondColumnWidth);
  image->files = static_cast<std::int32_t>(std::atol(cutter.Cut().data()));  // low 32 bits
  image->size = cutter.Cut();
  image->schedule = cutter.Cut();
  image->policy = cutter.Cut();
  return true;
}

/// Takes the listing line by line and turns its rows into records.
class ListingParser {
 public:
  explicit ListingParser(std::vector<BackupImage>* images) : images_(images) {}

  /// `line` is the text at the start of line_buf. Returns false after one line on standard error
  /// when it does not fit in its place.
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
      // In larger steps than the vector would take: memory is touched only as it fills, and each
      // step moves every record. A third of the time for a listing of 1,000,000 rows.
      images_->reserve(std::max(kFirstCapacity, 4 * images_->size()));
    }
    if (!ParseRow(row, &images_->emplace_back())) {
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
