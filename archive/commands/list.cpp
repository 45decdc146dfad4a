#include "archive/commands/list.h"

#include <algorithm>
#include <ctime>
#include <iostream>
#include <map>
#include <string_view>
#include <tuple>
#include <vector>

#include "archive/json_object.h"
#include "archive/manifest.h"
#include "archive/status.h"
#include "archive/store.h"
#include "archive/table.h"

namespace {

constexpr auto kLeft = Table::Align::kLeft;
constexpr auto kRight = Table::Align::kRight;

/// What a table shows of a time: "-" without one.
std::string TimeText(const std::optional<std::int64_t>& seconds) {
  return seconds ? Rfc3339(*seconds).value_or(std::to_string(*seconds)) : "-";
}

void AddOptionalTime(std::string_view key, const std::optional<std::int64_t>& seconds,
                     Json* object) {
  if (seconds) {
    AddTime(key, *seconds, object);
  } else {
    (*object)[std::string(key)] = nullptr;
    (*object)[std::string(key) + "_utc"] = nullptr;
  }
}

/// The members that every row begins with.
template <class Record>
Json SeriesJson(const Record& record) {
  Json object = Json::object();
  AddText("client", record.client, &object);
  AddText("policy", record.policy, &object);
  AddText("schedule", record.schedule, &object);
  return object;
}

/// Rows as they were asked for: of a table, or items of a JSON array.
class Output {
 public:
  Output(bool is_json, std::vector<Table::Column> columns)
      : is_json_(is_json), table_(std::move(columns)) {}

  [[nodiscard]] bool is_json() const { return is_json_; }

  void AddRow(std::vector<std::string> row) { table_.Add(std::move(row)); }

  void AddItem(const Json& item) {
    std::cout << (has_items_ ? ",\n" : "[\n") << JsonLine(item);
    has_items_ = true;
  }

  void Finish() const {
    if (is_json_) {
      std::cout << (has_items_ ? "\n]\n" : "[]\n");
    } else {
      table_.Write(&std::cout);
    }
  }

 private:
  bool is_json_;
  bool has_items_ = false;
  Table table_;
};

/// Reads an archive record by record.
class Reader {
 public:
  explicit Reader(const std::string& path) : store_(path) {}

  void ForEachManifest(const std::function<void(const Manifest&)>& take) {
    store_.ForEachManifest(
        [&](const std::string& path, const std::string& text) {
          TakeRead(path, ReadManifest(text, &error_), take);
        },
        [this](const ArchiveError& error) { Complain(error.what()); });
  }

  void ForEachSet(const std::function<void(const SetFile&)>& take) {
    store_.ForEachSet(
        [&](const std::string& path, const std::string& text) {
          TakeRead(path, ReadSetFile(text, &error_), take);
        },
        [this](const ArchiveError& error) { Complain(error.what()); });
  }

  [[nodiscard]] bool has_failed() const { return has_failed_; }

 private:
  template <class Record>
  void TakeRead(const std::string& path, const std::optional<Record>& record,
                const std::function<void(const Record&)>& take) {
    if (record) {
      take(*record);
    } else {
      Complain(store_.root().PathOf(path) + ": " + error_);
    }
  }

  void Complain(std::string_view text) {
    std::cerr << Printable(text) << '\n';
    has_failed_ = true;
  }

