#include "archive/commands/sync.h"

#include <unistd.h>

#include <algorithm>
#include <ctime>
#include <iostream>
#include <list>
#include <memory>
#include <string_view>
#include <unordered_set>

#include "archive/catalogue.h"
#include "archive/child_process.h"
#include "archive/metrics.h"
#include "archive/progress.h"
#include "archive/set_update.h"
#include "archive/status.h"
#include "archive/store.h"
#include "archive/worker.h"
#include "catalog/backup_sets.h"

namespace {

bool IsChosen(const std::vector<std::string>& chosen, std::string_view name) {
  return chosen.empty() || std::find(chosen.begin(), chosen.end(), name) != chosen.end();
}

/// True for an image or a set of a series that is chosen.
template <class Record>
bool IsOfChosenSeries(const SyncOptions& options, const Record& record) {
  return IsChosen(options.clients, record.client) && IsChosen(options.policies, record.policy) &&
         IsChosen(options.schedules, record.schedule);
}

bool IsTooOld(const SyncOptions& options, const BackupImage& image, std::int64_t now) {
  return options.newer_than && image.backup_time > 0 &&
         now - image.backup_time > options.newer_than->duration.count();
}

/// What is to be exported of the listed images, newest first.
std::vector<const BackupImage*> Chosen(const SyncOptions& options, const Listing& listing,
                                       const std::unordered_set<std::string>& held,
                                       const std::unordered_set<std::string>& pruned,
                                       std::int64_t now) {
  const auto is_done = [&](const BackupImage& image) {
    const std::string name = ImageNameOf(image.backup_id);
    return held.contains(name) || (!options.is_again && pruned.contains(name));
  };
  std::unordered_set<std::string_view> seen(options.skipped.begin(), options.skipped.end());
  std::vector<const BackupImage*> chosen;
  for (const BackupImage& image : listing.images) {
    // Without files, it is a parent image. An id that comes twice is one image.
    if (image.files != 0 && IsOfChosenSeries(options, image) && !IsTooOld(options, image, now) &&
        !is_done(image) && seen.insert(image.backup_id).second) {
      chosen.push_back(&image);
    }
  }
  std::stable_sort(chosen.begin(), chosen.end(), [](const BackupImage* a, const BackupImage* b) {
    return a->backup_time > b->backup_time;
  });
  chosen.resize(std::min(chosen.size(), options.limit.value_or(chosen.size())));
  return chosen;
}

std::uint64_t FilesOf(const BackupImage& image) {
  return static_cast<std::uint64_t>(std::max(image.files, 0));
}

/// What is known of an image before it is exported.
Manifest ManifestOf(const BackupImage& image, const std::string& server) {
  return {.program = kProgram,
          .server = server,
          .client = std::string(image.client),
          .policy = std::string(image.policy),
          .schedule = std::string(image.schedule),
          .backup_id = std::string(image.backup_id),
          .backup_time = image.backup_time,
          .size = std::string(image.size),
          .size_bytes = BytesFromSize(image.size),
          .files = image.files,
          .exported = std::time(nullptr),
          .export_seconds = 0,
          .document = {},
          .entries = 0,
          .commands = {}};
}

/// An image at work.
struct Job {
  const BackupImage* image;
  ExportRequest request;
  Staging staging;
  ChildProcess process;

  Job(const BackupImage* job_image, ExportRequest job_request, Staging job_staging)
      : image(job_image),
        request(std::move(job_request)),
        staging(std::move(job_staging)),
        process([this](int results) { ExportImage(request, staging, results); }) {}
};

/// The exports of one run.
class Exports {
 public:
  Exports(const SyncOptions& options, Store* store, Signals* signals, Progress* progress,
          SyncCounts* counts)
      : options_(options), store_(store), signals_(signals), progress_(progress), counts_(counts) {}

  void Run(const std::vector<const BackupImage*>& images) {
    std::size_t next = 0;
    while (signals_->Received() == 0 && (!jobs_.empty() || (next < images.size() && HasRoom()))) {
      while (jobs_.size() < options_.jobs && next < images.size() && HasRoom()) {
        const BackupImage* const image = images[next++];
        Start(*image);
      }
      Wait();
      TakeFinished();
      progress_->Tick();
    }
    EndAll();
    left_out_ = images.size() - next;
  }

  /// Images that were not begun.
  [[nodiscard]] std::size_t left_out() const { return left_out_; }
  [[nodiscard]] const std::vector<const BackupImage*>& failed() const { return failed_; }
  [[nodiscard]] const std::vector<const BackupImage*>& exported() const { return exported_; }

 private:
  [[nodiscard]] bool HasRoom() const {
    return !options_.keep_free || !store_->HasLessFreeThan(*options_.keep_free);
  }

