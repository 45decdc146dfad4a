// file:   (help type sample+)*
// sample: "quillmere_archive_" name "{" label ("," label)* "} " number NL
//
//   # HELP quillmere_archive_last_run_status Exit status of the last sync.
//   # TYPE quillmere_archive_last_run_status gauge
//   quillmere_archive_last_run_status{archive="/var/lib/quillmere-archive"} 0

#include "archive/metrics.h"

#include <fcntl.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <optional>
#include <string_view>
#include <utility>
#include <vector>

#include "archive/json_object.h"
#include "archive/status.h"

namespace {

constexpr mode_t kMode = 0644;  // the exporter is another user
const std::string kLastSuccess = "last_success_timestamp_seconds";

struct Gauge {
  std::string name;
  std::string help;
  std::map<std::string, std::string> values;  // by labels
};

std::string LabelOf(const std::string& name, std::string_view value) {
  std::string label = name + "=\"";
  for (const char c : Utf8Of(value)) {
    if (c == '\n') {
      label += "\\n";
      continue;
    }
    if (c == '\\' || c == '"') {
      label += '\\';
    }
    label += c;
  }
  return label + '"';
}

/// What precedes the number of a sample.
std::string HeadOf(const std::string& name, const std::string& labels) {
  return "quillmere_archive_" + name + '{' + labels + "} ";
}

void Append(const Gauge& gauge, std::string* text) {
  const std::string name = "quillmere_archive_" + gauge.name;
  *text += "# HELP " + name + ' ' + gauge.help + "\n# TYPE " + name + " gauge\n";
  for (const auto& [labels, value] : gauge.values) {
    *text += HeadOf(gauge.name, labels) + value + '\n';
  }
}

/// What `file` holds; empty when it can't be read.
std::string TextIn(const std::string& file) {
  const std::filesystem::path path(file);
  try {
    const Directory directory(path.has_parent_path() ? path.parent_path().string() : ".");
    return directory.Read(path.filename()).value_or("");
  } catch (const ArchiveError&) {
    return "";
  }
}

/// When a sync of the archive with this label last succeeded, as `file` has it: not after `now`,
/// and 0 when that is not known.
std::size_t LastSuccessIn(const std::string& file, const std::string& label, std::int64_t now) {
  const std::string text = TextIn(file);
  const std::string head = '\n' + HeadOf(kLastSuccess, label);
  const std::size_t at = text.find(head);
  if (at == std::string::npos) {
    return 0;
  }
  const std::string_view rest = std::string_view(text).substr(at + head.size());
  const std::size_t end = rest.find('\n');
  // A number whose line was cut may be another one.
  const std::size_t seconds =
      end == std::string_view::npos ? 0 : ParseCount(rest.substr(0, end)).value_or(0);
  return seconds <= static_cast<std::size_t>(now) ? seconds : 0;
}

SetFile SetIn(const Directory& series, const std::string& name) {
  std::string error;
  std::optional<SetFile> set = ReadSetFile(series.Read(name).value_or(""), &error);
  if (!set) {
    throw ArchiveError(series.PathOf(name) + ": " + error);
  }
  return *std::move(set);
}

/// The newest set of a series by the names of the files, each of which begins with its time unless
/// that is none: one file is read, however many there are. Nothing without a set.
std::optional<SetFile> NewestSet(const Directory& series, const Store::Complain& complain) {
  std::vector<std::pair<long long, std::string>> files;
  for (const Directory::Entry& entry : series.List()) {
    if (entry.kind == Directory::Kind::kFile && entry.name.ends_with(".json")) {
      files.emplace_back(std::strtoll(entry.name.c_str(), nullptr, 10), entry.name);
    }
  }
  std::sort(files.rbegin(), files.rend());
  for (const auto& [time, name] : files) {
    try {
      return SetIn(series, name);
    } catch (const ArchiveError& error) {
      complain(error);
    }
  }
  return std::nullopt;
}

/// The time of the newest set of each series, by labels. Of two series that have the same ones, as
/// their names are no UTF-8, the newer counts.
std::map<std::string, std::int64_t> NewestSets(const Store& store, const std::string& archive,
                                               const Store::Complain& complain) {
  std::map<std::string, std::int64_t> newest;
  const auto add = [&](const Directory& series) {
    if (const std::optional<SetFile> set = NewestSet(series, complain)) {
      const std::string labels = archive + ',' + LabelOf("client", set->client) + ',' +
                                 LabelOf("policy", set->policy) + ',' +
                                 LabelOf("schedule", set->schedule);
      std::int64_t& time = newest.try_emplace(labels, set->create_time).first->second;
      time = std::max(time, set->create_time);
    }
  };
  store.ForEachSeries(add, complain);
  return newest;
}

/// What is in the archive.
std::vector<Gauge> GaugesOf(const Store& store, const std::string& archive,
                            const Store::Complain& complain) {
  std::vector<Gauge> gauges;
  try {
    gauges.push_back({"images",
                      "Images in the archive.",
                      {{archive, std::to_string(store.ImageNames().size())}}});
    Gauge sets{
        "newest_set_timestamp_seconds", "When the newest backup set of a series was made.", {}};
    for (const auto& [labels, time] : NewestSets(store, archive, complain)) {
      sets.values.emplace(labels, std::to_string(time));
    }
    if (!sets.values.empty()) {
      gauges.push_back(std::move(sets));
    }
  } catch (const ArchiveError& error) {
    complain(error);
  }
  return gauges;
}

std::vector<Gauge> GaugesOf(const LastRun& run, const std::string& archive,
                            std::size_t last_success) {
  const auto gauge = [&](const std::string& name, const std::string& help, auto value) {
    return Gauge{name, help, {{archive, std::to_string(value)}}};
  };
  const SyncCounts& counts = run.counts;
  return {
      gauge("last_run_timestamp_seconds", "When the last sync ended.", run.ended),
      gauge("last_run_status", "Exit status of the last sync.", run.status),
      gauge("last_run_duration_seconds", "How long the last sync took.", run.duration),
      gauge(kLastSuccess, "When a sync last ended with status 0; 0 when that is not known.",
            last_success),
      gauge("last_run_exported_images", "Images that the last sync exported.", counts.exported),
      gauge("last_run_failed_images", "Images that failed in the last sync.", counts.failed),
      gauge("last_run_expired_images", "Images that expired while the last sync exported them.",
            counts.expired),
      gauge("last_run_warnings", "Warnings of the last sync.", counts.warnings),
      gauge("last_run_waiting_sets", "Backup sets that the last sync left waiting for images.",
            counts.sets_waiting),
      gauge("last_run_stored_bytes", "Bytes of the documents that the last sync stored.",
            counts.stored_bytes),
  };
}

/// Writes `text` to a new file, whose name the exporter ignores, and puts it in the place of
/// `file`.
void Replace(const std::string& file, std::string_view text) {
  const std::string staged = file + ".new";
  unlinkat(AT_FDCWD, staged.c_str(), 0);
  const Descriptor descriptor(openat(AT_FDCWD, staged.c_str(),
                                     O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, kMode));
  if (descriptor.get() < 0 || fchmod(descriptor.get(), kMode) != 0 ||
      !WriteAll(descriptor.get(), text) || fsync(descriptor.get()) != 0 ||
      renameat(AT_FDCWD, staged.c_str(), AT_FDCWD, file.c_str()) != 0) {
    const ArchiveError error = SystemError("write", file);
    unlinkat(AT_FDCWD, staged.c_str(), 0);
    throw error;
  }
}

}  // namespace

int WriteMetrics(const std::string& file, LastRun run, const Store* store,
                 const Store::Complain& complain) {
  const auto tell = [&](const ArchiveError& error) {
    complain(error);
    run.status = run.status == kAllIsWell ? kFound : run.status;
  };
  const std::string archive = LabelOf("archive", run.archive);
  const std::vector<Gauge> kept =
      store != nullptr ? GaugesOf(*store, archive, tell) : std::vector<Gauge>();
  const std::size_t last_success = run.status == kAllIsWell
                                       ? static_cast<std::size_t>(run.ended)
                                       : LastSuccessIn(file, archive, run.ended);
  std::string text;
  for (const std::vector<Gauge>& gauges : {GaugesOf(run, archive, last_success), kept}) {
    for (const Gauge& gauge : gauges) {
      Append(gauge, &text);
    }
  }
  try {
    Replace(file, text);
  } catch (const ArchiveError& error) {
    tell(error);
  }
  return run.status;
}
