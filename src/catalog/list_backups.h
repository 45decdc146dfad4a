#ifndef QUILLMERE_CATALOG_LIST_BACKUPS_H_
#define QUILLMERE_CATALOG_LIST_BACKUPS_H_

#include <string>

/// Copies the product's catalogue listing to standard output, unchanged; a zero byte in a line
/// drops the rest of that line. Empty filters do not filter; the others become words of the shell
/// command as they are. Returns 0 once the command was started, whatever became of it, or 1 after
/// one line on standard error.
int list_backups(const std::string& policy, const std::string& client, const std::string& schedule);

#endif  // QUILLMERE_CATALOG_LIST_BACKUPS_H_
