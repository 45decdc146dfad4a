// tree_by_copy METADATA <ENTRIES >DOCUMENT: a tree for each entry, built beside its place and
// pushed by copy, and the same once more with the array.

#include <ios>
#include <iostream>
#include <string>
#include <utility>
#include <vector>

#include <boost/property_tree/json_parser.hpp>
#include <boost/property_tree/ptree.hpp>

#include "entry_lines.h"

// NOLINTNEXTLINE(bugprone-exception-escape): whatever is wrong ends it
int main(int argc, char** argv) {
  using boost::property_tree::ptree;

  if (argc != 2) {
    return 1;
  }
  std::ios::sync_with_stdio(false);
  ptree root;
  boost::property_tree::read_json(argv[1], root);
  ptree array;
  EntryReader reader;
  std::vector<std::string> fields;
  while (reader.Next(&fields)) {
    ptree entry;
    for (std::size_t i = 0; i < fields.size(); ++i) {
      entry.put(kEntryKeys[i], fields[i]);
    }
    array.push_back(std::make_pair("", entry));
  }
  root.push_back(std::make_pair("fentries", array));
  boost::property_tree::write_json(std::cout, root, true);
  return 0;
}
