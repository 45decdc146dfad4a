#include "catalog/backup_sets.h"

#include <charconv>
#include <cmath>
#include <cstddef>
#include <cstdlib>
#include <iostream>
#include <iterator>
#include <map>
#include <string_view>
#include <system_error>
#include <unordered_map>

#include "catalog/image_list.h"
#include "layout/layout.h"

namespace {

/// An image of a series. What the walk through the series looks at stands here, as the images are
/// far from each other in the listing: measured; run the benchmark.
struct SeriesImage {
  const BackupImage* image;  ///< in the listing
  std::uint64_t size;        ///< bytes
  bool is_parent;
};

/// The images of one client, policy and schedule, in listing order.
using Series = std::vector<SeriesImage>;

/// The series by grouping tag, in byte order of the tags.
using SeriesMap = std::map<std::string, Series>;

constexpr std::string_view kSeparator = "=====================================\n";

/// What the number before `unit`, the last character of a size text, is multiplied by; 0 for a
/// character that is no unit.
double UnitMultiplier(char unit) {
  switch (unit) {
    case 'K':
      return 0x1p10;
    case 'M':
      return 0x1p20;
    case 'G':
      return 0x1p30;
    case 'T':
      return 0x1p40;
    case 'P':
      return 0x1p50;
    default:
      return 0;
  }
}

/// What strtod makes of `size`, a number and its unit. It is asked only about what is no plain
/// number: measured; run the benchmark.
double LikeStrtod(std::string_view size) {
  const char* const unit = &size.back();
  double number = 0;
  const auto [end, error] = std::from_chars(size.data(), unit, number);
  if (error == std::errc() && end == unit) {
    return number;
  }
  return std::strtod(std::string(size).c_str(), nullptr);
}

void TraceImage(const BackupImage& image) {
  std::cout << image.backup_id << '\t' << image.client << '\t' << image.backup_time << '\t'
            << image.size << '\t' << image.schedule << '\t' << image.policy << '\t' << image.files
            << '\t' << image.last_field << '\n';
}

SeriesMap GroupBySeries(const std::vector<BackupImage>& images) {
  // A tag is looked up for each image, so it is hashed, and only the tags are sorted at the end:
  // measured; run the benchmark.
  std::unordered_map<std::string, Series> series_by_tag;
  std::string tag;
  for (const BackupImage& image : images) {
    if (verbose >= 3) {
      TraceImage(image);
    }
    tag.assign(image.client)
        .append(1, ':')
        .append(image.policy)
        .append(1, ':')
        .append(image.schedule);
    series_by_tag[tag].push_back({&image, BytesFromSize(image.size), image.files == 0});
  }
  return {std::make_move_iterator(series_by_tag.begin()),
          std::make_move_iterator(series_by_tag.end())};
}

/// A set without members or size, described by the image that defines it.
BackupSet SetDefinedBy(const BackupImage& image) {
  BackupSet set;
  set.policy = image.policy;
  set.client = image.client;
  set.schedule = image.schedule;
  set.backup_id = image.backup_id;
  set.create_time = image.backup_time;
  return set;
}

/// Appends the set of the images [first, parent) of `series`, `size` bytes, that the image at
/// `parent` closes.
void CloseSet(const Series& series, std::size_t first, std::size_t parent, std::uint64_t size,
              std::vector<BackupSet>* sets) {
  BackupSet& set = sets->emplace_back(SetDefinedBy(*series[parent].image));
  set.backup_size = size;
  set.image_ids.reserve(parent - first);
  for (std::size_t member = first; member < parent; ++member) {
    set.image_ids.push_back(series[member].image->backup_id);
  }
  if (verbose >= 2) {
    std::cout << "\t\tbackup set size: " << set.backup_size
              << ", image count: " << set.image_ids.size() << '\n';
  }
}

/// What one walk through a series found out.
struct SeriesSummary {
  bool has_parent = false;
  std::uint64_t open_size = 0;  ///< bytes of the images behind the last parent, modulo 2^64
};

/// Appends a set for each parent image of `series` that has images before it.
SeriesSummary CloseSetsAtParents(const Series& series, std::vector<BackupSet>* sets) {
  SeriesSummary summary;
  std::size_t first_member = 0;  // of the set that is being collected
  for (std::size_t i = 0; i < series.size(); ++i) {
    const SeriesImage& member = series[i];
    if (verbose >= 2) {
      std::cout << "\tbackup_id: " << member.image->backup_id << ", files: " << member.image->files
                << '\n';
    }
    if (!member.is_parent) {
      summary.open_size += member.size;
      continue;
    }
    if (first_member < i) {
      CloseSet(series, first_member, i, summary.open_size, sets);
    }
    summary = {.has_parent = true, .open_size = 0};
    first_member = i + 1;
  }
  return summary;
}

/// Appends a set for each image of a series that has no parent image.
void AddLoneImages(const Series& series, std::uint64_t series_size, std::vector<BackupSet>* sets) {
  if (verbose >= 2) {
    std::cout << "\tno parent job found for this serial of images. each image will be considered "
                 "as a backup set. \n";
  }
  for (const SeriesImage& member : series) {
    const BackupImage& image = *member.image;
    BackupSet& set = sets->emplace_back(SetDefinedBy(image));
    // The total of the series, not the image's own size: consumers expect it in each of these sets.
    // Pinned by BackupSets.LoneImagesCarryTheSeriesTotal.
    set.backup_size = series_size;
    set.image_ids.push_back(image.backup_id);
    if (verbose >= 3) {
      std::cout << "\t\tadd " << image.backup_id << " as a backup set.\n";
    }
  }
}

}  // namespace

std::uint64_t BytesFromSize(std::string_view size) {
  if (size.empty()) {
    return 0;
  }
  // The unit ends the number, so it need not be taken off first.
  const double bytes = LikeStrtod(size) * UnitMultiplier(size.back());
  if (!(std::abs(bytes) < 0x1p64)) {
    return 0;  // out of range, or no number
  }
  const auto magnitude = static_cast<std::uint64_t>(std::abs(bytes));
  return bytes < 0 ? 0 - magnitude : magnitude;
}

int GetBackupSetList(const std::string& policy, const std::string& client,
                     std::vector<BackupSet>* sets) {
  std::vector<BackupImage> images;
  const int status = GetBackupImageList(policy, client, &images);
  if (status != 0) {
    std::cerr << "GetBackupImageList() failed. ret=" << status << '\n';
    return status;
  }
  AssembleBackupSets(images, sets);
  return 0;
}

void AssembleBackupSets(const std::vector<BackupImage>& images, std::vector<BackupSet>* sets) {
  if (verbose >= 3) {
    std::cout << kSeparator;
  }
  const SeriesMap series_by_tag = GroupBySeries(images);
  if (verbose >= 2) {
    std::cout << kSeparator;
  }
  for (const auto& [tag, series] : series_by_tag) {
    if (verbose >= 2) {
      std::cout << "tag: " << tag << '\n';
    }
    const SeriesSummary summary = CloseSetsAtParents(series, sets);
    // Images behind the last parent belong to no set: their parent job has not run yet.
    if (!summary.has_parent) {
      AddLoneImages(series, summary.open_size, sets);
    }
  }
  if (verbose >= 2) {
    std::cout << "backup set count: " << sets->size() << '\n';
  }
}