  Store store_;
  std::string error_;
  bool has_failed_ = false;
};

/// What is known of the images and sets of a client, policy and schedule.
struct Series {
  std::string client;
  std::string policy;
  std::string schedule;
  std::uint64_t sets = 0;
  std::uint64_t images = 0;
  std::optional<std::int64_t> newest;        // set, seconds
  std::optional<std::int64_t> oldest;        // set, seconds
  std::optional<std::int64_t> oldest_image;  // that has an age, seconds
  std::uint64_t entries = 0;
  std::uint64_t document_bytes = 0;
  std::uint64_t stored_bytes = 0;
};

using SeriesMap = std::map<std::tuple<std::string, std::string, std::string>, Series>;

template <class Record>
Series& SeriesOf(const Record& record, SeriesMap* series_by_name) {
  Series& series = (*series_by_name)[{record.client, record.policy, record.schedule}];
  series.client = record.client;
  series.policy = record.policy;
  series.schedule = record.schedule;
  return series;
}

void AddImage(const Manifest& manifest, SeriesMap* series_by_name) {
  Series& series = SeriesOf(manifest, series_by_name);
  ++series.images;
  series.entries += manifest.entries;
  series.document_bytes += manifest.document.bytes;
  series.stored_bytes += manifest.document.stored_bytes;
  if (manifest.backup_time > 0) {
    series.oldest_image =
        std::min(series.oldest_image.value_or(manifest.backup_time), manifest.backup_time);
  }
}

void AddSet(const SetFile& set, SeriesMap* series_by_name) {
  Series& series = SeriesOf(set, series_by_name);
  ++series.sets;
  series.newest = std::max(series.newest.value_or(set.create_time), set.create_time);
  series.oldest = std::min(series.oldest.value_or(set.create_time), set.create_time);
}

bool IsStale(const Series& series, const Age& age, std::int64_t now) {
  // Without a set, the images have waited for one for so long.
  const std::int64_t since = series.newest.value_or(series.oldest_image.value_or(0));
  return since > 0 && now - since > age.duration.count();
}

void Show(const Series& series, Output* output) {
  if (!output->is_json()) {
    output->AddRow({series.client, series.policy, series.schedule, std::to_string(series.sets),
                    std::to_string(series.images), TimeText(series.newest), TimeText(series.oldest),
                    std::to_string(series.entries), BytesForPeople(series.stored_bytes)});
    return;
  }
  Json object = SeriesJson(series);
  object["sets"] = series.sets;
  object["images"] = series.images;
  AddOptionalTime("newest", series.newest, &object);
  AddOptionalTime("oldest", series.oldest, &object);
  object["entries"] = series.entries;
  object["document_bytes"] = series.document_bytes;
  object["stored_bytes"] = series.stored_bytes;
  output->AddItem(object);
}

/// Returns whether any is stale.
bool ListSeries(const ListOptions& options, Reader* reader) {
  SeriesMap series_by_name;
  reader->ForEachManifest([&](const Manifest& manifest) { AddImage(manifest, &series_by_name); });
  reader->ForEachSet([&](const SetFile& set) { AddSet(set, &series_by_name); });
  Output output(options.is_json, {{"CLIENT", kLeft},
                                  {"POLICY", kLeft},
                                  {"SCHEDULE", kLeft},
                                  {"SETS", kRight},
                                  {"IMAGES", kRight},
                                  {"NEWEST", kLeft},
                                  {"OLDEST", kLeft},
                                  {"ENTRIES", kRight},
                                  {"BYTES", kRight}});
  bool has_stale = false;
  const std::int64_t now = std::time(nullptr);
  for (const auto& [name, series] : series_by_name) {
    if (!options.stale || IsStale(series, *options.stale, now)) {
      Show(series, &output);
      has_stale = options.stale.has_value();
    }
  }
  output.Finish();
  return has_stale;
}

void ListSets(const ListOptions& options, Reader* reader) {
  Output output(options.is_json, {{"CLIENT", kLeft},
                                  {"POLICY", kLeft},
                                  {"SCHEDULE", kLeft},
                                  {"TIME", kLeft},
                                  {"IMAGES", kRight},
                                  {"SIZE", kRight},
                                  {"BACKUP ID", kLeft}});
  reader->ForEachSet([&](const SetFile& set) {
    if (!options.is_json) {
      output.AddRow({set.client, set.policy, set.schedule, TimeText(set.create_time),
                     std::to_string(set.images.size()), BytesForPeople(set.size_bytes),
                     set.backup_id});
      return;
    }
    Json object = SeriesJson(set);
    AddText("backup_id", set.backup_id, &object);
    AddTime("create_time", set.create_time, &object);
    object["size_bytes"] = set.size_bytes;
    object["images"] = set.images.size();
    output.AddItem(object);
  });
  output.Finish();
}

void ListImages(const ListOptions& options, Reader* reader) {
  Output output(options.is_json, {{"BACKUP ID", kLeft},
                                  {"POLICY", kLeft},
                                  {"SCHEDULE", kLeft},
                                  {"TIME", kLeft},
                                  {"ENTRIES", kRight},
                                  {"BYTES", kRight}});
  reader->ForEachManifest([&](const Manifest& manifest) {
    if (!options.is_json) {
      output.AddRow({manifest.backup_id, manifest.policy, manifest.schedule,
                     TimeText(manifest.backup_time), std::to_string(manifest.entries),
                     BytesForPeople(manifest.document.stored_bytes)});
      return;
    }
    Json object = SeriesJson(manifest);
    AddText("backup_id", manifest.backup_id, &object);
    AddTime("backup_time", manifest.backup_time, &object);
    object["size_bytes"] = manifest.size_bytes;
    object["files"] = manifest.files;
    AddTime("exported", manifest.exported, &object);
    object["entries"] = manifest.entries;
    object["document_bytes"] = manifest.document.bytes;
    object["stored_bytes"] = manifest.document.stored_bytes;
    output.AddItem(object);
  });
  output.Finish();
}

}  // namespace

int List(const ListOptions& options) {
  Reader reader(options.archive);
  bool has_stale = false;
  switch (options.rows) {
    case ListOptions::Rows::kSeries:
      has_stale = ListSeries(options, &reader);
      break;
    case ListOptions::Rows::kSets:
      ListSets(options, &reader);
      break;
    case ListOptions::Rows::kImages:
      ListImages(options, &reader);
      break;
  }
  if (reader.has_failed()) {
    return kArchiveFailed;
  }
  return has_stale ? kFound : kAllIsWell;
}
