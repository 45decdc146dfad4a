#include "export/image_document.h"

#include <fstream>
#include <iostream>
#include <locale>
#include <sstream>
#include <string_view>

#include <boost/property_tree/json_parser.hpp>
#include <boost/property_tree/ptree.hpp>

namespace {

namespace json_parser = boost::property_tree::json_parser;
using boost::property_tree::ptree;

/// True when the writer alone makes the document: nothing is to be spliced in, or the writer has to
/// refuse a root that is a scalar.
bool IsLeftToTheWriter(const ptree& root, const FileEntryTable& entries) {
  return entries.empty() || !root.data().empty();
}

/// Writes what the writer makes of `root`, with the array of the entries in the place of the empty
/// value of its last member. Throws as the writer does; `path` is empty for standard output.
void WriteSpliced(std::ostream& out, const ptree& root, const FileEntryTable& entries,
                  const std::string& path) {
  constexpr std::string_view kEmptyValue = "\"\"";
  constexpr std::string_view kRootClose = "\n}\n";
  std::ostringstream written;
  json_parser::write_json(written, root, true);
  std::string_view text = written.view();
  text.remove_suffix(kEmptyValue.size() + kRootClose.size());
  out << text;
  entries.WriteArray(out);
  out << kRootClose << std::flush;
  if (!out.good()) {
    BOOST_PROPERTY_TREE_THROW(json_parser::json_parser_error("write error", path, 0));
  }
}

}  // namespace

void WriteImageDocument(ptree* root, const FileEntryTable& entries) {
  root->push_back({"fentries", ptree()});
  if (IsLeftToTheWriter(*root, entries)) {
    json_parser::write_json(std::cout, *root, true);
    return;
  }
  WriteSpliced(std::cout, *root, entries, "");
}

void WriteImageDocument(ptree* root, const FileEntryTable& entries, const std::string& path) {
  root->push_back({"fentries", ptree()});
  if (IsLeftToTheWriter(*root, entries)) {
    json_parser::write_json(path, *root, std::locale(), true);
    return;
  }
  std::ofstream out(path);
  if (!out) {
    BOOST_PROPERTY_TREE_THROW(json_parser::json_parser_error("cannot open file", path, 0));
  }
  WriteSpliced(out, *root, entries, path);
}
