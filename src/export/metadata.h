#ifndef QUILLMERE_EXPORT_METADATA_H_
#define QUILLMERE_EXPORT_METADATA_H_

#include <string>
#include <string_view>

#include <boost/property_tree/ptree_fwd.hpp>

/// Fills *metadata, an empty tree, with what the product says of the image `backup_id`, which
/// becomes a word of the shell command as it is. The text passes through the file `path`, which is
/// created or replaced first and removed once it is read. Returns 0, or 1 after one line on
/// standard error; when only the command could not be started, `path` is left behind, empty. Throws
/// boost::property_tree::json_parser::json_parser_error when the file can't be written whole or
/// read, is no JSON document, or is nested more than 10,000 levels deep (or fewer, where the stack
/// is limited to less than 8 MiB), and leaves it behind. Traces the command and its lines to
/// standard output when `verbose` is at least 1.
int FetchMetadata(const std::string& backup_id, const std::string& path,
                  boost::property_tree::ptree* metadata);

/// `line` with each doubled percent sign as a single one. A percent sign that is not doubled stays
/// as it is, with all that follows.
std::string UndoublePercents(std::string_view line);

#endif  // QUILLMERE_EXPORT_METADATA_H_
