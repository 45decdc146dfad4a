#ifndef QUILLMERE_TESTS_ARCHIVE_UNIT_FAILING_CALLS_H_
#define QUILLMERE_TESTS_ARCHIVE_UNIT_FAILING_CALLS_H_

#include <string>

/// From now on, and in the processes that are started then, the call of `function` after the next
/// `after` ones fails with `error`, once. CMakeLists.txt says which functions can.
void FailOnce(const std::string& function, int error, int after = 0);

/// The same in this process alone, or in each one that is started then but not in this one.
void FailOnceHere(const std::string& function, int error, int after = 0);
void FailOnceInWorkers(const std::string& function, int error, int after = 0);

/// From now on directory entries have no type, as on some file systems, until the test ends.
void HideEntryTypes();

/// After the next `after` calls of fstatvfs nothing is free any more, until the test ends.
void FillDisk(int after);

/// Nothing fails any more.
void FailNothing();

#endif  // QUILLMERE_TESTS_ARCHIVE_UNIT_FAILING_CALLS_H_
