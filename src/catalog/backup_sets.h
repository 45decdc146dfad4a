#ifndef QUILLMERE_CATALOG_BACKUP_SETS_H_
#define QUILLMERE_CATALOG_BACKUP_SETS_H_

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "catalog/records.h"

/// Appends the backup sets of the catalogue listing to *sets, in the order of AssembleBackupSets.
/// `policy` and `client` filter as in GetBackupImageList. Returns 0; or, with *sets as it was, the
/// status of GetBackupImageList after one more line on standard error. Traces as both do.
int GetBackupSetList(const std::string& policy, const std::string& client,
                     std::vector<BackupSet>* sets);

/// Appends the backup sets that `images`, in listing order, make: series by series in byte order of
/// the grouping tag "client:policy:schedule", and in listing order inside a series. A series with
/// parent images (no files) gives a set for each parent that has images before it; a series without
/// any gives a set for each image. Traces go to standard output when `verbose` is at least 2, image
/// by image at 3.
void AssembleBackupSets(const std::vector<BackupImage>& images, std::vector<BackupSet>* sets);

/// The number of bytes that a size text stands for: a number and one of the units K, M, G, T, P.
/// A text without such a unit, a number that is none, and a product that lies 2^64 or more from 0
/// count 0. A negative product comes out modulo 2^64.
std::uint64_t BytesFromSize(std::string_view size);

#endif  // QUILLMERE_CATALOG_BACKUP_SETS_H_
