#include "export/file_entry_table.h"

#include <emmintrin.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>
#include <ostream>

namespace {

constexpr std::size_t kFirstChunkSize = std::size_t{64} * 1024;   // bytes
constexpr std::size_t kChunkSize = std::size_t{8} * 1024 * 1024;  // bytes
constexpr std::size_t kWriteSize = std::size_t{512} * 1024;       // bytes written at a time
constexpr std::string_view kEmptyArray = "\"\"";

// Text is looked at and copied 16 bytes at a time, and a word of 64 bits says which bytes of a
// group need more than copying: measured; run the benchmark. What it amounts to is the plain
// reading of FileEntryTable.WritesTheBytesOfARealTree. A block may begin anywhere and may reach
// past what it is to copy, so what is read and what is written has that much room behind its end.
using Block = __m128i;
constexpr std::size_t kBlockSize = sizeof(Block);  // bytes
constexpr std::size_t kGroupSize = PackedText::kRoom;

Block LoadBlock(const char* from) {
  return _mm_loadu_si128(reinterpret_cast<const Block*>(from));
}

void StoreBlock(char* to, Block block) {
  _mm_storeu_si128(reinterpret_cast<Block*>(to), block);
}

/// All bits of each byte of `block` that equals `c`.
Block EqualTo(Block block, char c) {
  return _mm_cmpeq_epi8(block, _mm_set1_epi8(c));
}

Block IsTab(Block block) {
  return EqualTo(block, '\t');
}

/// All bits of each byte that the JSON writer does not copy as it is.
Block IsSpecial(Block block) {
  const Block is_control = _mm_cmpeq_epi8(_mm_min_epu8(block, _mm_set1_epi8(0x1F)), block);
  return _mm_or_si128(_mm_or_si128(is_control, EqualTo(block, '"')),
                      _mm_or_si128(EqualTo(block, '\\'), EqualTo(block, '/')));
}

/// A bit for each byte of the group at `group` of which `test` says yes, the lowest for the first.
/// Bytes at and behind `end` count as no.
template <Block test(Block)>
std::uint64_t BytesThat(const char* group, const char* end) {
  std::uint64_t bytes = 0;
  for (std::size_t i = 0; i < kGroupSize; i += kBlockSize) {
    const auto mask = static_cast<std::uint32_t>(_mm_movemask_epi8(test(LoadBlock(group + i))));
    bytes |= std::uint64_t{mask} << i;
  }
  const auto left = static_cast<std::size_t>(end - group);
  return left < kGroupSize ? bytes & ~(~std::uint64_t{0} << left) : bytes;
}

/// Text that stands in the output for a special byte. All of the array is copied, which takes no
/// loop, and `size` bytes of it count.
template <std::size_t kCapacity>
struct Replacement {
  std::array<char, kCapacity> text{};
  std::size_t size = 0;
};

template <std::size_t kCapacity>
constexpr Replacement<kCapacity> MakeReplacement(std::string_view text) {
  Replacement<kCapacity> replacement;
  std::copy(text.begin(), text.end(), replacement.text.begin());
  replacement.size = text.size();
  return replacement;
}

// The document is the JSON writer's pretty print, in which an entry of a root member stands two
// levels deep. Pinned by FileEntryTable.WritesTheBytesOfARealTree.
constexpr auto kArrayOpen = MakeReplacement<64>(
    "[\n"
    "        {\n"
    "            \"filenum\": \"");
constexpr auto kNextEntry = MakeReplacement<64>(
    "\"\n"
    "        },\n"
    "        {\n"
    "            \"filenum\": \"");
constexpr auto kArrayClose = MakeReplacement<64>(
    "\"\n"
    "        }\n"
    "    ]");

/// What stands between two fields, by the position of the second one in its entry.
constexpr auto kNextField = [] {
  constexpr std::array<std::string_view, FileEntryTable::kFieldCount> kTexts = {
      "",
      "\",\n            \"length\": \"",
      "\",\n            \"plength\": \"",
      "\",\n            \"dlength\": \"",
      "\",\n            \"blknum\": \"",
      "\",\n            \"in_image\": \"",
      "\",\n            \"raw_partition_sz\": \"",
      "\",\n            \"gigabytes\": \"",
      "\",\n            \"device_num\": \"",
      "\",\n            \"path\": \"",
      "\",\n            \"data\": \"",
  };
  std::array<Replacement<48>, kTexts.size()> replacements;
  std::transform(kTexts.begin(), kTexts.end(), replacements.begin(), MakeReplacement<48>);
  return replacements;
}();

/// The escapes of the special bytes, by their values. No field has a tab or a newline in it.
constexpr auto kEscapes = [] {
  constexpr std::string_view kHexDigits = "0123456789ABCDEF";
  std::array<Replacement<16>, '\\' + 1> escapes;
  for (std::size_t c = 0; c < 0x20; ++c) {
    const std::array<char, 6> text = {'\\', 'u', '0', '0', kHexDigits[c / 16], kHexDigits[c % 16]};
    escapes[c] = MakeReplacement<16>({text.data(), text.size()});
  }
  escapes['\b'] = MakeReplacement<16>("\\b");
  escapes['\f'] = MakeReplacement<16>("\\f");
  escapes['\r'] = MakeReplacement<16>("\\r");
  escapes['"'] = MakeReplacement<16>("\\\"");
  escapes['/'] = MakeReplacement<16>("\\/");
  escapes['\\'] = MakeReplacement<16>("\\\\");
  return escapes;
}();

/// Output that is collected and written in large pieces.
class OutputBuffer {
 public:
  explicit OutputBuffer(std::ostream* out) : out_(out) {}

