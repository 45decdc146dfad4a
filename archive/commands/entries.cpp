#include "archive/commands/entries.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <functional>
#include <iostream>
#include <utility>

#include "archive/document.h"
#include "archive/entry_text.h"
#include "archive/json_object.h"
#include "archive/path_filter.h"
#include "archive/status.h"
#include "archive/store.h"
#include "archive/stored_document.h"
#include "archive/units.h"

namespace {

using Format = EntriesOptions::Format;

constexpr std::size_t kImageColumns = 6;
constexpr std::size_t kColumns = kImageColumns + kFieldCount;
constexpr std::size_t kWriteSize = std::size_t{64} * 1024;  // bytes

std::array<std::string, kColumns> NamesOfColumns() {
  std::array<std::string, kColumns> names = {"server",   "client", "policy",
                                             "schedule", "time",   "backup_id"};
  std::copy(kFieldNames.begin(), kFieldNames.end(), names.begin() + kImageColumns);
  return names;
}

const std::array<std::string, kColumns> kColumnNames = NamesOfColumns();

/// A document that is not what quillmere writes.
class DocumentError : public ArchiveError {
  using ArchiveError::ArchiveError;
};

/// A filter of images where none is.
class FilterError : public ArchiveError {
  using ArchiveError::ArchiveError;
};

bool IsAscii(std::string_view text) {
  return std::all_of(text.begin(), text.end(), [](char c) { return c >= 0; });
}

/// The members of `object`, without its braces.
std::string MembersOf(const Json& object) {
  const std::string line = JsonLine(object);
  return line.substr(1, line.size() - 2);
}

std::string MemberOf(const std::string& key, std::string_view text) {
  Json object = Json::object();
  AddText(key, text, &object);
  return MembersOf(object);
}

/// Lines of the columns that were asked for, written in large pieces.
class Lines {
 public:
  explicit Lines(const EntriesOptions& options)
      : format_(options.format), columns_(options.columns) {
    if (columns_.empty()) {
      for (std::size_t column = 0; column < kColumns; ++column) {
        columns_.push_back(column);
      }
    }
    if (options.has_header && format_ == Format::kTsv) {
      AddHeader();
    }
  }

  /// The entries that come are of this image, or of none that is known.
  void Begin(const Manifest* manifest) {
    for (std::size_t column = 0; column < kImageColumns; ++column) {
      image_texts_[column] = TextOfImage(manifest, column);
    }
  }

  /// Returns false for an entry with a value that quillmere doesn't write; there is no line of it.
  bool Add(const RawEntry& entry) {
    const std::size_t size = text_.size();
    std::string_view before = format_ == Format::kTsv ? "" : "{";
    for (const std::size_t column : columns_) {
      text_ += before;
      before = format_ == Format::kTsv ? "\t" : ",";
      if (column < kImageColumns) {
        text_ += image_texts_[column];
      } else if (!AddField(column, entry.values[column - kImageColumns])) {
        text_.resize(size);
        return false;
      }
    }
    text_ += format_ == Format::kTsv ? "\n" : "}\n";
    if (text_.size() >= kWriteSize) {
      Write();
    }
    return true;
  }

  void Write() {
    std::cout << text_;
    text_.clear();
  }

 private:
  void AddHeader() {
    std::string_view before;
    for (const std::size_t column : columns_) {
      text_.append(std::exchange(before, "\t")).append(kColumnNames[column]);
    }
    text_ += '\n';
  }

  [[nodiscard]] std::string TextOfImage(const Manifest* manifest, std::size_t column) const {
    const std::string& name = kColumnNames[column];
    if (manifest == nullptr) {
      return format_ == Format::kTsv ? "" : '"' + name + "\":null";
    }
    if (name == "time") {
      const std::string time = std::to_string(manifest->backup_time);
      return format_ == Format::kTsv ? time : '"' + name + "\":" + time;
    }
    const std::array<const std::string*, kImageColumns> texts = {
        &manifest->server,   &manifest->client, &manifest->policy,
        &manifest->schedule, nullptr,           &manifest->backup_id};
    if (format_ == Format::kNdjson) {
      return MemberOf(name, *texts[column]);
    }
    std::string text;
    AppendTsv(*texts[column], &text);
    return text;
  }

  bool AddField(std::size_t column, std::string_view value) {
    if (format_ == Format::kTsv) {
      return AppendValue(value, TextForm::kTsv, &text_);
    }
    if (IsAscii(value)) {
      text_.append(1, '"').append(kColumnNames[column]).append("\":\"");
      const bool is_right = AppendValue(value, TextForm::kJson, &text_);
      text_ += '"';
      return is_right;
    }
    plain_.clear();
    const bool is_right = AppendValue(value, TextForm::kPlain, &plain_);
    text_ += MemberOf(kColumnNames[column], plain_);
    return is_right;
  }

  Format format_;
  std::vector<std::size_t> columns_;
  std::array<std::string, kImageColumns> image_texts_;
  std::string text_;
  std::string plain_;
};

/// One run of the command.
class EntriesRun {
 public:
  explicit EntriesRun(const EntriesOptions& options) : options_(options), lines_(options) {}

  int Do() {
    for (const std::string& source : options_.sources) {
      Try([&] { ReadSource(source); });
    }
    lines_.Write();
    return status_;
  }

 private:
  void Try(const std::function<void()>& read) {
    try {
      read();
    } catch (const DocumentError& error) {
      Complain(error.what(), kFound);
    } catch (const FilterError& error) {
      Complain(error.what(), kWrongArguments);
    } catch (const ArchiveError& error) {
      Complain(error.what(), kArchiveFailed);
    }
  }

