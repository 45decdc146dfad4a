#include "export/dump_backup_set.h"

#include <algorithm>
#include <iostream>
#include <string_view>
#include <vector>

#include "catalog/backup_sets.h"
#include "catalog/records.h"
#include "export/dump_backup.h"

int dump_backup_set(const std::string& policy, const std::string& client, long time,
                    const std::string& output_dir) {
  std::vector<BackupSet> sets;
  int status = GetBackupSetList(policy, client, &sets);
  if (status != 0) {
    std::cerr << "GetBackupSetList() failed. ret=" << status << '\n';
    return status;
  }
  // Not sorted: of the sets of one second, the first in the order of their series is exported.
  const auto chosen = std::find_if(
      sets.begin(), sets.end(), [time](const BackupSet& set) { return set.create_time == time; });
  if (chosen == sets.end()) {
    std::cerr << "can't find the backup set.\n";
    return 1;
  }
  for (const std::string_view backup_id : chosen->image_ids) {
    status = dump_backup(std::string(backup_id), output_dir);
    if (status != 0) {
      std::cerr << "dump_backup() failed. ret=" << status << '\n';
      return status;
    }
  }
  return 0;
}
