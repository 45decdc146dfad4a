#include "export/dump_backup_set_list.h"

#include <algorithm>
#include <cstddef>
#include <iostream>
#include <string_view>
#include <vector>

#include <boost/property_tree/ptree.hpp>

#include "catalog/backup_sets.h"
#include "catalog/records.h"
#include "export/json_document.h"
#include "export/output_path.h"

namespace {

/// Writes the last `count` of `sets`, the last first, as the JSON writer would: digits and signs
/// have no need of escapes. Pinned by DumpBackupSetList.WritesTheBytesOfARealTree.
void WriteNewest(const std::vector<BackupSet>& sets, std::size_t count, std::ostream* out) {
  if (count == 0) {
    *out << "\"\"";
    return;
  }
  std::string_view before = "[\n";
  const auto end = sets.rbegin() + static_cast<std::ptrdiff_t>(count);
  for (auto set = sets.rbegin(); set != end; ++set) {
    *out << before << "        {\n            \"BackupCreateTime\": \"" << set->create_time
         << "\",\n            \"BackupSize\": \"" << set->backup_size << "\"\n        }";
    before = ",\n";
  }
  *out << "\n    ]";
}

}  // namespace

int dump_backup_set_list(const std::string& policy, const std::string& client, int count,
                         const std::string& output_dir) {
  std::vector<BackupSet> sets;
  const int status = GetBackupSetList(policy, client, &sets);
  if (status != 0) {
    std::cerr << "GetBackupSetList() failed. ret=" << status << '\n';
    return status;
  }
  // All of them, whatever the count: so the sets of one second, too, come in the same order.
  std::sort(sets.begin(), sets.end(), backup_set_compare);
  const std::size_t newest =
      count < 1 ? sets.size() : std::min(sets.size(), static_cast<std::size_t>(count));

  boost::property_tree::ptree root;
  WriteDocument(
      &root, "backup_sets", [&](std::ostream& out) { WriteNewest(sets, newest, &out); },
      output_dir.empty() ? "" : OutputPath(output_dir, "backup_sets.json"));
  return 0;
}
