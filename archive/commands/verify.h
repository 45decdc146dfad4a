#ifndef QUILLMERE_ARCHIVE_COMMANDS_VERIFY_H_
#define QUILLMERE_ARCHIVE_COMMANDS_VERIFY_H_

#include <cstddef>
#include <string>

struct VerifyOptions {
  std::string archive;   ///< path
  std::size_t jobs = 2;  ///< images checked at a time
};

/// Compares everything in the archive with what is known of it, and prints all that is wrong.
/// Returns a Status: kFound when something is.
int Verify(const VerifyOptions& options);

#endif  // QUILLMERE_ARCHIVE_COMMANDS_VERIFY_H_
