#ifndef QUILLMERE_ARCHIVE_PATH_FILTER_H_
#define QUILLMERE_ARCHIVE_PATH_FILTER_H_

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "archive/directory.h"
#include "archive/document.h"
#include "archive/path_pattern.h"

/// Beside a document, what answers "can this path be in it, and where?": Bloom filters of its paths
/// and of the names in them, one for each part of the document.
inline const std::string kFilterFile = "paths.filter";

/// Makes the filter of a document whose entries come one after the other.
class PathFilterWriter {
 public:
  /// Makes the file in `directory`. Throws an ArchiveError.
  explicit PathFilterWriter(const Directory& directory);

  /// Takes the next entry that a DocumentParser gives. What can't be written is said by Finish.
  void Take(const RawEntry& entry);

  /// After the last one, with the SHA-256 of the document and what parsed it: makes the file
  /// durable. Throws an ArchiveError when it could not be written.
  void Finish(std::string_view sha256, const DocumentParser& document);

 private:
  void Begin(std::uint64_t offset);
  void Add(std::uint64_t key);
  void EndPart(std::uint64_t end);
  void Write(std::string_view bytes, std::uint64_t at);

  std::string file_path_;
  Descriptor file_;
  int error_ = 0;            // errno of the first failure
  std::uint64_t size_ = 0;   // of the file, in bytes
  std::uint64_t begin_ = 0;  // of the entries in the document
  std::uint64_t part_begin_ = 0;
  std::uint64_t keys_ = 0;  // in this part, different ones
  std::vector<std::uint64_t> bits_;
  std::string path_;
  std::string last_path_;
};

/// A filter file that is read from its beginning to its end.
class PathFilterReader {
 public:
  /// Nothing is there to be read when `image` has no filter, or not of the document with `sha256`.
  PathFilterReader(const Directory& image, std::string_view sha256);

  /// False when what was read so far is not right, or nothing was there.
  [[nodiscard]] bool is_right() const { return is_right_; }

  /// Where the document's entries begin and end.
  [[nodiscard]] std::uint64_t entries_begin() const { return begin_; }
  [[nodiscard]] std::uint64_t entries_end() const { return end_; }

  /// Goes to the next part. Returns false when there is none.
  bool Next();

  /// The end of the part of the document that this one is of, in bytes.
  [[nodiscard]] std::uint64_t part_end() const { return part_end_; }

  /// True when a path with all of these keys can be in the part.
  [[nodiscard]] bool CanHave(const std::vector<std::uint64_t>& keys) const;

 private:
  bool Read(void* to, std::size_t size);

  Descriptor file_;
  bool is_right_ = false;
  std::uint64_t begin_ = 0;
  std::uint64_t end_ = 0;
  std::uint64_t part_end_ = 0;
  std::vector<std::uint64_t> bits_;
};

/// Checks the filter of a document against its entries.
class PathFilterCheck {
 public:
  explicit PathFilterCheck(const Directory& image, std::string_view sha256)
      : reader_(image, sha256), is_right_(reader_.is_right()) {}

  void Take(const RawEntry& entry);

  /// After the last entry: false when something was not in it that should be.
  bool Finish(const DocumentParser& document);

 private:
  PathFilterReader reader_;
  bool is_right_;
  std::string path_;
  std::vector<std::uint64_t> keys_;
};

/// Entries from `begin` on to `end`, in bytes of the document.
struct DocumentPart {
  std::uint64_t begin;
  std::uint64_t end;

  friend bool operator==(const DocumentPart&, const DocumentPart&) = default;
};

/// The parts of the document in `image`, whose SHA-256 is `sha256`, in which a path can be that
/// matches one of `patterns`, in order. Nothing when there is no filter, or not a right one.
std::optional<std::vector<DocumentPart>> PartsWith(const Directory& image, std::string_view sha256,
                                                   const std::vector<PathPattern>& patterns);

#endif  // QUILLMERE_ARCHIVE_PATH_FILTER_H_
