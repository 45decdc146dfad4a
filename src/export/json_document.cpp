#include "export/json_document.h"

#include <fstream>
#include <iostream>
#include <sstream>
#include <string_view>
#include <utility>

#include <boost/property_tree/json_parser.hpp>
#include <boost/property_tree/ptree.hpp>

namespace {

using boost::property_tree::json_parser_error;
using boost::property_tree::ptree;

constexpr std::string_view kRootClose = "\n}\n";

/// What the writer makes of `root` up to the value of its last member, which is empty. Throws as
/// the writer does; `path` is for the message.
std::string TextBeforeTheArray(const ptree& root, const std::string& path) {
  if (!root.data().empty()) {
    // In the writer's own words, which would not name the path here.
    BOOST_PROPERTY_TREE_THROW(json_parser_error(
        "ptree contains data that cannot be represented in JSON format", path, 0));
  }
  constexpr std::string_view kEmptyValue = "\"\"";
  std::ostringstream written;
  written.exceptions(std::ios::badbit);  // that memory is short is no write error
  boost::property_tree::json_parser::write_json(written, root, true);
  std::string text = std::move(written).str();
  text.resize(text.size() - kEmptyValue.size() - kRootClose.size());
  return text;
}

void ThrowUnlessGood(const std::ios& out, const std::string& path) {
  if (!out.good()) {
    BOOST_PROPERTY_TREE_THROW(json_parser_error("write error", path, 0));
  }
}

}  // namespace

void WriteDocumentTo(std::ostream* out, ptree* root, const std::string& array_name,
                     const ArrayWriter& write_array, const std::string& path) {
  root->push_back({array_name, ptree()});
  *out << TextBeforeTheArray(*root, path);
  write_array(*out);
  *out << kRootClose << std::flush;
  ThrowUnlessGood(*out, path);
}

void WriteDocument(ptree* root, const std::string& array_name, const ArrayWriter& write_array,
                   const std::string& path) {
  if (path.empty()) {
    WriteDocumentTo(&std::cout, root, array_name, write_array, path);
    return;
  }
  std::ofstream file(path);
  if (!file) {
    BOOST_PROPERTY_TREE_THROW(json_parser_error("cannot open file", path, 0));
  }
  WriteDocumentTo(&file, root, array_name, write_array, path);
  file.close();  // what the system could not keep, some file systems say only here
  ThrowUnlessGood(file, path);
}
