// What goes, at the time 1000 with an age of 100: what is older than the time 900.

#include "archive/prune_plan.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace {

constexpr std::int64_t kNow = 1000;
constexpr std::int64_t kAge = 100;

KeptImage Image(const std::string& name, std::int64_t time, const std::string& series = "s") {
  return {.name = name, .series = series, .backup_id = name, .backup_time = time};
}

KeptSet Set(const std::string& file, std::int64_t time, const std::vector<std::string>& images,
            const std::string& series = "s") {
  return {.series = series, .file = file, .create_time = time, .images = images};
}

struct Case {
  std::string what;
  std::vector<KeptSet> sets;
  std::vector<KeptImage> images;
  std::string goes;  // sets, then images, with blanks between
  std::size_t keep_last = 1;
};

std::string Goes(const Case& planned) {
  const PrunePlan plan =
      PlanPrune({.now = kNow, .older_than = kAge, .keep_last = planned.keep_last}, planned.sets,
                planned.images);
  std::string names;
  for (const KeptSet* const set : plan.sets) {
    names += ' ' + set->file;
  }
  for (const KeptImage* const image : plan.images) {
    names += ' ' + image->name;
  }
  return names.substr(names.empty() ? 0 : 1);
}

}  // namespace

TEST(PrunePlan, HasWhatIsOldAndNeededByNothingThatStays) {
  const std::vector<Case> kCases = {
      {"nothing at all", {}, {}, ""},
      {"an old set with its images",
       {Set("S1", 500, {"a", "b"}), Set("S2", 600, {"c"})},
       {Image("a", 500), Image("b", 500), Image("c", 600)},
       "S1 a b"},
      {"what is just as old as the age is no older",
       {Set("S1", 900, {"a"}), Set("S2", 950, {"b"})},
       {Image("a", 900), Image("b", 950)},
       ""},
      {"what is a second older goes",
       {Set("S1", 899, {"a"}), Set("S2", 950, {"b"})},
       {Image("a", 899), Image("b", 950)},
       "S1 a"},
      {"as many sets stay as were asked for, the newest",
       {Set("S3", 700, {"c"}), Set("S1", 500, {"a"}), Set("S2", 600, {"b"})},
       {Image("a", 500), Image("b", 600), Image("c", 700)},
       "S1 a",
       2},
      {"more sets are to stay than there are",
       {Set("S1", 500, {"a"}), Set("S2", 600, {"b"})},
       {Image("a", 500), Image("b", 600)},
       "",
       3},
      {"of sets of one second all stay or none",
       {Set("S1", 500, {"a"}), Set("S2", 500, {"b"})},
       {Image("a", 500), Image("b", 500)},
       ""},
      {"each series is one of its own",
       {Set("S1", 500, {"a"}), Set("S2", 600, {"b"}, "t")},
       {Image("a", 500), Image("b", 600, "t")},
       ""},
      {"a set without age stays, and its images",
       {Set("S1", 0, {"a"}), Set("S2", -5, {"b"}), Set("S3", 600, {})},
       {Image("a", 500), Image("b", 500)},
       ""},
      {"an image without age stays, and its set",
       {Set("S1", 500, {"a", "b"}), Set("S2", 600, {})},
       {Image("a", 0), Image("b", 500)},
       ""},
      {"a set stays as long as one of its images is young",
       {Set("S1", 890, {"a", "b"}), Set("S2", 950, {})},
       {Image("a", 895), Image("b", 905)},
       ""},
      {"an image stays that is also in a set that stays",
       {Set("S1", 500, {"a", "b"}), Set("S2", 600, {"b"})},
       {Image("a", 500), Image("b", 510)},
       "S1 a"},
      {"a set goes whose images are gone", {Set("S1", 500, {"a"}), Set("S2", 600, {})}, {}, "S1"},
      {"an image without a set goes once a set is as new",
       {Set("S1", 600, {})},
       {Image("a", 599), Image("b", 600), Image("c", 601)},
       "a b"},
      {"an image of a series without sets stays", {Set("S1", 600, {}, "t")}, {Image("a", 500)}, ""},
  };
  for (const Case& planned : kCases) {
    EXPECT_EQ(Goes(planned), planned.goes) << planned.what;
  }
}
