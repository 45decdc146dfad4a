#include "catalog/records.h"

bool backup_set_compare(const BackupSet& a, const BackupSet& b) {
  return a.create_time < b.create_time;
}
