#include "archive/table.h"

#include <algorithm>
#include <ostream>
#include <string_view>

#include "archive/units.h"

namespace {

/// Characters of UTF-8 text: its bytes but for those that continue a character.
std::size_t WidthOf(std::string_view text) {
  return static_cast<std::size_t>(
      std::count_if(text.begin(), text.end(), [](char c) { return (c & 0xC0) != 0x80; }));
}

}  // namespace

void Table::Add(std::vector<std::string> row) {
  for (std::string& text : row) {
    text = Printable(text);
  }
  rows_.push_back(std::move(row));
}

void Table::WriteRow(const std::vector<std::string>& row, const std::vector<std::size_t>& widths,
                     std::ostream* out) const {
  std::string line;
  for (std::size_t i = 0; i < row.size(); ++i) {
    const std::string blanks(widths[i] - WidthOf(row[i]), ' ');
    line += columns_[i].align == Align::kLeft ? row[i] + blanks : blanks + row[i];
    line += "  ";
  }
  line.resize(line.find_last_not_of(' ') + 1);
  *out << line << '\n';
}

void Table::Write(std::ostream* out) const {
  if (rows_.empty()) {
    return;
  }
  std::vector<std::string> titles;
  std::vector<std::size_t> widths;
  for (std::size_t i = 0; i < columns_.size(); ++i) {
    titles.push_back(columns_[i].title);
    widths.push_back(WidthOf(columns_[i].title));
    for (const std::vector<std::string>& row : rows_) {
      widths[i] = std::max(widths[i], WidthOf(row[i]));
    }
  }
  WriteRow(titles, widths, out);
  for (const std::vector<std::string>& row : rows_) {
    WriteRow(row, widths, out);
  }
}
