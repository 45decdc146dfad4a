#include "inner_loops.h"

#include <cstdint>
#include <iostream>
#include <memory>
#include <numeric>
#include <ostream>
#include <streambuf>

#include "catalog/backup_sets.h"
#include "catalog/image_list.h"
#include "catalog/list_backups.h"
#include "export/file_entries.h"
#include "export/file_entry_table.h"

namespace {

class NullBuffer : public std::streambuf {
 protected:
  std::streamsize xsputn(const char* /*text*/, std::streamsize size) override { return size; }
  int_type overflow(int_type c) override { return traits_type::not_eof(c); }
};

NullBuffer null_buffer;

/// Keeps the compiler from leaving out what makes `value`.
void Use(std::uint64_t value) {
  [[maybe_unused]] static volatile std::uint64_t used;
  used = value;
}

InnerLoop PassThrough(const std::shared_ptr<std::string>& listing, std::size_t rows) {
  return {"list_backups", "row", rows, [listing] {
            LetCommandsPrint(*listing);
            std::streambuf* const standard_output = std::cout.rdbuf(&null_buffer);
            Use(static_cast<std::uint64_t>(list_backups("", "", "")));
            std::cout.rdbuf(standard_output);
          }};
}

InnerLoop CutRows(const std::shared_ptr<std::string>& listing, std::size_t rows) {
  return {"GetBackupImageList", "row", rows, [listing] {
            LetCommandsPrint(*listing);
            std::vector<BackupImage> images;
            GetBackupImageList("", "", &images);
            Use(images.size());
          }};
}

/// Cuts rows as well: what the grouping takes is the difference from CutRows.
InnerLoop AssembleSets(const std::string& name, const std::shared_ptr<std::string>& listing,
                       std::size_t rows) {
  return {name, "row", rows, [listing] {
            LetCommandsPrint(*listing);
            std::vector<BackupSet> sets;
            GetBackupSetList("", "", &sets);
            Use(sets.size());
          }};
}

InnerLoop ConvertSizes(std::size_t count) {
  const auto sizes = std::make_shared<std::vector<std::string>>();
  for (std::size_t i = 0; i < count; ++i) {
    sizes->push_back(std::to_string(i % 1000) + "." + std::to_string(i % 10) + "KMGTP"[i % 5]);
  }
  return {"BytesFromSize", "size", count, [sizes] {
            Use(std::accumulate(sizes->begin(), sizes->end(), std::uint64_t{0},
                                [](std::uint64_t sum, const std::string& size) {
                                  return sum + BytesFromSize(size);
                                }));
          }};
}

FileEntryTable TableOf(const std::vector<std::string>& lines) {
  FileEntryTable table;
  for (const std::string& line : lines) {
    table.Append(line);
  }
  return table;
}

InnerLoop SplitEntries(const std::shared_ptr<std::vector<std::string>>& lines) {
  return {"FileEntryTable::Append", "entry", lines->size(),
          [lines] { Use(TableOf(*lines).size()); }};
}

/// Reads and judges the lines as well as splitting them.
InnerLoop ReadEntries(const std::vector<std::string>& lines) {
  const auto text = std::make_shared<std::string>();
  for (const std::string& line : lines) {
    text->append(line).append(1, '\n');
  }
  return {"ReadFileEntries", "entry", lines.size(), [text] {
            LetCommandsPrint(*text);
            FileEntryTable table;
            Use(static_cast<std::uint64_t>(ReadFileEntries("", &table)));
          }};
}

InnerLoop WriteEntries(const std::vector<std::string>& lines) {
  const auto table = std::make_shared<FileEntryTable>(TableOf(lines));
  return {"FileEntryTable::WriteArray", "entry", lines.size(), [table] {
            std::ostream out(&null_buffer);
            table->WriteArray(out);
            Use(out.good() ? 0 : 1);
          }};
}

}  // namespace

std::vector<InnerLoop> InnerLoops(std::size_t units, FieldLength length) {
  const auto listing = std::make_shared<std::string>(CannedListing(units, true, length));
  const auto lone_images = std::make_shared<std::string>(CannedListing(units, false, length));
  const auto lines = std::make_shared<std::vector<std::string>>(CannedEntries(units, length));
  return {PassThrough(listing, units),
          CutRows(listing, units),
          AssembleSets("GetBackupSetList, sets of ten", listing, units),
          AssembleSets("GetBackupSetList, lone images", lone_images, units),
          ConvertSizes(units),
          ReadEntries(*lines),
          SplitEntries(lines),
          WriteEntries(*lines)};
}
