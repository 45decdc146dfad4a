#include "archive/prune_plan.h"

#include <algorithm>
#include <functional>
#include <string_view>
#include <unordered_map>

namespace {

/// Of the sets of a series, in seconds.
struct SeriesTimes {
  std::int64_t newest = 0;
  std::int64_t first_kept = 0;  // of the oldest set that stays whatever its age
};

using SeriesTimesMap = std::unordered_map<std::string_view, SeriesTimes>;

SeriesTimesMap TimesOf(const std::vector<KeptSet>& sets, std::size_t keep_last) {
  std::unordered_map<std::string_view, std::vector<std::int64_t>> times_by_series;
  for (const KeptSet& set : sets) {
    times_by_series[set.series].push_back(set.create_time);
  }
  SeriesTimesMap series_by_name;
  for (auto& [name, times] : times_by_series) {
    std::sort(times.begin(), times.end(), std::greater<>());
    series_by_name[name] = {.newest = times.front(),
                            .first_kept = times[std::min(keep_last, times.size()) - 1]};
  }
  return series_by_name;
}

bool IsOld(const PruneRules& rules, std::int64_t time) {
  return time > 0 && rules.now - time > rules.older_than;
}

bool IsReplaced(const SeriesTimesMap& series_by_name, const KeptImage& image) {
  const auto series = series_by_name.find(image.series);
  return series != series_by_name.end() && image.backup_time <= series->second.newest;
}

}  // namespace

PrunePlan PlanPrune(const PruneRules& rules, const std::vector<KeptSet>& sets,
                    const std::vector<KeptImage>& images) {
  const SeriesTimesMap series_by_name = TimesOf(sets, rules.keep_last);
  std::unordered_map<std::string_view, bool> goes_by_name;  // of images
  for (const KeptImage& image : images) {
    goes_by_name[image.name] = IsOld(rules, image.backup_time) && IsReplaced(series_by_name, image);
  }
  const auto can_go = [&](const std::string& name) {
    const auto image = goes_by_name.find(name);
    return image == goes_by_name.end() || image->second;
  };
  PrunePlan plan;
  std::vector<const KeptSet*> staying;
  for (const KeptSet& set : sets) {
    const bool goes = IsOld(rules, set.create_time) &&
                      set.create_time < series_by_name.at(set.series).first_kept &&
                      std::all_of(set.images.begin(), set.images.end(), can_go);
    if (goes) {
      plan.sets.push_back(&set);
    } else {
      staying.push_back(&set);
    }
  }
  for (const KeptSet* const set : staying) {
    for (const std::string& name : set->images) {
      goes_by_name[name] = false;
    }
  }
  for (const KeptImage& image : images) {
    if (goes_by_name[image.name]) {
      plan.images.push_back(&image);
    }
  }
  return plan;
}
