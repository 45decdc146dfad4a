#ifndef QUILLMERE_EXPORT_FILE_ENTRY_TABLE_H_
#define QUILLMERE_EXPORT_FILE_ENTRY_TABLE_H_

#include <cstddef>
#include <iosfwd>
#include <memory>
#include <string_view>
#include <vector>

/// The file entries of one image: eleven text fields each, kept as the text that they were read as.
/// An image has up to tens of millions of entries, and a tree node for each field would take
/// twenty times the memory of its text.
class FileEntryTable {
 public:
  static constexpr std::size_t kFieldCount = 11;

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

  std::vector<Chunk> chunks_;
  std::size_t entry_count_ = 0;
};

#endif  // QUILLMERE_EXPORT_FILE_ENTRY_TABLE_H_
