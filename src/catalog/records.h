#ifndef QUILLMERE_CATALOG_RECORDS_H_
#define QUILLMERE_CATALOG_RECORDS_H_

#include <cstdint>
#include <string_view>
#include <vector>

// Records are values: copy, sort and keep them. Their fields are views of texts that live as long
// as the process, so none can dangle; a million rows would be six million strings otherwise.

/// One data row of the catalogue listing.
struct BackupImage {
  std::string_view backup_id;    ///< client, '_' and backup time, as printed
  std::string_view size;         ///< decimal number and a unit letter (K, M, G, T or P)
  std::string_view last_field;   ///< shown in traces only
  std::string_view policy;       ///< second part of the grouping tag
  std::string_view schedule;     ///< third part of the grouping tag
  std::string_view client;       ///< backup_id before its first '_'
  std::int64_t backup_time = 0;  ///< seconds, from backup_id after its first '_'
  std::int32_t files = 0;        ///< number of files; 0 marks a parent image
};

/// One backup set: images that belong together, described by the image that defines the set (the
/// parent image that closes it, or its only image).
struct BackupSet {
  std::string_view policy;
  std::string_view client;
  std::string_view schedule;
  std::string_view backup_id;
  std::int64_t create_time = 0;             ///< seconds, the defining image's backup_time
  std::uint64_t backup_size = 0;            ///< bytes, modulo 2^64
  std::vector<std::string_view> image_ids;  ///< member images in listing order, without the parent
};

/// True when `a` was created before `b`. Looks at create_time alone, so sets of the same second
/// are equivalent.
bool backup_set_compare(const BackupSet& a, const BackupSet& b);

#endif  // QUILLMERE_CATALOG_RECORDS_H_