  /// Makes room for all that is put in the place of one group.
  void MakeRoom() {
    if (size_ > kWriteSize) {
      Flush();
    }
  }

  /// Appends [begin, end), at most a group.
  void Append(const char* begin, const char* end) {
    char* to = text_.get() + size_;
    size_ += static_cast<std::size_t>(end - begin);
    do {
      StoreBlock(to, LoadBlock(begin));
      begin += kBlockSize;
      to += kBlockSize;
    } while (begin < end);
  }

  template <std::size_t kCapacity>
  void Append(const Replacement<kCapacity>& replacement) {
    std::memcpy(text_.get() + size_, replacement.text.data(), kCapacity);
    size_ += replacement.size;
  }

  void Flush() {
    out_->write(text_.get(), static_cast<std::streamsize>(size_));
    size_ = 0;
  }

 private:
  // A group of special bytes, all of them replaced by the longest text, and what is copied past it.
  static constexpr std::size_t kRoom = (kGroupSize + 1) * sizeof(kNextEntry.text);

  std::ostream* out_;
  std::unique_ptr<char[]> text_ = std::make_unique_for_overwrite<char[]>(kWriteSize + kRoom);
  std::size_t size_ = 0;  // bytes in use
};

/// Turns the text of entries into a JSON array.
class EntryArrayWriter {
 public:
  EntryArrayWriter(std::ostream* out, std::size_t entry_count)
      : buffer_(out), entries_left_(entry_count) {
    buffer_.Append(kArrayOpen);
  }

  /// Writes the whole entries in [begin, end).
  void Write(const char* begin, const char* end) {
    for (const char* group = begin; group < end; group += kGroupSize) {
      buffer_.MakeRoom();
      const char* plain = group;
      for (std::uint64_t special = BytesThat<IsSpecial>(group, end); special != 0;
           special &= special - 1) {
        const char* const at = group + std::countr_zero(special);
        buffer_.Append(plain, at);
        Replace(static_cast<unsigned char>(*at));
        plain = at + 1;
      }
      buffer_.Append(plain, std::min(group + kGroupSize, end));
    }
  }

  void Finish() { buffer_.Flush(); }