  void Start(const BackupImage& image) {
    try {
      jobs_.emplace_back(
          &image,
          ExportRequest{.manifest = ManifestOf(image, store_->info().server),
                        .compression_level = static_cast<int>(store_->info().compression_level),
                        .timeout = options_.timeout},
          store_->NewStaging());
    } catch (const ArchiveError& error) {
      Fail(image, error.what());
    }
  }

  void Wait() const {
    std::vector<const ChildProcess*> processes;
    for (const Job& job : jobs_) {
      processes.push_back(&job.process);
    }
    if (!processes.empty()) {
      WaitForAny(processes, *signals_);
    }
  }

  void TakeFinished() {
    const bool has_room = HasRoom();
    for (auto job = jobs_.begin(); job != jobs_.end();) {
      if (!job->process.Read()) {
        Finish(&*job);
      } else if (!has_room) {
        job->process.End();
        Discard(*job);
        Fail(*job->image, "less than " + options_.keep_free->text + " free");
      } else {
        ++job;
        continue;
      }
      job = jobs_.erase(job);
    }
  }

  void Finish(Job* job) {
    ExportResult result = ResultOf(job);
    for (const CommandRun& run : result.commands) {
      for (const std::string& line : run.complaints) {
        progress_->Complain(job->image->backup_id, line);
        ++counts_->warnings;
      }
    }
    if (result.failure.empty()) {
      result.failure = Install(*job, result);
    }
    Discard(*job);
    if (!result.failure.empty()) {
      Fail(*job->image, result.failure);
    }
  }

  static ExportResult ResultOf(Job* job) {
    const std::string& results = job->process.results();
    std::optional<ExportResult> result = ReadExportResult(results);
    if (result && result->failure.empty()) {
      job->process.Wait();
      return *std::move(result);
    }
    const int status = job->process.End();
    if (!result) {
      result.emplace().failure = FailureOfWorker(job->request, results, status);
    }
    return *std::move(result);
  }

  /// Returns the reason when that fails.
  std::string Install(const Job& job, const ExportResult& result) {
    const BackupImage& image = *job.image;
    try {
      store_->Install(job.staging, job.request.manifest.backup_id);
    } catch (const ArchiveError& error) {
      return error.what();
    }
    exported_.push_back(&image);
    ++counts_->exported;
    counts_->stored_bytes += result.stored_bytes;
    progress_->Exported(image.backup_id, FilesOf(image), result.entries, result.stored_bytes);
    if (static_cast<std::int64_t>(result.entries) != image.files) {
      progress_->Complain(image.backup_id, std::to_string(result.entries) + " entries, but " +
                                               std::to_string(image.files) + " files listed");
      ++counts_->warnings;
    }
    return "";
  }

  void Discard(const Job& job) const {
    try {
      store_->Discard(job.staging);
    } catch (const ArchiveError& error) {
      progress_->Complain(error.what());
    }
  }

  void Fail(const BackupImage& image, const std::string& reason) {
    failed_.push_back(&image);
    ++counts_->failed;
    progress_->Failed(image.backup_id, FilesOf(image), reason);
  }

  void EndAll() {
    for (Job& job : jobs_) {
      job.process.End();
      Discard(job);
    }
    jobs_.clear();
  }

  const SyncOptions& options_;
  Store* store_;
  Signals* signals_;
  Progress* progress_;
  SyncCounts* counts_;
  std::list<Job> jobs_;
  std::vector<const BackupImage*> failed_;
  std::vector<const BackupImage*> exported_;
  std::size_t left_out_ = 0;
};

/// One run of the command.
class SyncRun {
 public:
  SyncRun(const SyncOptions& options, Signals* signals)
      : options_(options),
        store_(options.archive),
        signals_(signals),
        progress_(options.is_quiet, isatty(STDOUT_FILENO) == 1) {}

  int Do() {
    if (!options_.is_dry_run && !store_.Lock()) {
      progress_.Complain("another sync or prune works on " + options_.archive);
      return kLocked;
    }
    listing_ = ListCatalogue(options_.timeout, signals_);
    if (signals_->Received() != 0) {
      return kSignalled + signals_->Received();
    }
    if (!listing_.failure.empty()) {
      progress_.Complain("the listing failed: " + listing_.failure);
      return kNoListing;
    }
    held_ = store_.ImageNames();
    pruned_ = store_.MarkNames();
    const std::vector<const BackupImage*> images =
        Chosen(options_, listing_, held_, pruned_, std::time(nullptr));
    return options_.is_dry_run ? Tell(images) : Export(images);
  }

  [[nodiscard]] const Store& store() const { return store_; }
  [[nodiscard]] const SyncCounts& counts() const { return counts_; }

 private:
  int Tell(const std::vector<const BackupImage*>& images) {
    for (const BackupImage* const image : images) {
      progress_.Say(image->backup_id, "would be exported");
    }
    progress_.FinishDryRun(images.size());
    return kAllIsWell;
  }

