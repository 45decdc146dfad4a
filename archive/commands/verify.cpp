#include "archive/commands/verify.h"

#include <algorithm>
#include <array>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <iostream>
#include <memory>
#include <mutex>
#include <optional>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "archive/document.h"
#include "archive/manifest.h"
#include "archive/names.h"
#include "archive/path_filter.h"
#include "archive/sha256.h"
#include "archive/status.h"
#include "archive/store.h"
#include "archive/stored_document.h"
#include "archive/units.h"

namespace {

using Kind = Directory::Kind;

/// What was found, by all threads.
class Findings {
 public:
  /// "PATH: WHAT", with the path below the archive.
  void Add(const std::string& path, const std::string& what) {
    const std::scoped_lock lock(mutex_);
    std::cout << Printable(path) << ": " << Printable(what) << '\n' << std::flush;
    ++problems_;
  }

  void AddImage(std::uint64_t bytes) {
    const std::scoped_lock lock(mutex_);
    ++images_;
    bytes_ += bytes;
  }

  void AddSet() { ++sets_; }

  /// Prints the summary. Returns whether there was any problem.
  [[nodiscard]] bool Finish() const {
    std::cout << images_ << " images, " << sets_ << " sets, " << bytes_ << " bytes: " << problems_
              << " problems\n";
    return problems_ > 0;
  }

 private:
  std::mutex mutex_;
  std::uint64_t images_ = 0;
  std::uint64_t sets_ = 0;
  std::uint64_t bytes_ = 0;
  std::uint64_t problems_ = 0;
};

/// Tasks for some threads. Who adds one waits while many are waiting already: what is to be done of
/// a large archive is not held in memory.
class Tasks {
 public:
  using Task = std::function<void()>;

  explicit Tasks(std::size_t threads) : most_(4 * threads) {
    for (std::size_t i = 0; i < threads; ++i) {
      threads_.emplace_back([this] { Work(); });
    }
  }

  ~Tasks() { Finish(); }
  Tasks(const Tasks&) = delete;
  Tasks& operator=(const Tasks&) = delete;

  void Add(Task task) {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [this] { return tasks_.size() < most_; });
    tasks_.push_back(std::move(task));
    changed_.notify_all();
  }

  /// Returns when all tasks are done.
  void Finish() {
    for (std::size_t i = 0; i < threads_.size(); ++i) {
      Add(nullptr);
    }
    for (std::thread& thread : threads_) {
      thread.join();
    }
    threads_.clear();
  }

 private:
  void Work() {
    while (const Task task = Next()) {
      task();
    }
  }

  Task Next() {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [this] { return !tasks_.empty(); });
    Task task = std::move(tasks_.front());
    tasks_.pop_front();
    changed_.notify_all();
    return task;
  }

  std::size_t most_;
  std::mutex mutex_;
  std::condition_variable changed_;
  std::deque<Task> tasks_;  // an empty one ends a thread
  std::vector<std::thread> threads_;
};

/// An image's directory.
class ImageCheck {
 public:
  ImageCheck(const Directory& client, std::string client_name, std::string name, Findings* findings)
      : client_(client),
        client_name_(std::move(client_name)),
        name_(std::move(name)),
        path_(kImagesDirectory + '/' + client_name_ + '/' + name_),
        findings_(findings) {}

  void Run() {
    try {
      Check(client_.Open(name_));
    } catch (const ArchiveError& error) {
      AddTo(path_, error.what());
    }
  }

 private:
  void Check(const Directory& image) {
    const std::optional<std::string> text = image.Read(kManifestFile);
    std::string error = "no such file";
    const std::optional<Manifest> manifest = text ? ReadManifest(*text, &error) : std::nullopt;
    if (manifest) {
      CheckManifest(*manifest);
      CheckSums(image, SumsOf(manifest->document, *text));
      CheckDocument(image, *manifest);
    } else {
      Add(kManifestFile, error);
      findings_->AddImage(0);
    }
    for (const Directory::Entry& entry : image.List()) {
      if (!BelongsHere(entry)) {
        Add(entry.name, "does not belong here");
      }
    }
  }

  void Add(const std::string& file, const std::string& what) { AddTo(path_ + '/' + file, what); }

  void AddTo(const std::string& path, const std::string& what) {
    // A prune takes an image from its place before it touches what is in it.
    if (client_.Has(name_)) {
      findings_->Add(path, what);
    }
  }

  [[nodiscard]] bool IsDocument(const std::string& name) const {
    return name == name_ + ".json" || name == name_ + ".json.zst";
  }

