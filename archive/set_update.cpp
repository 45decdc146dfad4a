#include "archive/set_update.h"

#include <algorithm>
#include <map>
#include <optional>
#include <string_view>
#include <tuple>

#include "archive/names.h"

namespace {

/// Client, policy and schedule.
using SeriesKey = std::tuple<std::string_view, std::string_view, std::string_view>;

/// The set files of one series.
class SeriesUpdate {
 public:
  SeriesUpdate(const Store& store, const SeriesKey& series,
               const std::unordered_set<std::string>& images,
               const std::unordered_set<std::string>& pruned, SyncCounts* counts)
      : store_(store), images_(images), pruned_(pruned), counts_(counts) {
    std::tie(client_, policy_, schedule_) = series;
    directory_ = store_.FindSeries(client_, policy_, schedule_, false);
  }

  void Run(const std::vector<const BackupSet*>& sets) {
    for (const BackupSet* const set : sets) {
      Take(*set);
    }
    if (!changed_.empty()) {
      WriteChanged();
    }
    if (directory_) {
      RemoveSuperseded();
    }
    if (is_changed_) {
      directory_->Sync();
    }
  }

 private:
  void Take(const BackupSet& set) {
    const std::string name = FileNameOf(TimeOf(set.backup_id)) + ".json";
    if (!listed_.insert(name).second) {
      return;
    }
    if (!std::all_of(set.image_ids.begin(), set.image_ids.end(),
                     [this](std::string_view id) { return images_.contains(ImageNameOf(id)); })) {
      if (!HasPruned(set)) {
        ++counts_->sets_waiting;
      }
      return;
    }
    covered_.insert(set.image_ids.begin(), set.image_ids.end());
    const std::string text =
        TextOf(SetFile{.server = store_.info().server,
                       .client = client_,
                       .policy = policy_,
                       .schedule = schedule_,
                       .backup_id = std::string(set.backup_id),
                       .create_time = set.create_time,
                       .size_bytes = set.backup_size,
                       .images = {set.image_ids.begin(), set.image_ids.end()}});
    if (directory_ && directory_->Read(name) == text) {
      return;
    }
    changed_.push_back({name, text});
  }

  void WriteChanged() {
    if (!directory_) {
      directory_ = store_.FindSeries(client_, policy_, schedule_, true);
    }
    store_.PutSets(*directory_, changed_);
    counts_->sets_written += changed_.size();
    is_changed_ = true;
  }

  [[nodiscard]] bool HasPruned(const BackupSet& set) const {
    return std::any_of(set.image_ids.begin(), set.image_ids.end(),
                       [this](std::string_view id) { return pruned_.contains(ImageNameOf(id)); });
  }

  void RemoveSuperseded() {
    for (const Directory::Entry& entry : directory_->List()) {
      if (entry.kind == Directory::Kind::kFile && !listed_.contains(entry.name) &&
          IsSuperseded(entry.name)) {
        directory_->Remove(entry.name);
        is_changed_ = true;
        ++counts_->sets_removed;
      }
    }
  }

  /// True when each member of the set in the file `name` is in a set that was listed.
  [[nodiscard]] bool IsSuperseded(const std::string& name) const {
    std::string error;
    const std::optional<SetFile> set = ReadSetFile(directory_->Read(name).value_or(""), &error);
    return set && std::all_of(set->images.begin(), set->images.end(),
                              [this](const std::string& id) { return covered_.contains(id); });
  }

  const Store& store_;
  const std::unordered_set<std::string>& images_;
  const std::unordered_set<std::string>& pruned_;
  SyncCounts* counts_;
  std::string client_;
  std::string policy_;
  std::string schedule_;
  std::optional<Directory> directory_;
  std::unordered_set<std::string> listed_;        // file names
  std::unordered_set<std::string_view> covered_;  // backup ids
  std::vector<Store::NewFile> changed_;
  bool is_changed_ = false;
};

}  // namespace

bool UpdateSets(const Store& store, const std::vector<const BackupSet*>& sets,
                const std::unordered_set<std::string>& images,
                const std::unordered_set<std::string>& pruned, const Store::Complain& complain,
                SyncCounts* counts) {
  std::map<SeriesKey, std::vector<const BackupSet*>> sets_by_series;
  for (const BackupSet* const set : sets) {
    sets_by_series[{set->client, set->policy, set->schedule}].push_back(set);
  }
  bool is_all_well = true;
  for (const auto& [series, its_sets] : sets_by_series) {
    try {
      SeriesUpdate(store, series, images, pruned, counts).Run(its_sets);
    } catch (const ArchiveError& error) {
      complain(error);
      is_all_well = false;
    }
  }
  return is_all_well;
}
