#ifndef QUILLMERE_CATALOG_BACKUP_SETS_H_
#define QUILLMERE_CATALOG_BACKUP_SETS_H_

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "catalog/image_texts.h"
#include "catalog/records.h"

/// Appends the backup sets of the catalogue listing to *sets: series by series in byte order of the
/// grouping tag "client:policy:schedule", and in listing order inside a series. A series with
/// parent images (no files) gives a set for each parent that has images before it; a series without
/// any gives a set for each image. `policy` and `client` filter as in GetBackupImageList, and
/// *texts keeps what the sets refer to. Returns 0; or, with *sets as it was, the status of
/// GetBackupImageList after one more line on standard error. Traces go to standard output when
/// `verbose` is at least 2, image by image at 3.
int GetBackupSetList(const std::string& policy, const std::string& client, ImageTexts* texts,
                     std::vector<BackupSet>* sets);

/// The number of bytes that a size text stands for: a number and one of the units K, M, G, T, P.
/// A text without such a unit, a number that is none and a product outside the range from -2^63
/// to 2^64 - 1 count 0. A negative product comes out modulo 2^64.
std::uint64_t BytesFromSize(std::string_view size);

#endif  // QUILLMERE_CATALOG_BACKUP_SETS_H_
