// FetchMetadata on any bytes, and the document of the tree that comes of them.
//
// The settings are those of every command (see input.h).

#include <algorithm>
#include <cstdint>
#include <sstream>
#include <string>
#include <vector>

#include <boost/property_tree/json_parser.hpp>
#include <boost/property_tree/ptree.hpp>

#include "export/file_entries.h"
#include "export/json_document.h"
#include "export/metadata.h"
#include "input.h"
#include "outcome.h"
#include "plain_json.h"
#include "plain_text.h"
#include "scratch_directory.h"

namespace {

using boost::property_tree::ptree;

std::string PlainUndoubled(const std::string& text) {
  std::string undoubled;
  for (std::size_t i = 0; i < text.size(); ++i) {
    undoubled += text[i];
    if (text[i] == '%' && i + 1 < text.size() && text[i + 1] == '%') {
      ++i;
    }
  }
  return undoubled;
}

/// How deep objects and arrays are nested in the tree, its root not counted.
std::size_t DepthOf(const ptree& tree) {
  std::size_t depth = 0;
  for (const auto& [key, child] : tree) {
    depth = std::max(depth, 1 + DepthOf(child));
  }
  return depth;
}

/// What comes of a fetch.
struct Answer {
  Outcome outcome;  ///< its results are the file that stays
  ptree tree;
};

Answer PlainAnswer(const Input& input, const std::string& path) {
  Answer answer;
  Outcome& outcome = answer.outcome;
  outcome = PlainStart(input, "/usr/ostra/keelhaven/bin/admincmd/qvmeta -json -backupid a_1 2");
  for (const std::string& text : TextsRead(input.text(), input.read_size())) {
    outcome.out += input.trace_level() >= 1 ? text : "";
    outcome.results += PlainUndoubled(text);
  }
  outcome.steps += "pclose\n";
  std::istringstream stream(outcome.results);
  try {
    boost::property_tree::read_json(stream, answer.tree);
    outcome.results = "no file";
  } catch (const boost::property_tree::json_parser_error& error) {
    outcome.thrown =
        "json_parser_error " + path + "(" + std::to_string(error.line()) + "): " + error.message();
  }
  return answer;
}

FileEntryTable TableOf(const std::vector<Entry>& entries) {
  FileEntryTable table;
  for (const Entry& entry : entries) {
    std::string line;
    for (const std::string& field : entry) {
      line += field + "\t";
    }
    Expect(table.Append(line), "a table takes an entry");
  }
  return table;
}

/// Writes the document of the metadata with the entries and compares it.
void CheckDocument(const ptree& metadata, const std::vector<Entry>& entries) {
  const FileEntryTable table = TableOf(entries);
  const ptree tree = DocumentTree(metadata, entries);
  ptree root = metadata;
  const Outcome outcome = Run([&] {
    WriteDocument(
        &root, "fentries", [&table](std::ostream& out) { table.WriteArray(out); }, "");
    return 0;
  });
  Outcome expected;
  if (!metadata.data().empty()) {  // a lone value
    expected.thrown =
        "json_parser_error <unspecified file>: ptree contains data that cannot be represented in "
        "JSON format";
  } else {
    expected.out = PlainDocument(tree);
  }
  ExpectOutcome(outcome, expected);
  if (outcome.succeeded() && entries.empty()) {  // with entries it would take as long once more
    ExpectHolds(outcome.out, tree);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const Input input(data, size);
  const std::string path = ScratchPath("a_1");
  const Answer expected = PlainAnswer(input, path);
  for (int run = 0; run < 2; ++run) {
    WriteContent(path, std::string(5000, '{'));  // to be replaced
    ptree tree;
    Outcome outcome =
        RunFed(input, input.text(), [&] { return FetchMetadata("a_1 2", path, &tree); });
    outcome.results = ContentOf(path);
    ExpectOutcome(outcome, expected.outcome);
    if (expected.outcome.succeeded()) {
      Expect(tree == expected.tree, "the tree holds the metadata");
    }
  }
  // A document grows with the square of the depth.
  constexpr std::size_t kDeepestDocument = 100;
  if (expected.outcome.succeeded() && DepthOf(expected.tree) <= kDeepestDocument) {
    CheckDocument(expected.tree, {});
    CheckDocument(expected.tree,
                  {{"1", "\"", "\\", "4", "5", "6", "7", "8", "9", "/a b", "\x1F\r"}});
  }
  return 0;
}
