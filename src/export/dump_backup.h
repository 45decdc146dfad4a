#ifndef QUILLMERE_EXPORT_DUMP_BACKUP_H_
#define QUILLMERE_EXPORT_DUMP_BACKUP_H_

#include <string>

/// Writes the image dump document of one image, its metadata with the array "fentries" of its file
/// entries behind it: to `backup_id` + ".json" in `output_dir`, which must exist, or to standard
/// output when that is empty. The metadata passes through the file `backup_id` + ".qvmeta.json" in
/// the same directory (or in "/tmp"), which is gone once it is read. `backup_id` becomes a word of
/// shell commands as it is.
///
/// Returns 0, or 1 after one line on standard error with no document written. Throws
/// std::out_of_range when the part of `backup_id` behind its first '_' is shorter than four
/// characters, or when the catalogue file name is missing; and
/// boost::property_tree::json_parser::json_parser_error when the metadata is no JSON document or
/// the image dump document can't be written.
int dump_backup(const std::string& backup_id, const std::string& output_dir);

#endif  // QUILLMERE_EXPORT_DUMP_BACKUP_H_
