#ifndef QUILLMERE_ARCHIVE_COMMANDS_FIND_H_
#define QUILLMERE_ARCHIVE_COMMANDS_FIND_H_

#include <string>
#include <vector>

#include "archive/image_choice.h"

struct FindOptions {
  std::string archive;                ///< path
  std::vector<std::string> patterns;  ///< one of which has to match
  bool is_substring = false;
  bool ignores_case = false;
  ImageChoice choice;
  bool is_newest = false;  ///< of each client and path the newest image only
  bool is_json = false;
};

/// Prints the file entries whose paths match, newest image first, each as soon as it is known.
/// Returns a Status: kFound when there are none.
int Find(const FindOptions& options);

#endif  // QUILLMERE_ARCHIVE_COMMANDS_FIND_H_
