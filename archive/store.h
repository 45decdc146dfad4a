#ifndef QUILLMERE_ARCHIVE_STORE_H_
#define QUILLMERE_ARCHIVE_STORE_H_

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_set>
#include <vector>

#include "archive/directory.h"
#include "archive/manifest.h"
#include "archive/units.h"

// Names of what is in an archive; docs/archive.md is the contract.
inline const std::string kArchiveFile = "archive.json";
inline const std::string kImagesDirectory = "images";
inline const std::string kSetsDirectory = "sets";
inline const std::string kPrunedDirectory = "pruned";
inline const std::string kStagingDirectory = ".staging";
inline const std::string kLockFile = ".lock";
inline const std::string kManifestFile = "manifest.json";
inline const std::string kSumsFile = "SHA256SUMS";
inline const std::string kMarkSuffix = ".json";

/// Where an image is below kImagesDirectory, "CLIENT/ID" in file names.
std::string ImageNameOf(std::string_view backup_id);

/// True when `manifest` is that of the image which is called `name` there, but for the `suffix`.
bool IsOfImage(const Manifest& manifest, std::string_view name, std::string_view suffix);

/// Where a set is below kSetsDirectory, "CLIENT/POLICY/SCHEDULE/TIME.json" in file names.
std::string SetNameOf(const SetFile& set);

/// What a SHA256SUMS holds.
std::string SumsOf(const DocumentFacts& document, std::string_view manifest_text);

/// Where one image is made.
struct Staging {
  std::string name;  ///< in the staging directory
  Directory work;    ///< for whatever is needed meanwhile
  Directory image;   ///< what becomes the image's directory
};

/// Gives an image whose document is staged its manifest and its sums, durably. Throws an
/// ArchiveError.
void WriteManifest(const Staging& staging, const Manifest& manifest);

/// An archive on disk. This is the only place that moves, syncs and removes what is in one. What
/// fails throws an ArchiveError.
class Store {
 public:
  /// Makes an archive in the directory `path`, which is made if need be and has to be empty.
  static void Create(const std::string& path, const ArchiveInfo& info);

  /// Opens the archive at `path`.
  explicit Store(const std::string& path);

  [[nodiscard]] const ArchiveInfo& info() const { return info_; }
  [[nodiscard]] const Directory& root() const { return root_; }

  /// Keeps others from writing until this process ends. Returns false when one of them does.
  bool Lock();

  /// True when less than `space` is free.
  [[nodiscard]] bool HasLessFreeThan(const FreeSpace& space) const;

  /// Removes what interrupted runs left behind.
  void ClearStaging() const;

  [[nodiscard]] Staging NewStaging();
  void Discard(const Staging& staging) const;

  /// Gives an image that is staged whole its place, durably.
  void Install(const Staging& staging, const std::string& backup_id) const;

  /// The images that are there, as ImageNameOf has them.
  [[nodiscard]] std::unordered_set<std::string> ImageNames() const;

  /// The images that are marked as pruned, in the same form.
  [[nodiscard]] std::unordered_set<std::string> MarkNames() const;

  /// Leaves the mark of an image that was pruned at the time `now`, and then removes the image,
  /// both durably.
  void PruneImage(const std::string& name, std::int64_t now);

  void RemoveMark(const std::string& name) const;

  /// Where the sets of a series are. Nothing when there are none, unless it `is_made`.
  [[nodiscard]] std::optional<Directory> FindSeries(const std::string& client,
                                                    const std::string& policy,
                                                    const std::string& schedule,
                                                    bool is_made) const;

  /// Writes or replaces files of a series, each in one step. Their names are durable once the
  /// series is synced.
  struct NewFile {
    std::string name;
    std::string text;
  };
  void PutSets(const Directory& series, const std::vector<NewFile>& sets) const;

  /// Removes files of the series "CLIENT/POLICY/SCHEDULE" in file names, durably.
  void RemoveSets(const std::string& series, const std::vector<std::string>& files) const;
  /// Calls `visit` with the directory of each series that has sets, and `complain` with what can't
  /// be read, in byte order of the paths.
  using Complain = std::function<void(const ArchiveError& error)>;
  void ForEachSeries(const std::function<void(const Directory& series)>& visit,
                     const Complain& complain) const;

  /// Calls `take` with the path below the archive and the text of each manifest or set file, and
  /// `complain` with what can't be read, in byte order of the paths. Nothing is said of what goes
  /// meanwhile, nor, unless told, of what doesn't belong there.
  using Take = std::function<void(const std::string& path, const std::string& text)>;
  enum class Strays : std::uint8_t { kPassedOver, kComplained };
  void ForEachManifest(const Take& take, const Complain& complain,
                       Strays strays = Strays::kPassedOver) const;
  void ForEachSet(const Take& take, const Complain& complain,
                  Strays strays = Strays::kPassedOver) const;

 private:
  std::string NewStagingName();

  Directory root_;
  ArchiveInfo info_;
  Descriptor lock_;
  std::size_t staging_count_ = 0;
};

#endif  // QUILLMERE_ARCHIVE_STORE_H_
