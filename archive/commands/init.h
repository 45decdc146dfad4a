#ifndef QUILLMERE_ARCHIVE_COMMANDS_INIT_H_
#define QUILLMERE_ARCHIVE_COMMANDS_INIT_H_

#include <string>

struct InitOptions {
  std::string archive;        ///< path
  std::string server;         ///< empty: the host name
  int compression_level = 0;  ///< of zstd; 0 for documents as they are
};

/// Makes an empty archive in a new or empty directory. Returns a Status, other than 0 after one
/// line on standard error.
int Init(const InitOptions& options);

#endif  // QUILLMERE_ARCHIVE_COMMANDS_INIT_H_
