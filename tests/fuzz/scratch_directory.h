#ifndef QUILLMERE_TESTS_FUZZ_SCRATCH_DIRECTORY_H_
#define QUILLMERE_TESTS_FUZZ_SCRATCH_DIRECTORY_H_

#include <string>

/// The path of `name` in a directory that this process alone has: in the system's directory of
/// temporary files, made when it is first asked for and removed when the process ends in order.
std::string ScratchPath(const std::string& name);

/// Makes the file with this content, or replaces what it held.
void WriteContent(const std::string& path, const std::string& content);

/// The content of the file, or "no file".
std::string ContentOf(const std::string& path);

#endif  // QUILLMERE_TESTS_FUZZ_SCRATCH_DIRECTORY_H_
