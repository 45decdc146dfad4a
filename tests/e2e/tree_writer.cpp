// Writes an image dump document the plain way, with a tree node for each field of each entry.
//
//   tree_writer METADATA_FILE < ENTRY_LINES > DOCUMENT
//
// The metadata is a JSON document, an entry line is eleven fields joined by tabs. What comes out is
// what the tool has to write, byte for byte.

#include <array>
#include <iostream>
#include <string>

#include <boost/property_tree/json_parser.hpp>
#include <boost/property_tree/ptree.hpp>

namespace {

using boost::property_tree::ptree;

constexpr std::array<const char*, 11> kKeys = {
    "filenum",          "length",    "plength",    "dlength", "blknum", "in_image",
    "raw_partition_sz", "gigabytes", "device_num", "path",    "data"};

ptree EntryFromLine(const std::string& line) {
  ptree entry;
  std::size_t begin = 0;
  for (const char* key : kKeys) {
    const std::size_t end = line.find('\t', begin);
    entry.put(key, line.substr(begin, end - begin));
    begin = end + 1;
  }
  return entry;
}

}  // namespace

// NOLINTNEXTLINE(bugprone-exception-escape): an exception fails the test, with its message.
int main(int argc, char** argv) {
  if (argc != 2) {
    std::cerr << "usage: tree_writer METADATA_FILE\n";
    return 2;
  }
  ptree document;
  boost::property_tree::read_json(argv[1], document);
  ptree entries;
  for (std::string line; std::getline(std::cin, line);) {
    entries.push_back({"", EntryFromLine(line)});
  }
  document.push_back({"fentries", entries});
  boost::property_tree::write_json(std::cout, document, true);
  return 0;
}
