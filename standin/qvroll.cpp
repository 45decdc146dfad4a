// qvroll [-client C] [-policy P] [-sched S]: prints the listing of the stand-in's catalogue, or the
// rows of it that match. qvroll -id ID: prints three lines about one image.

#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <string>
#include <string_view>

#include "faults.h"
#include "product.h"

namespace {

struct Filter {
  std::string_view client;
  std::string_view policy;
  std::string_view schedule;
};

constexpr std::string_view kUsage =
    "usage: qvroll [-client CLIENT] [-policy POLICY] [-sched SCHEDULE] | -id ID";

void SkipBlanks(std::string_view* row) {
  row->remove_prefix(std::min(row->find_first_not_of(' '), row->size()));
}

/// The next blank-separated word of *row, which it is taken from.
std::string_view NextWord(std::string_view* row) {
  SkipBlanks(row);
  const std::string_view word = row->substr(0, row->find(' '));
  row->remove_prefix(word.size());
  return word;
}

bool Matches(const std::string& root, std::string_view row, const Filter& filter) {
  constexpr std::size_t kDateWidth = 20;
  const std::string_view id = NextWord(&row);
  SkipBlanks(&row);
  row.remove_prefix(std::min(kDateWidth, row.size()));
  NextWord(&row);  // files
  NextWord(&row);  // size
  const std::string_view schedule = NextWord(&row);
  const std::string_view policy = NextWord(&row);
  return (filter.client.empty() || id.substr(0, id.find('_')) == filter.client) &&
         (filter.policy.empty() || policy == filter.policy) &&
         (filter.schedule.empty() || schedule == filter.schedule) &&
         !IsForgotten(root, ImagePath(root, id));
}

/// The rows that match, each block that has any with its empty line and header.
std::string RowsThatMatch(const std::string& root, const Filter& filter) {
  std::ifstream rows(root + "/db/listing");
  std::string header;
  std::string line;
  std::string matches;
  bool is_block_open = false;
  while (std::getline(rows, line)) {
    if (line.empty()) {
      std::getline(rows, header);
      is_block_open = false;
      continue;
    }
    if (!Matches(root, line, filter)) {
      continue;
    }
    if (!is_block_open) {
      matches += "\n" + header + "\n";
      is_block_open = true;
    }
    matches += line + "\n";
  }
  return matches;
}

}  // namespace

int main(int argc, char** argv) {
  const std::string root = ProductRoot("/bin/admincmd/qvroll");
  if (argc == 3 && std::string_view(argv[1]) == "-id") {
    const std::string image = ImagePath(root, argv[2]);
    BeginFaults(root, "qvroll-id", argv[2]);
    const bool is_known = !image.empty() && !IsForgotten(root, image);
    return is_known && PrintFile(image + ".id") ? 0 : Fail("qvroll", "no such image");
  }
  Filter filter;
  for (int i = 1; i < argc; i += 2) {
    const std::string_view option = argv[i];
    std::string_view* const value = option == "-client"   ? &filter.client
                                    : option == "-policy" ? &filter.policy
                                    : option == "-sched"  ? &filter.schedule
                                                          : nullptr;
    if (value == nullptr || i + 1 == argc) {
      return Fail("qvroll", kUsage);
    }
    *value = argv[i + 1];
  }
  BeginFaults(root, "qvroll", "");
  // Without filters and faults the listing need not be looked at.
  if (argc == 1 && access((root + "/faults").c_str(), F_OK) != 0 &&
      PrintFile(root + "/db/listing")) {
    return 0;
  }
  const std::string rows = RowsThatMatch(root, filter);
  return !rows.empty() && PrintText(rows) ? 0 : Fail("qvroll", "no image matches");
}
