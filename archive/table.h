#ifndef QUILLMERE_ARCHIVE_TABLE_H_
#define QUILLMERE_ARCHIVE_TABLE_H_

#include <cstddef>
#include <cstdint>
#include <iosfwd>
#include <string>
#include <vector>

/// Rows of text in columns as wide as they have to be.
class Table {
 public:
  enum class Align : std::uint8_t { kLeft, kRight };

  struct Column {
    std::string title;
    Align align;
  };

  explicit Table(std::vector<Column> columns) : columns_(std::move(columns)) {}

  /// Adds a row with a text for each column. Control characters are shown, not obeyed.
  void Add(std::vector<std::string> row);

  /// Writes titles and rows; nothing when there are no rows.
  void Write(std::ostream* out) const;

 private:
  void WriteRow(const std::vector<std::string>& row, const std::vector<std::size_t>& widths,
                std::ostream* out) const;

  std::vector<Column> columns_;
  std::vector<std::vector<std::string>> rows_;
};

#endif  // QUILLMERE_ARCHIVE_TABLE_H_
