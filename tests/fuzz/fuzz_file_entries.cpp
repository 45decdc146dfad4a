// ReadFileEntries on any bytes, and WriteDocument with the entries that come of them.
//
// Settings: o sends the document to a file, p packs the entries in small pieces. And those of every
// command (see input.h).

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

#include <boost/property_tree/ptree.hpp>

#include "export/file_entries.h"
#include "export/json_document.h"
#include "input.h"
#include "outcome.h"
#include "plain_json.h"
#include "plain_text.h"
#include "scratch_directory.h"

namespace {

using boost::property_tree::ptree;

constexpr const char* kPath = "/usr/ostra/keelhaven/db/images/a b/1/c.f";

std::vector<std::string> FieldsOf(const std::string& line) {
  std::vector<std::string> fields;
  bool is_in_field = false;
  for (const char c : line) {
    if (c != '\t' && !is_in_field) {
      fields.emplace_back();
    }
    is_in_field = c != '\t';
    if (is_in_field) {
      fields.back() += c;
    }
  }
  return fields;
}

/// Appends the entry on `line`. Returns false when it has another number of fields.
bool PlainEntry(const std::string& line, std::vector<Entry>* entries) {
  const std::vector<std::string> fields = FieldsOf(line);
  if (fields.size() != 11) {
    return false;
  }
  Entry entry;
  std::copy(fields.begin(), fields.end(), entry.begin());
  entries->push_back(entry);
  return true;
}

/// What reading shows. The entries are appended to *entries.
Outcome PlainReading(const Input& input, std::vector<Entry>* entries) {
  Outcome outcome =
      PlainStart(input, std::string("/usr/ostra/keelhaven/bin/rec_unfold -dump ") + kPath);
  bool was_header_seen = false;
  for (std::string line : TextsRead(input.text(), input.read_size())) {
    outcome.out += input.trace_level() >= 1 ? line : "";
    if (!line.empty() && line[0] == '0') {
      continue;
    }
    while (!line.empty() && line[line.size() - 1] == '\n') {
      line.erase(line.size() - 1);
    }
    if (line.substr(0, 4) == "num\t" && !was_header_seen) {
      was_header_seen = true;
    } else if (!line.empty() && !PlainEntry(line, entries)) {
      outcome.status = 1;
      outcome.err = "parse output failed. token size mismatch\n";
      outcome.steps += "fclose\n";
      return outcome;
    }
  }
  outcome.steps += "pclose\n";
  return outcome;
}

ptree Metadata() {
  ptree metadata;
  metadata.push_back({"fentries", ptree("al/pha_1")});
  ptree& copies = metadata.push_back({"copies \"\t\"", ptree()})->second;
  copies.push_back({"", ptree("1")});
  copies.push_back({"", ptree()});
  return metadata;
}

/// Writes the document to where the input sends it, over what is there, and returns its bytes.
std::string Written(const Input& input, const FileEntryTable& table, const ptree& tree) {
  const std::string path = ScratchPath("a_1.json");
  ptree root = Metadata();
  if (input.Has('o')) {
    WriteContent(path, std::string(500, '?'));
  }
  const Outcome outcome = Run([&] {
    WriteDocument(
        &root, "fentries", [&table](std::ostream& out) { table.WriteArray(out); },
        input.Has('o') ? path : "");
    return 0;
  });
  Expect(outcome.succeeded() && outcome.err.empty(), "the document is written");
  Expect(root.size() == tree.size() && root.back().first == "fentries",
         "the root has got the member \"fentries\"");
  if (input.Has('o')) {
    Expect(outcome.out.empty(), "nothing is on standard output");
    return ContentOf(path);
  }
  return outcome.out;
}

/// True for text that the JSON reader takes for UTF-8.
bool IsAscii(const std::string& text) {
  return std::all_of(text.begin(), text.end(), [](char c) { return (c & 0x80) == 0; });
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const Input input(data, size);
  std::vector<Entry> entries;
  const Outcome expected = PlainReading(input, &entries);
  const ptree tree = DocumentTree(Metadata(), entries);
  const std::string document = PlainDocument(tree);
  for (int run = 0; run < 2; ++run) {
    FileEntryTable table(input.Has('p') ? FileEntryTable::Packing{0, 100}
                                        : FileEntryTable::Packing());
    ExpectOutcome(RunFed(input, input.text(), [&] { return ReadFileEntries(kPath, &table); }),
                  expected);
    if (expected.succeeded()) {
      ExpectText("the document", Written(input, table, tree), document);
    }
  }
  if (expected.succeeded() && IsAscii(document)) {
    ExpectHolds(document, tree);
  }
  return 0;
}
