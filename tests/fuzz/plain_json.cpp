#include "plain_json.h"

#include <algorithm>
#include <cstddef>
#include <sstream>

#include <boost/property_tree/json_parser.hpp>

#include "outcome.h"

namespace {

using boost::property_tree::ptree;

const std::array<const char*, 11> kFieldNames = {
    "filenum",          "length",    "plength",    "dlength", "blknum", "in_image",
    "raw_partition_sz", "gigabytes", "device_num", "path",    "data"};

std::string Quoted(const std::string& text) {
  const std::string hex_digits = "0123456789ABCDEF";
  std::string quoted = "\"";
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (c == '"' || c == '\\' || c == '/') {
      quoted += '\\';
      quoted += c;
    } else if (c == '\b') {
      quoted += "\\b";
    } else if (c == '\f') {
      quoted += "\\f";
    } else if (c == '\n') {
      quoted += "\\n";
    } else if (c == '\r') {
      quoted += "\\r";
    } else if (c == '\t') {
      quoted += "\\t";
    } else if (byte < 0x20) {
      quoted += "\\u00";
      quoted += hex_digits[byte / 16];
      quoted += hex_digits[byte % 16];
    } else {
      quoted += c;
    }
  }
  return quoted + "\"";
}

/// Appends the value of a node to *text. `level` is how deep its own line is indented.
void AppendValue(const ptree& node, std::size_t level, std::string* text) {
  if (level > 0 && node.empty()) {
    *text += Quoted(node.data());
    return;
  }
  const bool is_array =
      level > 0 && std::all_of(node.begin(), node.end(),
                               [](const ptree::value_type& child) { return child.first.empty(); });
  *text += is_array ? "[\n" : "{\n";
  std::size_t left = node.size();
  for (const auto& [key, child] : node) {
    text->append(4 * (level + 1), ' ');
    if (!is_array) {
      *text += Quoted(key) + ": ";
    }
    AppendValue(child, level + 1, text);
    --left;
    *text += left > 0 ? ",\n" : "\n";
  }
  text->append(4 * level, ' ');
  *text += is_array ? "]" : "}";
}

}  // namespace

ptree DocumentTree(const ptree& metadata, const std::vector<Entry>& entries) {
  ptree tree = metadata;
  ptree& array = tree.push_back({"fentries", ptree()})->second;
  for (const Entry& entry : entries) {
    ptree& object = array.push_back({"", ptree()})->second;
    for (std::size_t i = 0; i < entry.size(); ++i) {
      object.push_back({kFieldNames[i], ptree(entry[i])});
    }
  }
  return tree;
}

std::string PlainDocument(const ptree& tree) {
  std::string document;
  AppendValue(tree, 0, &document);
  return document + "\n";
}

void ExpectHolds(const std::string& document, const ptree& tree) {
  std::istringstream stream(document);
  ptree read;
  bool is_readable = true;
  try {
    boost::property_tree::read_json(stream, read);
  } catch (const boost::property_tree::json_parser_error&) {
    is_readable = false;
  }
  Expect(is_readable, "the JSON reader reads the document");
  Expect(read == tree, "the document holds what was put into it");
}
