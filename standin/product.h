#ifndef QUILLMERE_STANDIN_PRODUCT_H_
#define QUILLMERE_STANDIN_PRODUCT_H_

#include <string>
#include <string_view>

// What the three commands share: where the catalogue is, and how a file reaches standard output.

/// The root that the running command belongs to: the directory that holds its "bin". Found from the
/// program's own file, so a root works wherever it is copied or mounted.
std::string ProductRoot(std::string_view command_below_root);

/// Path without suffix of what the catalogue below `root` knows of one image:
/// "ROOT/db/images/CLIENT/BUCKET/TIME". Empty when `backup_id` is not CLIENT_TIME, with a time of
/// at least four characters.
std::string ImagePath(const std::string& root, std::string_view backup_id);

/// Copies the file `path` to standard output in large pieces, or as much of it as the faults leave,
/// which may end the process. Returns false, with nothing written, when it can't be opened, and
/// false when writing fails.
bool PrintFile(const std::string& path);

/// The same with a text.
bool PrintText(std::string_view text);

/// Writes "COMMAND: MESSAGE" and a newline to standard error and returns 1, the exit status.
int Fail(std::string_view command, std::string_view message);

#endif  // QUILLMERE_STANDIN_PRODUCT_H_
