#ifndef QUILLMERE_ARCHIVE_DOCUMENT_H_
#define QUILLMERE_ARCHIVE_DOCUMENT_H_

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

constexpr std::size_t kFieldCount = 11;

/// The names of an entry's fields, in the order of a document.
extern const std::array<std::string_view, kFieldCount> kFieldNames;

/// Positions among them.
constexpr std::size_t kLengthField = 1;
constexpr std::size_t kPathField = 9;

/// Bytes of an entry in a document, at most: the product's line for it is shorter than 4 MiB, of
/// which each byte may take six.
constexpr std::size_t kLongestEntry = std::size_t{25} * 1024 * 1024;

/// A file entry: its values as they stand in the document, between the quotation marks.
struct RawEntry {
  std::uint64_t offset = 0;         ///< of its first line, in bytes
  std::uint64_t entries_begin = 0;  ///< of the "fentries" that it is in, as DocumentParser has it
  std::array<std::string_view, kFieldCount> values;
};

/// What the first line of an entry is, and the last but for the comma behind it.
constexpr std::string_view kEntryOpenLine = "        {";
constexpr std::string_view kEntryCloseStart = "        }";

/// Cuts an entry that begins at *at and is whole before `end`, last newline included, into its
/// values, and moves *at behind it. Returns false, with both anywhere, when there is none.
bool CutEntry(const char** at, const char* end, RawEntry* entry);

/// Finds where the entries of a document begin that comes in pieces: in its last "fentries", as the
/// metadata may have some of their own.
class LastEntries {
 public:
  void Take(std::string_view piece);

  /// After the last piece: where the first entry begins, in bytes, if there is one.
  [[nodiscard]] std::uint64_t begin() const { return begin_; }

 private:
  std::uint64_t begin_ = 0;
  std::uint64_t offset_ = 0;  // of what is kept
  std::string kept_;          // the end of the pieces before
};

/// Reads a document that comes in pieces by its layout: one member a line, four blanks a level, no
/// newline inside a value. Whatever the size, it keeps no more than one entry.
class DocumentParser {
 public:
  using Take = std::function<void(const RawEntry& entry)>;

  /// Counts entries, and gives `take`, if any, each of them. Its values last as long as the call.
  explicit DocumentParser(Take take = nullptr) : take_(std::move(take)) {}

  /// Gives entries only if the first of them begins at `offset`, as LastEntries says.
  void TakeOnlyFrom(std::uint64_t offset) { only_from_ = offset; }

  void Parse(std::string_view piece);

  /// After the last piece: the number of entries, or nothing for a text that is no whole document,
  /// with "no document: wrong at byte N" in *error, where the line begins that is out of place.
  std::optional<std::uint64_t> Finish(std::string* error) const;

  /// Where the first entry of the last "fentries" begins, and where the last one ends, in bytes; 0
  /// when there is none.
  [[nodiscard]] std::uint64_t entries_begin() const { return entries_begin_; }
  [[nodiscard]] std::uint64_t entries_end() const { return entries_end_; }

  /// True when entries were given of a "fentries" that was not the last.
  [[nodiscard]] bool has_given_others() const { return has_given_others_; }

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

  /// A line without its newline. Of one that spans pieces, only both its ends are at hand, but for
  /// a field.
  struct Line {
    std::string_view head;
    std::string_view tail;
    std::size_t size;
  };

  const char* TakeWholeEntries(const char* begin, const char* end);
  void Give(const RawEntry& entry);
  void TakeLine(const Line& line);
  void KeepPart(std::string_view part);
  void TakeKeptLine();
  Expect TakeMember(const Line& line);
  Expect TakeEntryLine(const Line& line);
  Expect TakeOther(const Line& line);
  bool TakeField(const Line& line);
  void FinishEntry();
  Expect Fail();

  Take take_;
  std::optional<std::uint64_t> only_from_;  // offset
  bool gives_ = false;                      // the entries of this "fentries"
  bool has_given_others_ = false;

  Expect expect_ = Expect::kRootOpen;
  std::size_t field_ = 0;                  // position in the entry
  std::uint64_t entries_ = 0;              // in the last "fentries"
  std::uint64_t entries_begin_ = 0;        // offset
  std::uint64_t entries_end_ = 0;          // offset
  std::uint64_t offset_ = 0;               // of the line that comes, in bytes
  std::optional<std::uint64_t> wrong_at_;  // offset

  // Of an entry that spans pieces.
  std::uint64_t entry_offset_ = 0;
  std::size_t entry_size_ = 0;  // bytes of its values so far
  std::array<std::string, kFieldCount> values_;

  std::string head_;  // of a line whose end is still to come
  std::string tail_;
  std::size_t kept_size_ = 0;
};

#endif  // QUILLMERE_ARCHIVE_DOCUMENT_H_
