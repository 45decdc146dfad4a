#ifndef QUILLMERE_ARCHIVE_PATH_SEARCH_H_
#define QUILLMERE_ARCHIVE_PATH_SEARCH_H_

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "archive/directory.h"
#include "archive/document.h"
#include "archive/manifest.h"
#include "archive/path_filter.h"
#include "archive/path_pattern.h"
#include "archive/stored_document.h"

/// Finds the entries of documents whose paths match one of some patterns.
class PathSearch {
 public:
  /// Called with the length and the path of an entry that matches.
  using Found = std::function<void(const std::string& length, const std::string& path)>;

  /// Called after each piece of a document.
  using Pause = std::function<void()>;

  PathSearch(std::vector<PathPattern> patterns, Found found, Pause pause);

  /// Searches the document of an image, no more of it than has to be read. Throws an ArchiveError
  /// when it can't be read, or is wrong where it was looked at; what was found before is true.
  void Search(const Directory& image, const Manifest& manifest);

 private:
  void SearchAll(const Directory& image, const Manifest& manifest);
  void SearchPart(DocumentReader* reader, const DocumentPart& part);
  void MakeRoom(std::size_t kept, std::uint64_t offset);
  void SearchEntries(std::string_view text, std::uint64_t offset);
  /// Looks at the entry that begins in `text`, at `offset` in the document, at `begin`. Returns
  /// where it ends.
  std::size_t TakeAt(std::string_view text, std::size_t begin, std::uint64_t offset);
  void Take(const RawEntry& entry);
  [[noreturn]] void Fail(std::uint64_t offset) const;

  std::vector<PathPattern> patterns_;
  Found found_;
  Pause pause_;
  std::vector<std::string> values_;  // each path that matches has one in it; of none, any can
  std::vector<char> window_;
  std::vector<std::size_t> candidates_;
  std::string length_;
  std::string path_;
  std::string document_path_;
};

#endif  // QUILLMERE_ARCHIVE_PATH_SEARCH_H_
