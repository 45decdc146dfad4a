#ifndef QUILLMERE_LAYOUT_LAYOUT_H_
#define QUILLMERE_LAYOUT_LAYOUT_H_

#include <cstddef>
#include <cstdint>
#include <string>

// Where the host backup product is installed, the names of the tool's actions, and the two pieces
// of state that the whole process shares. The strings are built before main runs and never change.

extern const std::string path_vkx;            ///< install root, fixed when the tool is built
extern const std::string path_vkx_db_images;  ///< the product's catalogue of images
extern const std::string path_vkx_bin;        ///< base of the commands
extern const std::string path_vkx_admincmd;   ///< base of the catalogue query commands
extern const std::string path_rec_unfold;     ///< prints the file entries of one catalogue file
extern const std::string path_qvroll;         ///< prints the catalogue listing
extern const std::string path_qvmeta;         ///< prints one image's metadata

extern const std::string ACTION_DUMP_BACKUP_SET_LIST;
extern const std::string ACTION_DUMP_BACKUP_SET;
extern const std::string ACTION_LIST_BACKUPS;
extern const std::string ACTION_DUMP_BACKUP;

/// Program name in the usage text. Not taken from the arguments, so that the text is always the
/// same.
extern const char* const prog;

/// Level of traces on standard output; compared with 1, 2 and 3. Written only while the command
/// line is parsed.
extern std::int32_t verbose;

/// Bytes in line_buf: a line of up to kLineBufSize - 1 bytes, its newline included, is read whole.
inline constexpr std::size_t kLineBufSize = std::size_t{4} * 1024 * 1024;

/// The one buffer into which the output of commands is read, a line at a time. Its text is valid
/// until the next read; whoever keeps some of it copies it out.
extern char line_buf[kLineBufSize];

#endif  // QUILLMERE_LAYOUT_LAYOUT_H_
