// file: header part*       numbers of 64 bits, as x86-64 has them
// header: magic, SHA-256 of the document, begin and end of its entries
// part: begin, end, number of words, checksum of the words, words
//
// A part begins where the one before ends, and the last one ends where the entries do: so a file
// that is cut is seen. The header is written last.

#include "archive/path_filter.h"

#include <errno.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <iterator>

#define XXH_INLINE_ALL
#include <xxhash.h>

#include "archive/entry_text.h"

namespace {

constexpr std::array<char, 8> kMagic = {'q', 'u', 'i', 'l', 'l', 'p', 'f', '1'};
constexpr std::size_t kMostKeys = 65536;  // in a part
constexpr std::size_t kBitsPerKey = 16;   // at least
constexpr unsigned kProbes = 6;           // one of 1,000 other keys is found by mistake
constexpr std::size_t kWords = kMostKeys * kBitsPerKey / 64;

struct Header {
  std::array<char, 8> magic = kMagic;
  std::array<char, 64> sha256{};
  std::uint64_t begin = 0;
  std::uint64_t end = 0;
};

struct PartHeader {
  std::uint64_t begin = 0;
  std::uint64_t end = 0;
  std::uint64_t words = 0;
  std::uint64_t checksum = 0;
};

template <class Record>
std::string_view BytesOf(const Record& record) {
  return {reinterpret_cast<const char*>(&record), sizeof(record)};
}

std::string_view BytesOf(const std::vector<std::uint64_t>& words) {
  return {reinterpret_cast<const char*>(words.data()), words.size() * sizeof(std::uint64_t)};
}

std::uint64_t KeyOfPath(std::string_view path) {
  return XXH3_64bits_withSeed(path.data(), path.size(), 1);
}

std::uint64_t KeyOfName(std::string_view name) {
  return XXH3_64bits(name.data(), name.size());
}

/// Calls `probe` with a word's position and a bit in it, until that returns false, for each bit of
/// `key` in `words` words, a power of 2.
template <class Probe>
bool ProbeAll(std::uint64_t key, std::size_t words, const Probe& probe) {
  const std::uint64_t step = (key >> 32) | 1;
  for (unsigned i = 0; i < kProbes; ++i) {
    const std::uint64_t bit = (key + i * step) & (words * 64 - 1);
    if (!probe(bit / 64, std::uint64_t{1} << bit % 64)) {
      return false;
    }
  }
  return true;
}

/// All of these keys belong to each path that matches. Of none, nothing is known.
std::vector<std::uint64_t> KeysOf(const PathPattern& pattern) {
  if (!pattern.whole().empty()) {
    return {KeyOfPath(pattern.whole())};
  }
  std::vector<std::uint64_t> keys;
  std::transform(pattern.names().begin(), pattern.names().end(), std::back_inserter(keys),
                 KeyOfName);
  return keys;
}

/// Calls `take` with each name of `path` that begins at `begin` or behind it.
template <class Take>
void ForEachName(std::string_view path, std::size_t begin, const Take& take) {
  while (begin < path.size()) {
    const std::size_t end = std::min(path.find('/', begin), path.size());
    if (end > begin) {
      take(path.substr(begin, end - begin));
    }
    begin = end + 1;
  }
}

Descriptor OpenFilter(const Directory& image) {
  try {
    return image.OpenFile(kFilterFile);
  } catch (const ArchiveError& /*error*/) {
    return Descriptor();  // Without it, all is there that is needed.
  }
}

}  // namespace

PathFilterWriter::PathFilterWriter(const Directory& directory)
    : file_path_(directory.PathOf(kFilterFile)), file_(directory.MakeFile(kFilterFile)) {
  Begin(0);
}

void PathFilterWriter::Begin(std::uint64_t offset) {
  begin_ = offset;
  part_begin_ = offset;
  size_ = sizeof(Header);
  keys_ = 0;
  bits_.assign(kWords, 0);
  last_path_.clear();
}

void PathFilterWriter::Take(const RawEntry& entry) {
  if (entry.entries_begin != begin_) {
    Begin(entry.entries_begin);  // What came before were the metadata's.
  }
  if (keys_ >= kMostKeys) {
    EndPart(entry.offset);
  }
  path_.clear();
  AppendValue(entry.values[kPathField], TextForm::kPlain, &path_);
  Add(KeyOfPath(path_));
  // Names that it shares with its neighbour are there already.
  const auto differ =
      std::mismatch(path_.begin(), path_.end(), last_path_.begin(), last_path_.end());
  const auto shared = static_cast<std::size_t>(differ.first - path_.begin());
  const std::size_t begin = shared == 0 ? 0 : path_.rfind('/', shared - 1) + 1;
  ForEachName(path_, begin, [this](std::string_view name) { Add(KeyOfName(name)); });
  std::swap(path_, last_path_);
}

void PathFilterWriter::Add(std::uint64_t key) {
  bool is_new = false;
  ProbeAll(key, kWords, [&](std::uint64_t word, std::uint64_t bit) {
    is_new = is_new || (bits_[word] & bit) == 0;
    bits_[word] |= bit;
    return true;
  });
  keys_ += is_new ? 1 : 0;
}

