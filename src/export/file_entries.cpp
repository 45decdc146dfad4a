// What the product unfolds from a catalogue file:
//
//   output: line*
//   line:   "0" anything NL                 dropped
//         | "num" TAB anything NL           the column header, the first time it comes
//         | NL
//         | TAB* field (TAB+ field){10} TAB* NL
//
//   12	4096	0	0	88	1	0	0	64768	/home/a b	33188 3
//   users

#include "export/file_entries.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <iostream>
#include <ostream>

#include "host/command_output.h"
#include "layout/layout.h"

namespace {

constexpr std::size_t kChunkSize = std::size_t{1} << 20;  // bytes

// The document is the writer's pretty print, in which an entry of a root member stands two levels
// deep. Pinned by FileEntryTable.WritesTheBytesOfARealTree.
constexpr std::string_view kArrayOpen =
    "[\n"
    "        {\n"
    "            \"filenum\": \"";
constexpr std::string_view kNextEntry =
    "\"\n"
    "        },\n"
    "        {\n"
    "            \"filenum\": \"";
constexpr std::string_view kArrayClose =
    "\"\n"
    "        }\n"
    "    ]";

/// What stands between two fields, by the position of the field behind it.
constexpr std::array<std::string_view, FileEntryTable::kFieldCount> kNextField = {
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

constexpr bool IsPlain(unsigned char c) {
  return c >= 0x20 && c != '"' && c != '\\' && c != '/';
}

/// Output that is collected and written in large pieces.
class OutputBuffer {
 public:
  explicit OutputBuffer(std::ostream* out)
      : out_(out), begin_(std::make_unique_for_overwrite<char[]>(kSize)) {}

  void Append(std::string_view text) {
    while (text.size() > kSize - size_) {
      const std::size_t fits = kSize - size_;
      Copy(text.substr(0, fits));
      text.remove_prefix(fits);
      Flush();
    }
    Copy(text);
  }

  void Flush() {
    out_->write(begin_.get(), static_cast<std::streamsize>(size_));
    size_ = 0;
  }

 private:
  static constexpr std::size_t kSize = std::size_t{1} << 18;  // bytes

  void Copy(std::string_view text) {
    std::memcpy(begin_.get() + size_, text.data(), text.size());
    size_ += text.size();
  }

  std::ostream* out_;
  std::unique_ptr<char[]> begin_;
  std::size_t size_ = 0;  // bytes in use
};

/// Appends the escape of `c`, a byte that is not plain.
void AppendEscape(unsigned char c, OutputBuffer* buffer) {
  constexpr std::string_view kNamed = "\"\\/\b\f\n\r\t";
  constexpr std::string_view kNames = "\"\\/bfnrt";
  const std::size_t named = kNamed.find(static_cast<char>(c));
  if (named != std::string_view::npos) {
    const std::array<char, 2> escape = {'\\', kNames[named]};
    buffer->Append({escape.data(), escape.size()});
    return;
  }
  constexpr std::string_view kHexDigits = "0123456789ABCDEF";
  const std::array<char, 6> escape = {'\\', 'u', '0', '0', kHexDigits[c >> 4], kHexDigits[c & 15]};
  buffer->Append({escape.data(), escape.size()});
}

}  // namespace

char* FileEntryTable::Reserve(std::size_t size) {
  if (chunks_.empty() || chunks_.back().capacity - chunks_.back().size < size) {
    const std::size_t capacity = std::max(kChunkSize, size);
    chunks_.push_back({std::make_unique_for_overwrite<char[]>(capacity), 0, capacity});
  }
  return chunks_.back().text.get() + chunks_.back().size;
}

bool FileEntryTable::Append(std::string_view line) {
  char* const entry = Reserve(line.size() + 1);
  char* end = entry;
  std::size_t field_count = 0;
  while (!line.empty()) {
    const std::string_view field = line.substr(0, line.find('\t'));
    line.remove_prefix(std::min(field.size() + 1, line.size()));
    if (!field.empty()) {
      end = std::copy(field.begin(), field.end(), end);
      *end++ = '\t';
      ++field_count;
    }
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
  OutputBuffer buffer(&out);
  buffer.Append(kArrayOpen);
  std::size_t entries_left = entry_count_;
  for (const Chunk& chunk : chunks_) {
    std::size_t field = 0;
    const char* const end = chunk.text.get() + chunk.size;
    for (const char* next = chunk.text.get(); next != end; ++next) {
      const char* const plain = next;
      next = std::find_if_not(plain, end, IsPlain);  // there is one: an entry ends with a newline
      buffer.Append({plain, next});
      switch (*next) {
        case '\t':
          buffer.Append(kNextField[++field]);
          break;
        case '\n':
          buffer.Append(--entries_left == 0 ? kArrayClose : kNextEntry);
          field = 0;
          break;
        default:
          AppendEscape(static_cast<unsigned char>(*next), &buffer);
      }
    }
  }
  buffer.Flush();
}

int ReadFileEntries(const std::string& path, FileEntryTable* entries) {
  CommandOutput output(path_rec_unfold + " -dump " + path);
  if (!output.started()) {
    std::cerr << "run command rec_unfold failed.\n";
    return 1;
  }
  bool header_seen = false;
  while (output.ReadLine()) {
    std::string_view line = output.line();
    if (line.starts_with('0')) {
      continue;
    }
    while (line.ends_with('\n')) {
      line.remove_suffix(1);
    }
    if (!header_seen && line.starts_with("num\t")) {
      header_seen = true;
      continue;
    }
    if (line.empty()) {
      continue;
    }
    if (!entries->Append(line)) {
      std::cerr << "parse output failed. token size mismatch\n";
      // Given up in the middle. Pinned by FileEntries.AnyOtherFieldCountFails.
      output.Fclose();
      return 1;
    }
  }
  output.Pclose();
  return 0;
}
