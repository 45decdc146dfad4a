#ifndef QUILLMERE_EXPORT_FILE_ENTRY_TABLE_H_
#define QUILLMERE_EXPORT_FILE_ENTRY_TABLE_H_

#include <cstddef>
#include <iosfwd>
#include <memory>
#include <string_view>
#include <vector>

#include "export/packed_text.h"

/// The file entries of one image: eleven text fields each, kept as the text that they were read as.
/// An image has up to a hundred million entries, and a tree node for each field would take twenty
/// times the memory of its text. Beyond half a gigabyte even the text is packed, to a third.
class FileEntryTable {
 public:
  static constexpr std::size_t kFieldCount = 11;

  /// Which part of the text is packed, and in which pieces. Both in bytes; an entry is never cut.
  struct Packing {
    std::size_t from = std::size_t{512} * 1024 * 1024;  ///< so much stays plain, at least
    /// Packed in the time in which a pipe fills, so that the product need not wait for it.
    std::size_t piece_size = std::size_t{1024} * 1024;
  };

  FileEntryTable() : FileEntryTable(Packing()) {}
  explicit FileEntryTable(const Packing& packing) : packing_(packing) {}

  /// Appends the entry on `line`: eleven fields separated by runs of tabs, without a newline or a
  /// zero byte; tabs at either end do not count. Returns false, with the table as it was, when
  /// `line` holds another number of fields.
  bool Append(std::string_view line);

  /// The number of entries.
  [[nodiscard]] std::size_t size() const { return entry_count_; }

  /// Writes the entries as the array that the JSON writer makes of a member of the root object: an
  /// object for each entry, pretty-printed, from the opening bracket to the closing one; two
  /// quotation marks for an empty table. A failure shows in the state of `out`.
  void WriteArray(std::ostream& out) const;

 private:
  /// A run of whole entries. A field ends with a tab, the last one of an entry with a newline.
  /// Zeros follow, as many as are looked at together.
  struct Chunk {
    std::unique_ptr<char[]> text;
    std::size_t size = 0;      // bytes in use, without the zeros
    std::size_t capacity = 0;  // bytes
  };

  /// Room for `size` bytes behind the last entry, all in one chunk.
  char* Reserve(std::size_t size);

  /// An empty chunk with room for `size` bytes at the end.
  void AddChunk(std::size_t size);

  /// Moves the text of the last chunk behind all that is packed, and sees to room for `size` bytes.
  void PackLastChunk(std::size_t size);

  Packing packing_;
  std::vector<Chunk> chunks_;  // what is packed stands before the last of them
  PackedText packed_;
  std::size_t plain_size_ = 0;  // bytes in chunks that are full
  std::size_t entry_count_ = 0;
};

#endif  // QUILLMERE_EXPORT_FILE_ENTRY_TABLE_H_
