#ifndef QUILLMERE_ARCHIVE_PRUNE_PLAN_H_
#define QUILLMERE_ARCHIVE_PRUNE_PLAN_H_

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

// What is old enough to go, and needed by nothing that stays. Images, sets and series are named by
// the directories and files that stand for them: "CLIENT/ID", "CLIENT/POLICY/SCHEDULE/TIME.json",
// "CLIENT/POLICY/SCHEDULE".

/// An image in the archive.
struct KeptImage {
  std::string name;
  std::string series;
  std::string backup_id;
  std::int64_t backup_time = 0;    ///< seconds
  std::uint64_t stored_bytes = 0;  ///< of its document
};

/// A set in the archive.
struct KeptSet {
  std::string series;
  std::string file;                 ///< its name in the directory of the series
  std::int64_t create_time = 0;     ///< seconds
  std::vector<std::string> images;  ///< names of its members
};

struct PruneRules {
  std::int64_t now = 0;         ///< seconds
  std::int64_t older_than = 0;  ///< seconds; what is no older stays
  std::size_t keep_last = 1;    ///< sets of each series, the newest ones, at least 1
};

/// What goes, in the order in which it was given. It refers to that.
struct PrunePlan {
  std::vector<const KeptSet*> sets;
  std::vector<const KeptImage*> images;
};

/// Plans for the sets and images of a whole archive. What has no age, a time that is not above 0,
/// stays.
///
/// A set goes when it and all of its members are old, unless it is one of the newest of its series.
/// An image goes when it is old, is in no set that stays, and its series has a set that is no older
/// than it: what nothing newer replaced stays.
PrunePlan PlanPrune(const PruneRules& rules, const std::vector<KeptSet>& sets,
                    const std::vector<KeptImage>& images);

#endif  // QUILLMERE_ARCHIVE_PRUNE_PLAN_H_
