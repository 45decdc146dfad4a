#include "export/metadata.h"

#include <stdio.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <iostream>
#include <locale>

#include <boost/property_tree/json_parser.hpp>
#include <boost/property_tree/ptree.hpp>

#include "host/command_output.h"
#include "layout/layout.h"

namespace {

// The JSON reader and writer call themselves for each level. So many levels take a quarter of the
// usual stack of 8 MiB; no metadata comes near.
constexpr std::size_t kDeepestNesting = 10000;

/// Follows how deep arrays and objects are nested in a JSON text that comes in pieces.
class NestingMeter {
 public:
  void Take(std::string_view text) {
    for (const char c : text) {
      Take(c);
    }
  }

  [[nodiscard]] std::size_t deepest() const { return deepest_; }

 private:
  void Take(char c) {
    if (is_in_string_) {
      is_in_string_ = is_escaped_ || c != '"';
      is_escaped_ = !is_escaped_ && c == '\\';
    } else if (c == '"') {
      is_in_string_ = true;
    } else if (c == '[' || c == '{') {
      deepest_ = std::max(deepest_, ++depth_);
    } else if ((c == ']' || c == '}') && depth_ > 0) {
      --depth_;
    }
  }

  std::size_t depth_ = 0;
  std::size_t deepest_ = 0;
  bool is_in_string_ = false;
  bool is_escaped_ = false;  // the next character of a string
};

}  // namespace

std::string UndoublePercents(std::string_view line) {
  constexpr std::string_view kDoubled = "%%";
  std::string text;
  text.reserve(line.size());
  for (std::size_t at = line.find(kDoubled); at != std::string_view::npos;
       at = line.find(kDoubled)) {
    text += line.substr(0, at + 1);
    line.remove_prefix(at + kDoubled.size());
  }
  return text += line;
}

int FetchMetadata(const std::string& backup_id, const std::string& path,
                  boost::property_tree::ptree* metadata) {
  std::FILE* const file = fopen(path.c_str(), "wt");
  if (file == nullptr) {
    std::cerr << "fopen() failed. can't create file " << path << '\n';
    return 1;
  }
  CommandOutput output(path_qvmeta + " -json -backupid " + backup_id);
  if (!output.started()) {
    std::cerr << "run command qvmeta failed.\n";
    fclose(file);
    return 1;
  }
  NestingMeter nesting;
  while (output.ReadLine()) {
    // The product prints for printf: each of its lines is a format without arguments, in which a
    // percent sign stands doubled. Nothing else in a line is taken for a conversion.
    const std::string text = UndoublePercents(output.line());
    fwrite(text.data(), 1, text.size(), file);
    nesting.Take(text);
  }
  output.Pclose();
  // A file that could not be written whole is no JSON document any more, which the reader reports.
  fclose(file);

  if (nesting.deepest() > kDeepestNesting) {
    // As the reader ends for a file that is no JSON document, where it would use up the stack.
    BOOST_PROPERTY_TREE_THROW(
        boost::property_tree::json_parser_error("nested too deeply", path, 0));
  }
  boost::property_tree::read_json(path, *metadata, std::locale());
  unlink(path.c_str());
  return 0;
}
