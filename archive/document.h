#ifndef QUILLMERE_ARCHIVE_DOCUMENT_H_
#define QUILLMERE_ARCHIVE_DOCUMENT_H_

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

/// Counts the file entries of a document that comes in pieces, by its layout: one member a line,
/// four blanks a level, no newline inside a value. Whatever the size, it keeps no more than the
/// beginning of one line.
class EntryCounter {
 public:
  void Take(std::string_view piece);

  /// After the last piece: the number of entries, or nothing for a text that is no whole document,
  /// with "no document: wrong at byte N" in *error, where the line begins that is out of place.
  std::optional<std::uint64_t> Finish(std::string* error) const;

 private:
  enum class Expect : std::uint8_t {
    kRootOpen,
    kMember,     ///< a line of the metadata, or the beginning of the entries
    kEntryOpen,  ///< of the next entry
    kField,      ///< the one at `field_`
    kEntryClose,
    kArrayClose,
    kRootClose,
    kNothing,  ///< all is read
    kFailed,
  };

  /// A line without its newline. Of one that spans pieces, only both its ends are at hand.
  struct Line {
    std::string_view head;
    std::string_view tail;
    std::size_t size;
  };

  const char* TakeWholeEntries(const char* begin, const char* end);
  void TakeLine(const Line& line);
  void KeepPart(std::string_view part);
  void TakeKeptLine();
  Expect TakeMember(const Line& line);
  Expect TakeEntryLine(const Line& line);
  Expect Fail();

  Expect expect_ = Expect::kRootOpen;
  std::size_t field_ = 0;                  // position in the entry
  std::uint64_t entries_ = 0;              // in the last "fentries"
  std::uint64_t offset_ = 0;               // of the line that comes, in bytes
  std::optional<std::uint64_t> wrong_at_;  // offset

  std::string head_;  // of a line whose end is still to come
  std::string tail_;
  std::size_t kept_size_ = 0;
};

#endif  // QUILLMERE_ARCHIVE_DOCUMENT_H_