  [[nodiscard]] bool BelongsHere(const Directory::Entry& entry) const {
    return entry.kind == Kind::kFile && (entry.name == kManifestFile || entry.name == kSumsFile ||
                                         entry.name == kFilterFile || IsDocument(entry.name));
  }

  void CheckManifest(const Manifest& manifest) {
    if (!IsOfImage(manifest, client_name_ + '/' + name_, "")) {
      Add(kManifestFile, "of another image");
    }
  }

  void CheckSums(const Directory& image, const std::string& expected) {
    const std::optional<std::string> sums = image.Read(kSumsFile);
    if (!sums) {
      Add(kSumsFile, "no such file");
    } else if (*sums != expected) {
      Add(kSumsFile, "does not agree with the manifest");
    }
  }

  void CheckDocument(const Directory& image, const Manifest& manifest) {
    const DocumentFacts& expected = manifest.document;
    if (!IsDocument(expected.file)) {
      Add(kManifestFile, "names another document");
      findings_->AddImage(0);
      return;
    }
    DocumentFacts found;
    PathFilterCheck filter(image, expected.sha256);
    DocumentParser entries([&](const RawEntry& entry) { filter.Take(entry); });
    try {
      Read(image, expected.file, &found, &entries);
    } catch (const ArchiveError& error) {
      Add(expected.file, error.what());
      findings_->AddImage(found.stored_bytes);
      return;
    }
    findings_->AddImage(found.stored_bytes);
    Compare(expected, found);
    CompareEntries(expected.file, manifest.entries, entries);
    if (found.sha256 == expected.sha256 && image.Has(kFilterFile) && !filter.Finish(entries)) {
      Add(kFilterFile, "does not agree with the document");
    }
  }

  /// What a document is, in *found as far as it can be read.
  static void Read(const Directory& image, const std::string& file, DocumentFacts* found,
                   DocumentParser* entries) {
    const bool is_compressed = IsCompressed(file);
    Sha256 stored_hash;
    Sha256 hash;
    const auto take_stored = [&](std::string_view piece) {
      found->stored_bytes += piece.size();
      stored_hash.Take(piece);
    };
    const auto take_plain = [&](std::string_view piece) {
      found->bytes += piece.size();
      entries->Parse(piece);
      if (is_compressed) {
        hash.Take(piece);
      }
    };
    ReadDocument(image, file, take_stored, take_plain);
    found->stored_sha256 = stored_hash.Finish();
    found->sha256 = is_compressed ? hash.Finish() : found->stored_sha256;
  }

  void Compare(const DocumentFacts& expected, const DocumentFacts& found) {
    const auto compare = [&](const auto& ours, const auto& theirs, const std::string& what) {
      if (ours != theirs) {
        Add(expected.file, what + " not that of the manifest");
      }
    };
    compare(found.stored_bytes, expected.stored_bytes, "size of the file is");
    compare(found.stored_sha256, expected.stored_sha256, "checksum of the file is");
    compare(found.bytes, expected.bytes, "size of the document is");
    compare(found.sha256, expected.sha256, "checksum of the document is");
  }

  void CompareEntries(const std::string& file, std::uint64_t expected,
                      const DocumentParser& entries) {
    std::string error;
    const std::optional<std::uint64_t> found = entries.Finish(&error);
    if (!found) {
      Add(file, error);
    } else if (*found != expected) {
      Add(file, std::to_string(*found) + " entries, but " + std::to_string(expected) +
                    " in the manifest");
    }
  }

  const Directory& client_;
  std::string client_name_;
  std::string name_;
  std::string path_;
  Findings* findings_;
};

class Verification {
 public:
  explicit Verification(const VerifyOptions& options)
      : store_(options.archive), tasks_(options.jobs) {}

  int Run() {
    CheckRoot();
    const auto check_client = [this](const Directory& images, const std::string& name) {
      CheckClient(std::make_shared<const Directory>(images.Open(name)), name);
    };
    if (const std::optional<Directory> images = store_.root().Find(kImagesDirectory)) {
      ForEachEntry(*images, kImagesDirectory, Kind::kDirectory, check_client);
    }
    tasks_.Finish();
    if (const std::optional<Directory> sets = store_.root().Find(kSetsDirectory)) {
      constexpr int kDepth = 3;  // client, policy, schedule
      CheckSets(*sets, kSetsDirectory, kDepth);
    }
    if (const std::optional<Directory> pruned = store_.root().Find(kPrunedDirectory)) {
      CheckMarks(*pruned);
    }
    return findings_.Finish() ? kFound : kAllIsWell;
  }

