#include "archive/commands/prune.h"

#include <strings.h>
#include <unistd.h>

#include <cstdint>
#include <ctime>
#include <iostream>
#include <map>
#include <optional>
#include <string_view>
#include <unordered_set>
#include <vector>

#include "archive/child_process.h"
#include "archive/manifest.h"
#include "archive/names.h"
#include "archive/prune_plan.h"
#include "archive/status.h"
#include "archive/store.h"

namespace {

void Complain(std::string_view text) {
  std::cerr << Printable(text) << '\n';
}

std::string TimeText(std::int64_t seconds) {
  return Rfc3339(seconds).value_or(std::to_string(seconds));
}

/// What precedes the last '/'.
std::string ParentOf(const std::string& path) {
  return path.substr(0, path.rfind('/'));
}

/// The sets and images that are there, by what a walk of the archive finds.
class Inventory {
 public:
  /// Returns false, after a line on standard error for each, when something can't be read or
  /// doesn't belong there.
  bool Read(const Store& store) {
    const auto complain = [this](const ArchiveError& error) {
      Complain(error.what());
      is_whole_ = false;
    };
    const auto complain_of = [&](const std::string& path, const std::string& error) {
      complain(ArchiveError(store.root().PathOf(path) + ": " + error));
    };
    store.ForEachManifest(
        [&](const std::string& path, const std::string& text) {
          const std::string error = TakeManifest(path, text);
          if (!error.empty()) {
            complain_of(path, error);
          }
        },
        complain, Store::Strays::kComplained);
    store.ForEachSet(
        [&](const std::string& path, const std::string& text) {
          const std::string error = TakeSet(path, text);
          if (!error.empty()) {
            complain_of(path, error);
          }
        },
        complain, Store::Strays::kComplained);
    return is_whole_;
  }

  [[nodiscard]] const std::vector<KeptImage>& images() const { return images_; }
  [[nodiscard]] const std::vector<KeptSet>& sets() const { return sets_; }

 private:
  /// Returns what is wrong, empty when nothing is.
  std::string TakeManifest(const std::string& path, const std::string& text) {
    const std::string name = ParentOf(path).substr(kImagesDirectory.size() + 1);
    std::string error;
    const std::optional<Manifest> manifest = ReadManifest(text, &error);
    if (!manifest) {
      return error;
    }
    if (!IsOfImage(*manifest, name, "")) {
      return "of another image";
    }
    images_.push_back({.name = name,
                       .series = FileNameOf(manifest->client) + '/' + FileNameOf(manifest->policy) +
                                 '/' + FileNameOf(manifest->schedule),
                       .backup_id = manifest->backup_id,
                       .backup_time = manifest->backup_time,
                       .stored_bytes = manifest->document.stored_bytes});
    return "";
  }

  std::string TakeSet(const std::string& path, const std::string& text) {
    const std::string name = path.substr(kSetsDirectory.size() + 1);
    std::string error;
    const std::optional<SetFile> set = ReadSetFile(text, &error);
    if (!set) {
      return error;
    }
    if (SetNameOf(*set) != name) {
      return "of another set";
    }
    KeptSet& kept = sets_.emplace_back();
    kept.series = ParentOf(name);
    kept.file = name.substr(kept.series.size() + 1);
    kept.create_time = set->create_time;
    for (const std::string& id : set->images) {
      kept.images.push_back(ImageNameOf(id));
    }
    return "";
  }

  std::vector<KeptImage> images_;
  std::vector<KeptSet> sets_;
  bool is_whole_ = true;
};

/// What is removed, or to be.
struct Amount {
  std::size_t sets = 0;
  std::size_t images = 0;
  std::uint64_t bytes = 0;  // of documents

  void Add(const KeptImage& image) {
    ++images;
    bytes += image.stored_bytes;
  }

  void Print(std::string_view what) const {
    std::cout << sets << " sets, " << images << " images, " << bytes << " bytes " << what << '\n';
  }
};

/// One run of the command.
class PruneRun {
 public:
  explicit PruneRun(const PruneOptions& options) : options_(options), store_(options.archive) {}

