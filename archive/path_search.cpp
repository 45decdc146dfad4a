#include "archive/path_search.h"

#include <algorithm>
#include <optional>
#include <utility>

#include "archive/entry_text.h"
#include "archive/text_search.h"

namespace {

constexpr std::size_t kWindowPieceSize = std::size_t{256} * 1024;  // bytes

/// Texts of which each path that matches has one in it, as a document has them. None when a pattern
/// says of no text that it has to be there.
std::vector<std::string> ValuesOf(const std::vector<PathPattern>& patterns) {
  std::vector<std::string> values;
  for (const PathPattern& pattern : patterns) {
    if (pattern.literal().empty()) {
      return {};
    }
    values.push_back(ValueOf(pattern.literal()));
  }
  return values;
}

/// Where the last entry ends that another one follows; 0 without one.
std::size_t EndOfLastEntry(std::string_view text) {
  constexpr std::string_view kEnd = "\n        },\n";
  const std::size_t at = text.rfind(kEnd);
  return at == std::string_view::npos ? 0 : at + kEnd.size();
}

/// Where the entry begins that has `at` in it.
std::size_t BeginOfEntry(std::string_view text, std::size_t at) {
  constexpr std::string_view kBegin = "\n        {\n";
  const std::size_t newline = text.rfind(kBegin, at);
  return newline == std::string_view::npos ? 0 : newline + 1;
}

/// Where the entries in `text` begin that have one of `values` in them.
void FindCandidates(std::string_view text, const std::vector<std::string>& values,
                    std::vector<std::size_t>* candidates) {
  candidates->clear();
  for (const std::string& value : values) {
    std::size_t at = 0;
    while ((at = FindText(text, value, at)) != std::string_view::npos) {
      candidates->push_back(BeginOfEntry(text, at));
      at += value.size();
    }
  }
  std::sort(candidates->begin(), candidates->end());
  candidates->erase(std::unique(candidates->begin(), candidates->end()), candidates->end());
}

}  // namespace

PathSearch::PathSearch(std::vector<PathPattern> patterns, Found found, Pause pause)
    : patterns_(std::move(patterns)),
      found_(std::move(found)),
      pause_(std::move(pause)),
      values_(ValuesOf(patterns_)),
      window_(kWindowPieceSize) {
}

void PathSearch::Search(const Directory& image, const Manifest& manifest) {
  const DocumentFacts& document = manifest.document;
  document_path_ = image.PathOf(document.file);
  const std::optional<std::vector<DocumentPart>> parts =
      PartsWith(image, document.sha256, patterns_);
  if (!parts) {
    SearchAll(image, manifest);
    return;
  }
  DocumentReader reader = OpenDocument(image, document);
  std::uint64_t at = 0;
  for (const DocumentPart& part : *parts) {
    reader.Skip(part.begin - at);
    SearchPart(&reader, part);
    at = part.end;
  }
}

void PathSearch::SearchAll(const Directory& image, const Manifest& manifest) {
  DocumentReader first = OpenDocument(image, manifest.document);
  DocumentParser parser([this](const RawEntry& entry) { Take(entry); });
  parser.TakeOnlyFrom(FindEntries(&first));
  DocumentReader reader = OpenDocument(image, manifest.document);
  ReadPieces(&reader, [&](std::string_view piece) {
    parser.Parse(piece);
    pause_();
  });
  std::string error;
  if (!parser.Finish(&error)) {
    throw ArchiveError(document_path_ + ": " + error);
  }
}

void PathSearch::SearchPart(DocumentReader* reader, const DocumentPart& part) {
  std::uint64_t left = part.end - part.begin;  // to read
  std::uint64_t offset = part.begin;           // of the window
  std::size_t kept = 0;                        // bytes in it
  while (left > 0) {
    const std::size_t size = std::min<std::uint64_t>(left, window_.size() - kept);
    const std::size_t read = reader->Read(window_.data() + kept, size);
    if (read < size) {
      Fail(offset + kept + read);
    }
    left -= size;
    const std::string_view text(window_.data(), kept + size);
    const std::size_t end = left == 0 ? text.size() : EndOfLastEntry(text);
    SearchEntries(text.substr(0, end), offset);
    pause_();
    offset += end;
    kept = text.size() - end;
    std::copy_n(text.data() + end, kept, window_.data());
    MakeRoom(kept, offset);
  }
}

void PathSearch::MakeRoom(std::size_t kept, std::uint64_t offset) {
  if (kept < window_.size()) {
    return;
  }
  if (kept > kLongestEntry) {
    Fail(offset);
  }
  window_.resize(2 * kept);
}

void PathSearch::SearchEntries(std::string_view text, std::uint64_t offset) {
  if (!values_.empty()) {
    FindCandidates(text, values_, &candidates_);
    for (const std::size_t candidate : candidates_) {
      TakeAt(text, candidate, offset);
    }
    return;
  }
  for (std::size_t at = 0; at < text.size();) {
    at = TakeAt(text, at, offset);
  }
}

std::size_t PathSearch::TakeAt(std::string_view text, std::size_t begin, std::uint64_t offset) {
  RawEntry entry{.offset = offset + begin, .entries_begin = 0, .values = {}};
  const char* at = text.data() + begin;
  if (!CutEntry(&at, text.data() + text.size(), &entry)) {
    Fail(entry.offset);
  }
  Take(entry);
  return static_cast<std::size_t>(at - text.data());
}

void PathSearch::Take(const RawEntry& entry) {
  path_.clear();
  if (!AppendValue(entry.values[kPathField], TextForm::kPlain, &path_)) {
    Fail(entry.offset);
  }
  const bool is_found =
      std::any_of(patterns_.begin(), patterns_.end(),
                  [this](const PathPattern& pattern) { return pattern.Matches(path_); });
  if (!is_found) {
    return;
  }
  length_.clear();
  if (!AppendValue(entry.values[kLengthField], TextForm::kPlain, &length_)) {
    Fail(entry.offset);
  }
  found_(length_, path_);
}

void PathSearch::Fail(std::uint64_t offset) const {
  throw ArchiveError(document_path_ + ": no document: wrong at byte " + std::to_string(offset));
}
