#ifndef QUILLMERE_EXPORT_OUTPUT_PATH_H_
#define QUILLMERE_EXPORT_OUTPUT_PATH_H_

#include <string>

/// The path of `file_name` in `directory`, which must not be empty. A '/' goes between them unless
/// the directory ends in one; nothing else is normalised.
std::string OutputPath(const std::string& directory, const std::string& file_name);

#endif  // QUILLMERE_EXPORT_OUTPUT_PATH_H_