 private:
  void Replace(unsigned char special) {
    if (special == '\t') {
      buffer_.Append(kNextField[++field_]);
    } else if (special == '\n') {
      buffer_.Append(--entries_left_ == 0 ? kArrayClose : kNextEntry);
      field_ = 0;
    } else {
      buffer_.Append(kEscapes[special]);
    }
  }

  OutputBuffer buffer_;
  std::size_t entries_left_;
  std::size_t field_ = 0;  // position in the entry
};

/// Removes the empty fields from [begin, end), text in which each field ends with a tab. Returns
/// the new end.
char* RemoveEmptyFields(char* begin, char* end) {
  end = std::unique(begin, end, [](char a, char b) { return a == '\t' && b == '\t'; });
  return *begin == '\t' ? std::copy(begin + 1, end, begin) : end;
}

}  // namespace

void FileEntryTable::AddChunk(std::size_t size) {
  std::size_t capacity = kChunkSize;
  if (plain_size_ >= packing_.from) {
    capacity = packing_.piece_size;
  } else if (chunks_.empty()) {
    capacity = kFirstChunkSize;
  }
  capacity = std::max(capacity, size);
  chunks_.push_back({std::make_unique_for_overwrite<char[]>(capacity), 0, capacity});
}

void FileEntryTable::PackLastChunk(std::size_t size) {
  Chunk& last = chunks_.back();
  packed_.Append({last.text.get(), last.size});
  last.size = 0;
  if (last.capacity < size) {
    last.text = std::make_unique_for_overwrite<char[]>(size);
    last.capacity = size;
  }
}

char* FileEntryTable::Reserve(std::size_t size) {
  if (chunks_.empty()) {
    AddChunk(size);
  } else if (chunks_.back().capacity - chunks_.back().size < size) {
    if (plain_size_ >= packing_.from) {
      PackLastChunk(size);
    } else {
      plain_size_ += chunks_.back().size;
      AddChunk(size);
    }
  }
  return chunks_.back().text.get() + chunks_.back().size;
}

bool FileEntryTable::Append(std::string_view line) {
  char* const entry = Reserve(line.size() + 1 + kGroupSize);
  char* end = std::copy(line.begin(), line.end(), entry);
  *end++ = '\t';
  std::memset(end, 0, kGroupSize);

  std::size_t field_count = 0;
  bool has_empty_field = false;
  std::uint64_t after_tab = 1;  // a bit for the first byte of the next group
  for (const char* group = entry; group < end; group += kGroupSize) {
    const std::uint64_t tabs = BytesThat<IsTab>(group, end);
    has_empty_field |= (tabs & (tabs << 1 | after_tab)) != 0;
    after_tab = tabs >> (kGroupSize - 1);
    for (std::uint64_t rest = tabs; rest != 0; rest &= rest - 1) {
      ++field_count;
    }
  }
  if (has_empty_field) {
    end = RemoveEmptyFields(entry, end);
    std::memset(end, 0, kGroupSize);
    field_count = static_cast<std::size_t>(std::count(entry, end, '\t'));
  }
  if (field_count != kFieldCount) {
    return false;
  }
  end[-1] = '\n';
  chunks_.back().size += static_cast<std::size_t>(end - entry);
  ++entry_count_;
  return true;
}

void FileEntryTable::WriteArray(std::ostream& out) const {
  if (entry_count_ == 0) {
    out << kEmptyArray;
    return;
  }
  EntryArrayWriter writer(&out, entry_count_);
  const auto write = [&writer](const Chunk& chunk) {
    writer.Write(chunk.text.get(), chunk.text.get() + chunk.size);
  };
  std::for_each(chunks_.begin(), chunks_.end() - 1, write);
  packed_.ForEach([&writer](std::string_view piece) {
    writer.Write(piece.data(), piece.data() + piece.size());
  });
  write(chunks_.back());
  writer.Finish();
}
