#ifndef QUILLMERE_EXPORT_CATALOGUE_FILE_H_
#define QUILLMERE_EXPORT_CATALOGUE_FILE_H_

#include <string>

/// The directory of the catalogue files of the client of `backup_id`, which holds a '_', that were
/// written in the same 10^6 seconds as that image's. Throws std::out_of_range when `backup_id` has
/// fewer than four characters behind its first '_'.
std::string CatalogueDirectory(const std::string& backup_id);

/// Sets *name to the name of the catalogue file of the image `backup_id`, which is the last word of
/// the three lines that the product prints of it. Returns 0, or 1 after one line on standard error.
/// Throws std::out_of_range when the third line ends in a blank with nothing after it. `backup_id`
/// becomes a word of the shell command as it is.
/// Traces the command and its lines to standard output when `verbose` is at least 1.
int FindCatalogueFile(const std::string& backup_id, std::string* name);

#endif  // QUILLMERE_EXPORT_CATALOGUE_FILE_H_
