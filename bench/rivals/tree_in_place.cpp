// tree_in_place METADATA <ENTRIES >DOCUMENT: a tree for each entry, each node made where it stays.

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
  ptree& array = root.push_back({"fentries", ptree()})->second;
  EntryReader reader;
  std::vector<std::string> fields;
  while (reader.Next(&fields)) {
    ptree& entry = array.push_back({"", ptree()})->second;
    for (std::size_t i = 0; i < fields.size(); ++i) {
      entry.push_back({kEntryKeys[i], ptree()})->second.data() = std::move(fields[i]);
    }
  }
  boost::property_tree::write_json(std::cout, root, true);
  return 0;
}