void PathFilterWriter::EndPart(std::uint64_t end) {
  // A bit's place is the end of a number: so halves laid over each other are a filter of half the
  // size.
  while (bits_.size() > 1 && bits_.size() / 2 * 64 >= keys_ * kBitsPerKey) {
    const std::size_t half = bits_.size() / 2;
    for (std::size_t i = 0; i < half; ++i) {
      bits_[i] |= bits_[half + i];
    }
    bits_.resize(half);
  }
  const std::string_view words = BytesOf(bits_);
  const PartHeader header{.begin = part_begin_,
                          .end = end,
                          .words = bits_.size(),
                          .checksum = XXH3_64bits(words.data(), words.size())};
  Write(BytesOf(header), size_);
  Write(words, size_ + sizeof(header));
  size_ += sizeof(header) + words.size();
  part_begin_ = end;
  keys_ = 0;
  bits_.assign(kWords, 0);
  last_path_.clear();
}

void PathFilterWriter::Write(std::string_view bytes, std::uint64_t at) {
  if (error_ == 0 &&
      (lseek(file_.get(), static_cast<off_t>(at), SEEK_SET) < 0 || !WriteAll(file_.get(), bytes))) {
    error_ = errno;
  }
}

void PathFilterWriter::Finish(std::string_view sha256, const DocumentParser& document) {
  Header header{.begin = document.entries_begin(), .end = document.entries_end()};
  if (header.begin != begin_) {
    Begin(header.begin);
  }
  if (header.begin < header.end) {
    EndPart(header.end);
  }
  sha256.copy(header.sha256.data(), header.sha256.size());
  Write(BytesOf(header), 0);
  if (error_ == 0 &&
      (ftruncate(file_.get(), static_cast<off_t>(size_)) != 0 || fsync(file_.get()) != 0)) {
    error_ = errno;
  }
  if (error_ != 0) {
    errno = error_;
    throw SystemError("write", file_path_);
  }
}

PathFilterReader::PathFilterReader(const Directory& image, std::string_view sha256)
    : file_(OpenFilter(image)) {
  Header header;
  is_right_ = Read(&header, sizeof(header)) && header.magic == kMagic &&
              std::string_view(header.sha256.data(), header.sha256.size()) == sha256;
  if (is_right_) {
    begin_ = header.begin;
    end_ = header.end;
    part_end_ = begin_;
  }
}

bool PathFilterReader::Next() {
  if (!is_right_ || part_end_ >= end_) {
    return false;
  }
  PartHeader header;
  is_right_ = Read(&header, sizeof(header)) && header.begin == part_end_ &&
              header.end > header.begin && header.end <= end_ && header.words <= kWords &&
              std::has_single_bit(header.words);
  if (!is_right_) {
    return false;
  }
  bits_.resize(header.words);
  const std::size_t size = bits_.size() * sizeof(std::uint64_t);
  is_right_ = Read(bits_.data(), size) && XXH3_64bits(bits_.data(), size) == header.checksum;
  part_end_ = header.end;
  return is_right_;
}

bool PathFilterReader::CanHave(const std::vector<std::uint64_t>& keys) const {
  return std::all_of(keys.begin(), keys.end(), [this](std::uint64_t key) {
    return ProbeAll(key, bits_.size(), [this](std::uint64_t word, std::uint64_t bit) {
      return (bits_[word] & bit) != 0;
    });
  });
}

bool PathFilterReader::Read(void* to, std::size_t size) {
  auto* at = static_cast<char*>(to);
  ssize_t piece = 1;
  while (size > 0 && piece > 0) {
    piece = read(file_.get(), at, size);
    at += std::max(piece, ssize_t{0});
    size -= static_cast<std::size_t>(std::max(piece, ssize_t{0}));
  }
  return size == 0;
}

void PathFilterCheck::Take(const RawEntry& entry) {
  if (entry.entries_begin != reader_.entries_begin()) {
    return;
  }
  while (is_right_ && entry.offset >= reader_.part_end()) {
    is_right_ = reader_.Next();
  }
  if (!is_right_) {
    return;
  }
  path_.clear();
  AppendValue(entry.values[kPathField], TextForm::kPlain, &path_);
  keys_ = {KeyOfPath(path_)};
  ForEachName(path_, 0, [this](std::string_view name) { keys_.push_back(KeyOfName(name)); });
  is_right_ = reader_.CanHave(keys_);
}

bool PathFilterCheck::Finish(const DocumentParser& document) {
  return is_right_ && reader_.entries_begin() == document.entries_begin() &&
         reader_.entries_end() == document.entries_end() &&
         reader_.part_end() == reader_.entries_end();
}

std::optional<std::vector<DocumentPart>> PartsWith(const Directory& image, std::string_view sha256,
                                                   const std::vector<PathPattern>& patterns) {
  PathFilterReader reader(image, sha256);
  std::vector<std::vector<std::uint64_t>> keys;
  std::transform(patterns.begin(), patterns.end(), std::back_inserter(keys), KeysOf);
  std::vector<DocumentPart> parts;
  for (std::uint64_t begin = reader.entries_begin(); reader.Next(); begin = reader.part_end()) {
    const bool is_possible = std::any_of(keys.begin(), keys.end(), [&](const auto& pattern_keys) {
      return reader.CanHave(pattern_keys);
    });
    if (is_possible && !parts.empty() && parts.back().end == begin) {
      parts.back().end = reader.part_end();
    } else if (is_possible) {
      parts.push_back({begin, reader.part_end()});
    }
  }
  return reader.is_right() ? std::optional(std::move(parts)) : std::nullopt;
}