  int Export(const std::vector<const BackupImage*>& images) {
    store_.ClearStaging();
    std::uint64_t files = 0;
    for (const BackupImage* const image : images) {
      files += FilesOf(*image);
    }
    progress_.Begin(images.size(), files);
    Exports exports(options_, &store_, signals_, &progress_, &counts_);
    exports.Run(images);
    ClearStaging();
    for (const BackupImage* const image : exports.exported()) {
      held_.insert(ImageNameOf(image->backup_id));
    }
    if (signals_->Received() == 0 && !exports.failed().empty()) {
      TellExpired(exports.failed());
    }
    if (signals_->Received() != 0) {
      return kSignalled + signals_->Received();
    }
    if (exports.left_out() > 0) {
      progress_.Complain("less than " + options_.keep_free->text +
                         " free: " + std::to_string(exports.left_out()) + " images left out");
    }
    RemoveMarks();
    const bool are_sets_well = WriteSets();
    if (!are_sets_well) {
      ClearStaging();
    }
    progress_.Finish(counts_);
    return are_sets_well && exports.left_out() == 0 && counts_.failed == 0 ? kAllIsWell : kFound;
  }

  /// Of what failures left behind: a worker that could not be started, a set half written.
  void ClearStaging() {
    try {
      store_.ClearStaging();
    } catch (const ArchiveError& error) {
      progress_.Complain(error.what());
    }
  }

  /// What the product lists no more was lost to nobody.
  void TellExpired(const std::vector<const BackupImage*>& failed) {
    Listing again = ListCatalogue(options_.timeout, signals_);
    if (!again.failure.empty()) {
      return;
    }
    std::unordered_set<std::string_view> listed;
    for (const BackupImage& image : again.images) {
      listed.insert(image.backup_id);
    }
    for (const BackupImage* const image : failed) {
      if (!listed.contains(image->backup_id)) {
        progress_.Say(image->backup_id, "expired");
        ++counts_.expired;
        --counts_.failed;
      }
    }
    newest_listing_ = std::move(again);
  }

  /// Of images that are here again, or that the product has no more.
  void RemoveMarks() {
    // A product that lists nothing at all has not begun to work yet, rather than lost everything.
    if (pruned_.empty() || listing_.images.empty()) {
      return;
    }
    std::unordered_set<std::string> listed;
    for (const BackupImage& image : listing_.images) {
      listed.insert(ImageNameOf(image.backup_id));
    }
    for (auto name = pruned_.begin(); name != pruned_.end();) {
      if (listed.contains(*name) && !held_.contains(*name)) {
        ++name;
        continue;
      }
      RemoveMark(*name);
      name = pruned_.erase(name);
    }
  }

  void RemoveMark(const std::string& name) {
    try {
      store_.RemoveMark(name);
    } catch (const ArchiveError& error) {
      progress_.Complain(error.what());
    }
  }

  bool WriteSets() {
    std::vector<const BackupSet*> sets;
    for (const BackupSet& set : (newest_listing_ ? *newest_listing_ : listing_).sets) {
      if (IsOfChosenSeries(options_, set)) {
        sets.push_back(&set);
      }
    }
    return UpdateSets(
        store_, sets, held_, pruned_,
        [this](const ArchiveError& error) { progress_.Complain(error.what()); }, &counts_);
  }

  const SyncOptions& options_;
  Store store_;
  Signals* signals_;
  Progress progress_;
  Listing listing_;
  std::optional<Listing> newest_listing_;
  std::unordered_set<std::string> held_;    // as ImageNameOf has them
  std::unordered_set<std::string> pruned_;  // the same
  SyncCounts counts_;
};

/// A run that options.metrics tells of.
int RunWithMetrics(const SyncOptions& options, Signals* signals) {
  const auto complain = [](const ArchiveError& error) {
    std::cerr << Printable(error.what()) << '\n';
  };
  const auto start = std::chrono::steady_clock::now();
  LastRun last{.archive = options.archive, .status = kArchiveFailed, .counts = {}};
  // Holds the lock until the metrics are written.
  std::optional<SyncRun> run;
  const Store* store = nullptr;
  try {
    last.status = run.emplace(options, signals).Do();
    store = &run->store();
  } catch (const ArchiveError& error) {
    complain(error);
  }
  if (last.status == kLocked) {
    return kLocked;  // the other one writes its own
  }
  if (run) {
    last.counts = run->counts();
  }
  if (signals->Received() != 0) {
    last.status = kSignalled + signals->Received();
  }
  if (!std::cout.flush()) {
    last.status = kArchiveFailed;
  }
  last.ended = std::time(nullptr);
  last.duration = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  return WriteMetrics(*options.metrics, last, store, complain);
}

}  // namespace

int Sync(const SyncOptions& options) {
  Signals signals;
  return options.metrics && !options.is_dry_run ? RunWithMetrics(options, &signals)
                                                : SyncRun(options, &signals).Do();
}
