#ifndef QUILLMERE_CATALOG_IMAGE_LIST_H_
#define QUILLMERE_CATALOG_IMAGE_LIST_H_

#include <string>
#include <vector>

#include "catalog/records.h"

/// Appends one record for each data row of the catalogue listing to *images, in listing order.
/// Empty `policy` or `client` means no filter; other values become words of the shell command as
/// they are. Returns 0, or 1 after one line on standard error; the records read before the failure
/// stay in *images. Traces go to standard output: the command and its lines when `verbose` is at
/// least 1, the number of records now in *images when it is at least 2.
int GetBackupImageList(const std::string& policy, const std::string& client,
                       std::vector<BackupImage>* images);

#endif  // QUILLMERE_CATALOG_IMAGE_LIST_H_
