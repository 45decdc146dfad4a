#ifndef QUILLMERE_BENCH_RIVALS_ENTRY_LINES_H_
#define QUILLMERE_BENCH_RIVALS_ENTRY_LINES_H_

#include <algorithm>
#include <array>
#include <cstddef>
#include <iostream>
#include <stdexcept>
#include <string>
#include <vector>

// How both trees get their entries: lines of standard input, cut at tabs.

inline constexpr std::array<const char*, 11> kEntryKeys = {
    "filenum",          "length",    "plength",    "dlength", "blknum", "in_image",
    "raw_partition_sz", "gigabytes", "device_num", "path",    "data"};

/// The fields of `line`; runs of tabs count as one, tabs at either end not at all.
inline std::vector<std::string> SplitAtTabs(const std::string& line) {
  std::vector<std::string> fields;
  std::size_t begin = 0;
  while ((begin = line.find_first_not_of('\t', begin)) != std::string::npos) {
    const std::size_t end = std::min(line.find('\t', begin), line.size());
    fields.push_back(line.substr(begin, end - begin));
    begin = end;
  }
  return fields;
}

/// Reads the fields of the next entry from standard input. Returns false at its end; throws
/// std::out_of_range when an entry has another number of fields.
class EntryReader {
 public:
  bool Next(std::vector<std::string>* fields) {
    std::string line;
    while (std::getline(std::cin, line)) {
      if (line.empty() || line.front() == '0') {
        continue;
      }
      if (!header_seen_ && line.compare(0, 4, "num\t") == 0) {
        header_seen_ = true;
        continue;
      }
      *fields = SplitAtTabs(line);
      if (fields->size() != kEntryKeys.size()) {
        throw std::out_of_range("token size mismatch");
      }
      return true;
    }
    return false;
  }

 private:
  bool header_seen_ = false;
};

#endif  // QUILLMERE_BENCH_RIVALS_ENTRY_LINES_H_
