// GetBackupImageList and GetBackupSetList on a listing of any bytes.
//
// Settings: c and p filter by client and policy. And those of every command (see input.h).

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

#include "catalog/backup_sets.h"
#include "catalog/image_list.h"
#include "catalog/records.h"
#include "input.h"
#include "outcome.h"
#include "plain_text.h"

namespace {

/// What comes of a query: all that its caller sees, and the records.
template <typename Record>
struct Answer {
  Outcome outcome;
  std::vector<Record> records;
};

/// As BackupImage, with texts of its own.
struct PlainImage {
  std::string backup_id;
  std::string size;
  std::string last_field;
  std::string policy;
  std::string schedule;
  std::string client;
  std::int64_t backup_time = 0;
  std::int32_t files = 0;
};

/// As BackupSet, with texts of its own.
struct PlainSet {
  std::string policy;
  std::string client;
  std::string schedule;
  std::string backup_id;
  std::int64_t create_time = 0;
  std::uint64_t backup_size = 0;
  std::vector<std::string> image_ids;
};

std::string Client(const Input& input) {
  return input.Has('c') ? "c 1;" : "";
}

std::string Policy(const Input& input) {
  return input.Has('p') ? "-P 'x'" : "";
}

std::string Command(const Input& input) {
  return std::string("/usr/ostra/keelhaven/bin/admincmd/qvroll") +
         (input.Has('c') ? " -client c 1;" : "") + (input.Has('p') ? " -policy -P 'x'" : "");
}

// ---- The images

/// The text from *at up to a blank or the end. Moves *at behind it and the blanks that follow.
std::string NextField(const std::string& row, std::size_t* at) {
  std::string field;
  while (*at < row.size() && row[*at] != ' ') {
    field += row[*at];
    ++*at;
  }
  while (*at < row.size() && row[*at] == ' ') {
    ++*at;
  }
  return field;
}

std::string LastFieldOf(const std::string& row) {
  std::string reversed;
  for (std::size_t i = 1; i < row.size() && row[row.size() - 1 - i] != ' '; ++i) {
    reversed += row[row.size() - 1 - i];
  }
  return {reversed.rbegin(), reversed.rend()};
}

/// The record of `row`. Returns false, with backup_id alone, when that has no '_'.
bool PlainRow(const std::string& row, PlainImage* image) {
  std::size_t at = 0;
  image->backup_id = NextField(row, &at);
  std::size_t underscore = 0;
  while (underscore < image->backup_id.size() && image->backup_id[underscore] != '_') {
    image->client += image->backup_id[underscore++];
  }
  if (underscore == image->backup_id.size()) {
    return false;
  }
  image->backup_time = PlainAtol(image->backup_id.substr(underscore + 1));
  for (int skipped = 0; skipped < 20 && at < row.size(); ++skipped) {
    ++at;
  }
  while (at < row.size() && row[at] == ' ') {
    ++at;
  }
  image->files = Low32(PlainAtol(NextField(row, &at)));
  image->size = NextField(row, &at);
  image->schedule = NextField(row, &at);
  image->policy = NextField(row, &at);
  image->last_field = LastFieldOf(row);
  return true;
}

/// Takes a line in one of the states 0 (before the first block), 1 (header expected) and 2 (rows).
/// Returns the message for a line that does not fit, or nothing.
std::string PlainLine(const std::string& text, int* state, std::vector<PlainImage>* records) {
  if (*state == 1) {
    *state = 2;
    return text.substr(0, 9) == "Backupid "
               ? ""
               : "parse output of qvroll failed. expecting \"Backupid \"\n";
  }
  if (!text.empty() && text[0] == '\n') {
    *state = 1;
    return "";
  }
  if (*state == 0) {
    return "";
  }
  PlainImage image;
  if (!PlainRow(text, &image)) {
    return "invalid backup id: " + image.backup_id + ". no '_' found.\n";
  }
  records->push_back(image);
  return "";
}

/// What the lines of a listing make of an answer that has started.
void PlainListing(const Input& input, Answer<PlainImage>* answer) {
  int state = 0;
  answer->outcome.steps += "read into zeros\npclose\n";
  for (const std::string& text : TextsRead(input.text(), input.read_size())) {
    answer->outcome.out += input.trace_level() >= 1 ? text : "";
    answer->outcome.err = PlainLine(text, &state, &answer->records);
    if (!answer->outcome.err.empty()) {
      answer->outcome.status = 1;
      return;
    }
  }
}

/// The answer to the query of images for a caller that has `records` already.
Answer<PlainImage> PlainImages(const Input& input, const std::vector<PlainImage>& records) {
  Answer<PlainImage> answer{PlainStart(input, Command(input)), records};
  PlainListing(input, &answer);
  if (answer.outcome.status == 0 && input.trace_level() >= 2) {
    answer.outcome.out += "backup image count: " + std::to_string(answer.records.size()) + "\n";
  }
  return answer;
}

// ---- The sets

struct PlainSeries {
  std::string tag;
  std::vector<PlainImage> images;
};

/// Byte order, a text before all that it begins.
bool IsBefore(const std::string& a, const std::string& b) {
  for (std::size_t i = 0; i < a.size() && i < b.size(); ++i) {
    if (a[i] != b[i]) {
      return static_cast<unsigned char>(a[i]) < static_cast<unsigned char>(b[i]);
    }
  }
  return a.size() < b.size();
}

std::vector<PlainSeries> Grouped(const std::vector<PlainImage>& images) {
  std::vector<PlainSeries> all;
  for (const PlainImage& image : images) {
    const std::string tag = image.client + ":" + image.policy + ":" + image.schedule;
    std::size_t at = 0;
    while (at < all.size() && IsBefore(all[at].tag, tag)) {
      ++at;
    }
    if (at == all.size() || all[at].tag != tag) {
      all.insert(all.begin() + static_cast<std::ptrdiff_t>(at), {tag, {}});
    }
    all[at].images.push_back(image);
  }
  return all;
}

std::uint64_t PlainBytes(const std::string& size) {
  const std::string units = "KMGTP";
  const std::size_t unit = size.empty() ? units.npos : units.find(size[size.size() - 1]);
  if (unit == units.npos) {
    return 0;
  }
  double bytes = std::strtod(size.substr(0, size.size() - 1).c_str(), nullptr);
  for (std::size_t i = 0; i <= unit; ++i) {
    bytes *= 1024;
  }
  if (std::isnan(bytes) || std::abs(bytes) >= std::pow(2, 64)) {
    return 0;
  }
  return bytes < 0 ? 0 - static_cast<std::uint64_t>(-bytes) : static_cast<std::uint64_t>(bytes);
}

/// The set that `image` defines.
PlainSet SetOf(const PlainImage& image, std::uint64_t size, const std::vector<std::string>& ids) {
  return {image.policy, image.client, image.schedule, image.backup_id, image.backup_time,
          size,         ids};
}

/// The sets of one series behind those of *answer, with its traces.
void PlainSeriesSets(const PlainSeries& series, int level, Answer<PlainSet>* answer) {
  std::string traces = "tag: " + series.tag + "\n";
  std::vector<std::string> ids;
  std::uint64_t size = 0;
  bool has_parent = false;
  for (const PlainImage& image : series.images) {
    traces += "\tbackup_id: " + image.backup_id + ", files: " + std::to_string(image.files) + "\n";
    if (image.files != 0) {
      ids.push_back(image.backup_id);
      size += PlainBytes(image.size);
      continue;
    }
    has_parent = true;
    if (!ids.empty()) {
      answer->records.push_back(SetOf(image, size, ids));
      traces += "\t\tbackup set size: " + std::to_string(size) +
                ", image count: " + std::to_string(ids.size()) + "\n";
    }
    ids.clear();
    size = 0;
  }
  if (!has_parent) {
    traces +=
        "\tno parent job found for this serial of images. each image will be considered as a "
        "backup set. \n";
    for (const PlainImage& image : series.images) {
      answer->records.push_back(SetOf(image, size, {image.backup_id}));
      traces += level < 3 ? "" : "\t\tadd " + image.backup_id + " as a backup set.\n";
    }
  }
  answer->outcome.out += level >= 2 ? traces : "";
}

/// The answer to the query of sets for a caller that has `records` already.
Answer<PlainSet> PlainSets(const Input& input, const std::vector<PlainSet>& records) {
  const Answer<PlainImage> listing = PlainImages(input, {});
  Answer<PlainSet> answer{listing.outcome, records};
  if (listing.outcome.status != 0) {
    answer.outcome.err += "GetBackupImageList() failed. ret=1\n";
    return answer;
  }
  const std::string separator = "=====================================\n";
  const int level = input.trace_level();
  if (level >= 3) {
    answer.outcome.out += separator;
    for (const PlainImage& image : listing.records) {
      answer.outcome.out += image.backup_id + "\t" + image.client + "\t" +
                            std::to_string(image.backup_time) + "\t" + image.size + "\t" +
                            image.schedule + "\t" + image.policy + "\t" +
                            std::to_string(image.files) + "\t" + image.last_field + "\n";
    }
  }
  answer.outcome.out += level >= 2 ? separator : "";
  for (const PlainSeries& series : Grouped(listing.records)) {
    PlainSeriesSets(series, level, &answer);
  }
  if (level >= 2) {
    answer.outcome.out += "backup set count: " + std::to_string(answer.records.size()) + "\n";
  }
  return answer;
}

// ---- The checks

/// The fields as a text; none of them holds a zero byte.
std::string Shown(std::initializer_list<std::string_view> fields) {
  std::string shown;
  for (const std::string_view field : fields) {
    shown.append(field).append(1, '\0');
  }
  return shown;
}

template <typename Image>
std::string ShownImage(const Image& image) {
  return Shown({"image: backup_id", image.backup_id, "size", image.size, "last_field",
                image.last_field, "policy", image.policy, "schedule", image.schedule, "client",
                image.client, "backup_time", std::to_string(image.backup_time), "files",
                std::to_string(image.files)});
}

template <typename Set>
std::string ShownSet(const Set& set) {
  std::string shown =
      Shown({"set: policy", set.policy, "client", set.client, "schedule", set.schedule, "backup_id",
             set.backup_id, "create_time", std::to_string(set.create_time), "backup_size",
             std::to_string(set.backup_size)});
  for (const std::string_view id : set.image_ids) {
    shown += Shown({"id", id});
  }
  return shown;
}

template <typename Record>
std::string Shown(const std::vector<Record>& records) {
  std::string shown;
  for (const Record& record : records) {
    if constexpr (requires { record.image_ids; }) {
      shown += ShownSet(record);
    } else {
      shown += ShownImage(record);
    }
  }
  return shown;
}

/// Makes the query `get` for a caller that has `records` already, and compares.
template <typename Record, typename Plain, typename Get>
void CheckQuery(const Input& input, Get get, std::vector<Record> records,
                const Answer<Plain>& expected) {
  Outcome outcome =
      RunFed(input, input.text(), [&] { return get(Policy(input), Client(input), &records); });
  outcome.results = Shown(records);
  Outcome expected_outcome = expected.outcome;
  expected_outcome.results = Shown(expected.records);
  ExpectOutcome(outcome, expected_outcome);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const Input input(data, size);
  const std::vector<BackupImage> images = {{"before_1", "1K", "/x", "p", "s", "before", 1, 2}};
  CheckQuery(input, GetBackupImageList, images,
             PlainImages(input, {{"before_1", "1K", "/x", "p", "s", "before", 1, 2}}));
  const std::vector<BackupSet> sets = {
      {"p", "before", "s", "before_1", 1, 77, {"before_0", "before_1"}}};
  const Answer<PlainSet> expected =
      PlainSets(input, {{"p", "before", "s", "before_1", 1, 77, {"before_0", "before_1"}}});
  for (int run = 0; run < 2; ++run) {
    CheckQuery(input, GetBackupSetList, sets, expected);
  }
  return 0;
}
