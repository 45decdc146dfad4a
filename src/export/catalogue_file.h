#ifndef QUILLMERE_EXPORT_CATALOGUE_FILE_H_
#define QUILLMERE_EXPORT_CATALOGUE_FILE_H_

#include <string>

/// Sets *name to the name of the catalogue file of the image `backup_id`, which is the last word of
/// the three lines that the product prints of it. Returns 0, or 1 after one line on standard error.
/// Throws std::out_of_range when the third line ends in a blank with nothing after it.
/// Traces the command and its lines to standard output when `verbose` is at least 1.
int FindCatalogueFile(const std::string& backup_id, std::string* name);

#endif  // QUILLMERE_EXPORT_CATALOGUE_FILE_H_