 private:
  void CheckRoot() {
    const std::array<std::pair<std::string_view, Kind>, 7> kKnown = {{
        {kArchiveFile, Kind::kFile},
        {kLockFile, Kind::kFile},
        {kImagesDirectory, Kind::kDirectory},
        {kSetsDirectory, Kind::kDirectory},
        {kPrunedDirectory, Kind::kDirectory},
        {kStagingDirectory, Kind::kDirectory},
        {"lost+found", Kind::kDirectory},
    }};
    for (const Directory::Entry& entry : store_.root().List()) {
      const std::pair<std::string_view, Kind> found(entry.name, entry.kind);
      if (std::find(kKnown.begin(), kKnown.end(), found) == kKnown.end()) {
        findings_.Add(entry.name, "does not belong here");
      }
    }
  }

  /// Calls `check` for each entry of `directory`, called `path`, that is of `kind`. Others don't
  /// belong there.
  void ForEachEntry(const Directory& directory, const std::string& path, Kind kind,
                    const std::function<void(const Directory&, const std::string&)>& check) {
    for (const Directory::Entry& entry : directory.List()) {
      std::string entry_path = path;
      entry_path.append(1, '/').append(entry.name);
      if (entry.kind != kind) {
        findings_.Add(entry_path, "does not belong here");
        continue;
      }
      try {
        check(directory, entry.name);
      } catch (const ArchiveError& error) {
        findings_.Add(entry_path, error.what());
      }
    }
  }

  void CheckClient(const std::shared_ptr<const Directory>& client, const std::string& name) {
    ForEachEntry(*client, kImagesDirectory + '/' + name, Kind::kDirectory,
                 [&](const Directory& /*client*/, const std::string& image) {
                   tasks_.Add([this, client, name, image] {
                     ImageCheck(*client, name, image, &findings_).Run();
                   });
                 });
  }

  /// Checks the sets that are `depth` directories below `directory`, which is called `path`.
  void CheckSets(const Directory& directory, const std::string& path, int depth) {
    ForEachEntry(directory, path, depth == 0 ? Kind::kFile : Kind::kDirectory,
                 [&](const Directory& parent, const std::string& name) {
                   const std::string entry_path = path + '/' + name;
                   if (depth == 0) {
                     CheckSet(parent, name, entry_path);
                   } else {
                     CheckSets(parent.Open(name), entry_path, depth - 1);
                   }
                 });
  }

  void CheckSet(const Directory& series, const std::string& name, const std::string& path) {
    const std::optional<std::string> text = series.Read(name);
    if (!text) {
      return;  // A sync or a prune removed it meanwhile.
    }
    findings_.AddSet();
    std::string error;
    const std::optional<SetFile> set = ReadSetFile(*text, &error);
    if (!set) {
      findings_.Add(path, error);
      return;
    }
    if (path != kSetsDirectory + '/' + SetNameOf(*set)) {
      findings_.Add(path, "of another set");
    }
    for (const std::string& id : set->images) {
      // A prune removes a set before its images.
      if (!HasImage(id) && series.Has(name)) {
        findings_.Add(path, "the image " + id + " is not there");
      }
    }
  }

  void CheckMarks(const Directory& pruned) {
    ForEachEntry(pruned, kPrunedDirectory, Kind::kDirectory,
                 [this](const Directory& parent, const std::string& client) {
                   ForEachEntry(parent.Open(client), kPrunedDirectory + '/' + client, Kind::kFile,
                                [&](const Directory& marks, const std::string& name) {
                                  CheckMark(marks.Read(name), client + '/' + name);
                                });
                 });
  }

  void CheckMark(const std::optional<std::string>& text, const std::string& name) {
    if (!text) {
      return;  // A sync removed it meanwhile.
    }
    std::string error;
    const std::optional<Manifest> manifest = ReadMark(*text, &error);
    if (!manifest) {
      findings_.Add(kPrunedDirectory + '/' + name, error);
    } else if (!IsOfImage(*manifest, name, kMarkSuffix)) {
      findings_.Add(kPrunedDirectory + '/' + name, "of another image");
    }
  }

  /// Looked up in the archive: a sync that runs has put it there before the set.
  [[nodiscard]] bool HasImage(const std::string& backup_id) const {
    const std::optional<Directory> images = store_.root().Find(kImagesDirectory);
    const std::optional<Directory> client =
        images ? images->Find(FileNameOf(ClientOf(backup_id))) : std::nullopt;
    return client && client->Find(FileNameOf(backup_id));
  }

  Store store_;
  Findings findings_;
  Tasks tasks_;
};

}  // namespace

int Verify(const VerifyOptions& options) {
  return Verification(options).Run();
}
