#ifndef QUILLMERE_ARCHIVE_NAMES_H_
#define QUILLMERE_ARCHIVE_NAMES_H_

#include <string>
#include <string_view>

/// The name of the file or directory that stands for `name`, any bytes: never empty, never hidden,
/// at most 200 bytes, and another one for each name. docs/archive.md has the rules.
std::string FileNameOf(std::string_view name);

/// What precedes the first '_' of a backup id: the client that its directory is named after.
std::string_view ClientOf(std::string_view backup_id);

/// What follows the first '_' of a backup id, normally decimal seconds.
std::string_view TimeOf(std::string_view backup_id);

#endif  // QUILLMERE_ARCHIVE_NAMES_H_