  int Do() {
    if (!options_.is_dry_run && !store_.Lock()) {
      Complain("another sync or prune works on " + options_.archive);
      return kLocked;
    }
    if (!inventory_.Read(store_)) {
      Complain("nothing removed: what can't be read may need any image");
      return kArchiveFailed;
    }
    plan_ = PlanPrune({.now = now_,
                       .older_than = options_.older_than.duration.count(),
                       .keep_last = options_.keep_last},
                      inventory_.sets(), inventory_.images());
    ShowPlan();
    if (options_.is_dry_run) {
      return kAllIsWell;
    }
    if (IsTooMuch()) {
      Complain(std::to_string(plan_.images.size()) + " of " +
               std::to_string(inventory_.images().size()) +
               " images would go: more than half needs --force");
      return kFound;
    }
    if (!IsConfirmed()) {
      std::cout << "nothing removed\n";
      return kAllIsWell;
    }
    return Remove();
  }

 private:
  void ShowPlan() const {
    Amount planned{.sets = plan_.sets.size()};
    for (const KeptSet* const set : plan_.sets) {
      std::cout << kSetsDirectory << '/' << set->series << '/' << set->file << ": of "
                << TimeText(set->create_time) << ", " << set->images.size() << " images\n";
    }
    for (const KeptImage* const image : plan_.images) {
      std::cout << Printable(image->backup_id) << ": of " << TimeText(image->backup_time) << ", "
                << image->stored_bytes << " bytes\n";
      planned.Add(*image);
    }
    planned.Print("to remove");
    std::cout << std::flush;
  }

  [[nodiscard]] bool IsTooMuch() const {
    return !options_.is_forced && plan_.images.size() > inventory_.images().size() / 2;
  }

  [[nodiscard]] bool IsConfirmed() const {
    const bool is_nothing = plan_.sets.empty() && plan_.images.empty();
    if (options_.is_confirmed || is_nothing || isatty(STDIN_FILENO) != 1 ||
        isatty(STDOUT_FILENO) != 1) {
      return true;
    }
    std::cout << "Remove them? [y/N] " << std::flush;
    std::string answer;
    if (!std::getline(std::cin, answer)) {
      std::cout << '\n';
    }
    return strcasecmp(answer.c_str(), "y") == 0 || strcasecmp(answer.c_str(), "yes") == 0;
  }

  int Remove() {
    Signals signals;
    store_.ClearStaging();
    RemoveSets();
    for (const KeptImage* const image : plan_.images) {
      if (signals.Received() != 0) {
        return kSignalled + signals.Received();
      }
      RemoveImage(*image);
    }
    ClearStaging();
    removed_.Print("removed");
    return has_failed_ ? kFound : kAllIsWell;
  }

  /// Series by series. The members of those that can't be removed are needed still.
  void RemoveSets() {
    std::map<std::string_view, std::vector<const KeptSet*>> sets_by_series;
    for (const KeptSet* const set : plan_.sets) {
      sets_by_series[set->series].push_back(set);
    }
    for (const auto& [series, sets] : sets_by_series) {
      RemoveSetsOf(std::string(series), sets);
    }
  }

  void RemoveSetsOf(const std::string& series, const std::vector<const KeptSet*>& sets) {
    std::vector<std::string> files;
    files.reserve(sets.size());
    for (const KeptSet* const set : sets) {
      files.push_back(set->file);
    }
    try {
      store_.RemoveSets(series, files);
      removed_.sets += files.size();
    } catch (const ArchiveError& error) {
      Fail(error.what());
      for (const KeptSet* const set : sets) {
        needed_.insert(set->images.begin(), set->images.end());
      }
    }
  }

  void RemoveImage(const KeptImage& image) {
    if (needed_.contains(image.name)) {
      Fail(image.backup_id + ": not removed: its set is there");
      return;
    }
    try {
      store_.PruneImage(image.name, now_);
      removed_.Add(image);
    } catch (const ArchiveError& error) {
      Fail(image.backup_id + ": not removed: " + error.what());
    }
  }

  void ClearStaging() {
    try {
      store_.ClearStaging();
    } catch (const ArchiveError& error) {
      Fail(error.what());
    }
  }

  void Fail(std::string_view text) {
    Complain(text);
    has_failed_ = true;
  }

  const PruneOptions& options_;
  Store store_;
  std::int64_t now_ = std::time(nullptr);
  Inventory inventory_;
  PrunePlan plan_;
  std::unordered_set<std::string> needed_;  // images
  Amount removed_;
  bool has_failed_ = false;
};

}  // namespace

int Prune(const PruneOptions& options) {
  return PruneRun(options).Do();
}
