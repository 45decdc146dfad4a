#include "export/metadata.h"

#include <stdio.h>
#include <sys/resource.h>
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

using boost::property_tree::json_parser_error;

// The JSON reader and writer call themselves for each level, on a stack that may be small. What
// they need was measured: 194 bytes a level where the compiler optimises, 584 where it does not.
constexpr std::size_t kDeepestNesting = 10000;  // levels; no metadata comes near
constexpr std::size_t kStackPerLevel = 600;     // bytes
constexpr std::size_t kStackReserve = std::size_t{128} * 1024;

/// How many levels of metadata can be read and written.
std::size_t DeepestNesting() {
  rlimit stack = {};
  getrlimit(RLIMIT_STACK, &stack);
  // A quarter of the stack can be taken by arguments and environment.
  const std::size_t room = stack.rlim_cur / 4 * 3;
  return std::min(kDeepestNesting, (room - std::min(room, kStackReserve)) / kStackPerLevel);
}

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
  // Closed for the command, and so for what that may leave running.
  std::FILE* const file = fopen(path.c_str(), "wte");
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
  const bool is_written = ferror(file) == 0;
  const bool is_closed = fclose(file) == 0;

  if (nesting.deepest() > DeepestNesting()) {
    // As the reader ends for a file that is no JSON document, where it would use up the stack.
    BOOST_PROPERTY_TREE_THROW(json_parser_error("nested too deeply", path, 0));
  }
  boost::property_tree::read_json(path, *metadata, std::locale());
  if (!(is_written && is_closed)) {
    // What is left of the text may be a document, too.
    BOOST_PROPERTY_TREE_THROW(json_parser_error("write error", path, 0));
  }
  unlink(path.c_str());
  return 0;
}
