#include "random_text.h"

#include <algorithm>
#include <iostream>

#include <gtest/gtest.h>

using boost::property_tree::ptree;

RandomText::RandomText(unsigned seed) : engine_(seed) {
  std::cout << "seed: " << seed << '\n';
}

std::size_t RandomText::Number(std::size_t low, std::size_t high) {
  return low + engine_() % (high - low + 1);  // the same everywhere, unlike a distribution
}

std::string RandomText::Bytes(std::size_t min_size, std::size_t max_size) {
  std::string bytes(Number(min_size, max_size), '\0');
  std::generate(bytes.begin(), bytes.end(), [&] { return static_cast<char>(Number(0, 0xFF)); });
  return bytes;
}

char RandomText::FieldByte() {
  const char c = static_cast<char>(Number(1, 0xFF));
  return c == '\t' || c == '\n' ? FieldByte() : c;
}

Fields RandomText::Entry(std::size_t max_size) {
  Fields fields;
  for (std::string& field : fields) {
    field.resize(Number(1, max_size));
    std::generate(field.begin(), field.end(), [&] { return FieldByte(); });
  }
  return fields;
}

std::vector<Fields> RandomText::Entries(std::size_t count, std::size_t max_size) {
  std::vector<Fields> entries(count);
  std::generate(entries.begin(), entries.end(), [&] { return Entry(max_size); });
  return entries;
}

ptree RandomText::Tree(std::size_t depth) {
  ptree tree;
  const std::size_t child_count = depth == 0 ? 0 : Number(0, 4);
  const bool is_array = Number(0, 2) == 0;
  for (std::size_t i = 0; i < child_count; ++i) {
    const std::string key = is_array ? "" : Number(0, 9) == 0 ? "fentries" : Bytes(0, 12);
    ptree& child = tree.push_back({key, Tree(depth - 1)})->second;
    if (child.empty()) {
      child.data() = Bytes(0, 20);
    }
  }
  return tree;
}

std::string LineOf(const Fields& fields) {
  std::string line = fields[0];
  for (std::size_t i = 1; i < fields.size(); ++i) {
    line += '\t' + fields[i];
  }
  return line;
}

ptree TreeOf(const Fields& fields) {
  ptree entry;
  entry.push_back({"filenum", ptree(fields[0])});
  entry.push_back({"length", ptree(fields[1])});
  entry.push_back({"plength", ptree(fields[2])});
  entry.push_back({"dlength", ptree(fields[3])});
  entry.push_back({"blknum", ptree(fields[4])});
  entry.push_back({"in_image", ptree(fields[5])});
  entry.push_back({"raw_partition_sz", ptree(fields[6])});
  entry.push_back({"gigabytes", ptree(fields[7])});
  entry.push_back({"device_num", ptree(fields[8])});
  entry.push_back({"path", ptree(fields[9])});
  entry.push_back({"data", ptree(fields[10])});
  return entry;
}

ptree TreeOf(const std::vector<Fields>& entries) {
  ptree array;
  for (const Fields& fields : entries) {
    array.push_back({"", TreeOf(fields)});
  }
  return array;
}

FileEntryTable TableOf(const std::vector<Fields>& entries, const FileEntryTable::Packing& packing) {
  FileEntryTable table(packing);
  for (const Fields& fields : entries) {
    EXPECT_TRUE(table.Append(LineOf(fields)));
  }
  return table;
}
