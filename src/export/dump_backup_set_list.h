#ifndef QUILLMERE_EXPORT_DUMP_BACKUP_SET_LIST_H_
#define QUILLMERE_EXPORT_DUMP_BACKUP_SET_LIST_H_

#include <string>

/// Writes the newest `count` backup sets, or all of them when `count` is below 1, as the JSON
/// document "backup_sets.json" in `output_dir`, which must exist, or on standard output when that
/// is empty. Newest first; the listing alone decides the order of sets of the same second, so a
/// `count` gives the head of the whole list. `policy` and `client` filter as in GetBackupSetList.
/// Returns 0, or the status of GetBackupSetList after one more line on standard error. Throws
/// boost::property_tree::json_parser::json_parser_error when the document can't be written.
int dump_backup_set_list(const std::string& policy, const std::string& client, int count,
                         const std::string& output_dir);

#endif  // QUILLMERE_EXPORT_DUMP_BACKUP_SET_LIST_H_
