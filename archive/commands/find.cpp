#include "archive/commands/find.h"

#include <array>
#include <cstdint>
#include <iostream>
#include <set>
#include <string_view>
#include <utility>

#include "archive/entry_text.h"
#include "archive/json_object.h"
#include "archive/path_search.h"
#include "archive/sha256.h"
#include "archive/status.h"
#include "archive/store.h"
#include "archive/units.h"

namespace {

/// What of a path and a client is kept to know them again.
using Digest = std::array<char, 32>;

Digest DigestOf(std::string_view client, std::string_view path) {
  Sha256 hash;
  hash.Take(client);
  hash.Take(std::string_view("\0", 1));
  hash.Take(path);
  Digest digest{};
  hash.Finish().copy(digest.data(), digest.size());
  return digest;
}

std::vector<PathPattern> PatternsOf(const FindOptions& options) {
  std::vector<PathPattern> patterns;
  for (const std::string& text : options.patterns) {
    patterns.emplace_back(text, options.is_substring, options.ignores_case);
  }
  return patterns;
}

/// One run of the command.
class FindRun {
 public:
  explicit FindRun(const FindOptions& options)
      : options_(options),
        store_(options.archive),
        search_(
            PatternsOf(options),
            [this](const std::string& length, const std::string& path) { Take(length, path); },
            [this] { Show(); }) {}

  int Do() {
    ForEachChosen(
        store_, options_.choice,
        [this](const Directory& image, const Manifest& manifest) {
          Begin(manifest);
          search_.Search(image, manifest);
          Show();
        },
        [this](const ArchiveError& error) {
          Show();
          std::cerr << Printable(error.what()) << '\n';
          has_failed_ = true;
        });
    if (has_failed_) {
      return kArchiveFailed;
    }
    return has_found_ ? kAllIsWell : kFound;
  }

 private:
  void Begin(const Manifest& manifest) {
    manifest_ = &manifest;
    begin_.clear();
    for (const std::string& text :
         {Rfc3339(manifest.backup_time).value_or(std::to_string(manifest.backup_time)),
          manifest.client, manifest.policy, manifest.schedule, manifest.backup_id}) {
      AppendTsv(text, &begin_);
      begin_ += '\t';
    }
  }

  void Take(const std::string& length, const std::string& path) {
    if (options_.is_newest && !seen_.insert(DigestOf(manifest_->client, path)).second) {
      return;
    }
    has_found_ = true;
    if (options_.is_json) {
      lines_ += JsonLine(JsonOf(length, path));
    } else {
      lines_ += begin_;
      AppendTsv(length, &lines_);
      lines_ += '\t';
      AppendTsv(path, &lines_);
    }
    lines_ += '\n';
  }

  [[nodiscard]] Json JsonOf(const std::string& length, const std::string& path) const {
    Json object = Json::object();
    AddTime("time", manifest_->backup_time, &object);
    AddText("client", manifest_->client, &object);
    AddText("policy", manifest_->policy, &object);
    AddText("schedule", manifest_->schedule, &object);
    AddText("backup_id", manifest_->backup_id, &object);
    AddText("length", length, &object);
    AddText("path", path, &object);
    return object;
  }

  void Show() {
    if (!lines_.empty()) {
      std::cout << std::exchange(lines_, "") << std::flush;
    }
  }

  const FindOptions& options_;
  Store store_;
  PathSearch search_;
  const Manifest* manifest_ = nullptr;  // of the image that is searched
  std::string begin_;                   // of its lines
  std::string lines_;                   // to be shown
  std::set<Digest> seen_;
  bool has_found_ = false;
  bool has_failed_ = false;
};

}  // namespace

int Find(const FindOptions& options) {
  return FindRun(options).Do();
}