  void Complain(std::string_view text, int status) {
    lines_.Write();
    std::cerr << Printable(text) << '\n';
    status_ = std::max(status_, status);
  }

  void ReadSource(const std::string& source) {
    if (source == "-") {
      RefuseFilters("standard input");
      ReadStream(Descriptor(dup(STDIN_FILENO)), "standard input");
      return;
    }
    Descriptor file(open(source.c_str(), O_RDONLY | O_NOCTTY | O_CLOEXEC));
    struct stat status {};
    if (file.get() < 0 || fstat(file.get(), &status) != 0) {
      throw SystemError("open", source);
    }
    if (S_ISDIR(status.st_mode)) {
      ReadDirectory(source);
      return;
    }
    RefuseFilters(source);
    if (S_ISREG(status.st_mode)) {
      ReadFile(std::move(file), source);
    } else {
      ReadStream(std::move(file), source);
    }
  }

  void RefuseFilters(const std::string& source) const {
    if (!options_.choice.is_all()) {
      throw FilterError(source + ": filters choose images, and this is a document alone");
    }
  }

  void ReadDirectory(const std::string& path) {
    const Directory directory(path);
    if (directory.Read(kArchiveFile)) {
      ReadArchive(path);
      return;
    }
    const Manifest manifest = ManifestIn(directory);
    if (options_.choice.Has(manifest)) {
      ReadImage(directory, manifest);
    }
  }

  void ReadArchive(const std::string& path) {
    ForEachChosen(
        Store(path), options_.choice,
        [this](const Directory& image, const Manifest& manifest) {
          Try([&] { ReadImage(image, manifest); });
        },
        [this](const ArchiveError& error) { Complain(error.what(), kArchiveFailed); });
  }

  void ReadImage(const Directory& image, const Manifest& manifest) {
    const std::string path = image.PathOf(manifest.document.file);
    const std::uint64_t begin = EntriesBegin(image, manifest);
    DocumentReader reader = OpenDocument(image, manifest.document);
    const std::uint64_t entries = Read(&reader, &manifest, begin);
    if (entries != manifest.entries) {
      throw DocumentError(path + ": " + std::to_string(entries) + " entries, but " +
                          std::to_string(manifest.entries) + " in the manifest");
    }
  }

  static std::uint64_t EntriesBegin(const Directory& image, const Manifest& manifest) {
    const PathFilterReader filter(image, manifest.document.sha256);
    if (filter.is_right()) {
      return filter.entries_begin();
    }
    DocumentReader reader = OpenDocument(image, manifest.document);
    return FindEntries(&reader);
  }

  void ReadFile(Descriptor file, const std::string& path) {
    DocumentReader first(Descriptor(dup(file.get())), path, DocumentReader::Packing::kAsItBegins);
    const std::uint64_t begin = FindEntries(&first);
    if (lseek(file.get(), 0, SEEK_SET) != 0) {
      throw SystemError("read", path);
    }
    DocumentReader reader(std::move(file), path, DocumentReader::Packing::kAsItBegins);
    Read(&reader, nullptr, begin);
  }

  void ReadStream(Descriptor file, const std::string& path) {
    DocumentReader reader(std::move(file), path, DocumentReader::Packing::kAsItBegins);
    Read(&reader, nullptr, std::nullopt);
  }

  /// Returns the number of entries, which begin at `begin`; of a stream that is not known.
  std::uint64_t Read(DocumentReader* reader, const Manifest* manifest,
                     std::optional<std::uint64_t> begin) {
    const auto fail = [&](const std::string& what) {
      return DocumentError(reader->path() + ": " + what);
    };
    lines_.Begin(manifest);
    DocumentParser parser([&](const RawEntry& entry) { Add(entry, parser, reader->path()); });
    if (begin) {
      parser.TakeOnlyFrom(*begin);
    }
    ReadPieces(reader, [&](std::string_view piece) {
      parser.Parse(piece);
      if (parser.has_given_others()) {
        throw fail("two \"fentries\", of which the last counts: can't tell in a stream");
      }
    });
    std::string error;
    const std::optional<std::uint64_t> entries = parser.Finish(&error);
    if (!entries) {
      throw fail(error);
    }
    return *entries;
  }

  /// An entry of the last "fentries", as far as `parser` knows.
  void Add(const RawEntry& entry, const DocumentParser& parser, const std::string& path) {
    if (!parser.has_given_others() && !lines_.Add(entry)) {
      throw DocumentError(path + ": no document: wrong at byte " + std::to_string(entry.offset));
    }
  }

  const EntriesOptions& options_;
  Lines lines_;
  int status_ = kAllIsWell;
};

}  // namespace

std::optional<std::vector<std::size_t>> ParseColumns(std::string_view text) {
  std::vector<std::size_t> columns;
  while (true) {
    const std::size_t end = std::min(text.find(','), text.size());
    const auto* const found =
        std::find(kColumnNames.begin(), kColumnNames.end(), std::string(text.substr(0, end)));
    if (found == kColumnNames.end()) {
      return std::nullopt;
    }
    columns.push_back(static_cast<std::size_t>(found - kColumnNames.begin()));
    if (end == text.size()) {
      return columns;
    }
    text.remove_prefix(end + 1);
  }
}

int Entries(const EntriesOptions& options) {
  return EntriesRun(options).Do();
}
