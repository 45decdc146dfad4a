#ifndef QUILLMERE_ARCHIVE_ENTRY_TEXT_H_
#define QUILLMERE_ARCHIVE_ENTRY_TEXT_H_

#include <cstdint>
#include <string>
#include <string_view>

// Values of a document, as they stand between its quotation marks, and what they stand for.

enum class TextForm : std::uint8_t {
  kPlain,  ///< the bytes
  kTsv,    ///< with the escapes that PostgreSQL's COPY and ClickHouse's TabSeparated read
  kJson,   ///< for another JSON text: as it is, but for slashes, and small hexadecimal digits
};

/// Appends what `value` stands for to *text, in `form`. Returns false, having appended a part, for
/// a value that quillmere doesn't write: it has one way only to write each text.
bool AppendValue(std::string_view value, TextForm form, std::string* text);

/// The value that stands for `plain`.
std::string ValueOf(std::string_view plain);

/// Appends `plain` with the escapes of kTsv.
void AppendTsv(std::string_view plain, std::string* text);

#endif  // QUILLMERE_ARCHIVE_ENTRY_TEXT_H_
