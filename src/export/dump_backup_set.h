#ifndef QUILLMERE_EXPORT_DUMP_BACKUP_SET_H_
#define QUILLMERE_EXPORT_DUMP_BACKUP_SET_H_

#include <string>

/// Exports each member image of the first backup set created at `time` (seconds) with dump_backup
/// into `output_dir`, in listing order; `policy` and `client` filter as in GetBackupSetList.
/// Returns 0; 1 when no set has that time; the status of GetBackupSetList; or the first status
/// other than 0 of dump_backup, with the documents of the images before it left in place. Each
/// failure puts one line on standard error. Throws what dump_backup throws.
int dump_backup_set(const std::string& policy, const std::string& client, long time,
                    const std::string& output_dir);

#endif  // QUILLMERE_EXPORT_DUMP_BACKUP_SET_H_
