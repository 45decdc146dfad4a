#ifndef QUILLMERE_EXPORT_FILE_ENTRIES_H_
#define QUILLMERE_EXPORT_FILE_ENTRIES_H_

#include <string>

#include "export/file_entry_table.h"

/// Appends the file entries that the product unfolds from the catalogue file `path` to *entries.
/// `path` becomes a word of the shell command as it is. Returns 0, or 1 after one line on standard
/// error. Traces the command and its lines to standard output when `verbose` is at least 1.
int ReadFileEntries(const std::string& path, FileEntryTable* entries);

#endif  // QUILLMERE_EXPORT_FILE_ENTRIES_H_
