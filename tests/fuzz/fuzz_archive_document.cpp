// The reader behind `entries` with any bytes, in pieces of sizes that the first byte chooses,
// against a model that has the whole text and looks at one line after the other. What it reads of a
// value is the text whose value it is.

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "archive/document.h"
#include "archive/entry_text.h"
#include "outcome.h"

namespace {

using Values = std::vector<std::string>;

struct Read {
  bool is_whole = false;
  std::vector<Values> entries;
};

/// The lines of `text`; nothing when the last one has no newline.
std::optional<std::vector<std::string>> LinesOf(std::string_view text) {
  std::vector<std::string> lines;
  while (!text.empty()) {
    const std::size_t end = text.find('\n');
    if (end == std::string_view::npos) {
      return std::nullopt;
    }
    lines.emplace_back(text.substr(0, end));
    text.remove_prefix(end + 1);
  }
  return lines;
}

/// The entries in lines [begin, end), or nothing when they are anything else.
std::optional<std::vector<Values>> EntriesIn(const std::vector<std::string>& lines,
                                             std::size_t begin, std::size_t end) {
  std::vector<Values> entries;
  for (std::size_t at = begin; at < end; at += kFieldCount + 2) {
    const bool is_last = at + kFieldCount + 2 == end;
    if (at + kFieldCount + 2 > end || lines[at] != "        {" ||
        lines[at + kFieldCount + 1] != (is_last ? "        }" : "        },")) {
      return std::nullopt;
    }
    Values& values = entries.emplace_back();
    for (std::size_t field = 0; field < kFieldCount; ++field) {
      const std::string& line = lines[at + 1 + field];
      const std::string start = "            \"" + std::string(kFieldNames[field]) + "\": \"";
      const std::string close = field + 1 < kFieldCount ? "\"," : "\"";
      if (!line.starts_with(start) || !line.ends_with(close) ||
          line.size() < start.size() + close.size()) {
        return std::nullopt;
      }
      values.push_back(line.substr(start.size(), line.size() - start.size() - close.size()));
    }
  }
  return entries.empty() ? std::nullopt : std::optional(entries);
}

/// What the last "fentries" holds.
Read PlainRead(std::string_view text) {
  const std::optional<std::vector<std::string>> lines = LinesOf(text);
  if (!lines || lines->size() < 3 || lines->front() != "{" || lines->back() != "}") {
    return {};
  }
  for (std::size_t at = lines->size() - 2; at > 0; --at) {
    const std::string& line = (*lines)[at];
    const bool is_array = line == "    \"fentries\": [";
    if (!is_array && line != "    \"fentries\": \"\"") {
      continue;
    }
    // What precedes it are members, and lines inside of them.
    for (std::size_t before = 1; before < at; ++before) {
      if (!(*lines)[before].starts_with("    ")) {
        return {};
      }
    }
    if (!is_array) {
      return {.is_whole = at + 2 == lines->size(), .entries = {}};
    }
    const std::size_t end = lines->size() - 2;
    const std::optional<std::vector<Values>> entries =
        (*lines)[end] == "    ]" ? EntriesIn(*lines, at + 1, end) : std::nullopt;
    return {.is_whole = entries.has_value(), .entries = entries.value_or(std::vector<Values>())};
  }
  return {};
}

Read ReadInPieces(std::string_view text, std::size_t piece_size) {
  LastEntries last;
  std::vector<Values> entries;
  DocumentParser parser([&](const RawEntry& entry) {
    entries.emplace_back(entry.values.begin(), entry.values.end());
  });
  for (std::size_t at = 0; at < text.size(); at += piece_size) {
    last.Take(text.substr(at, piece_size));
  }
  parser.TakeOnlyFrom(last.begin());
  for (std::size_t at = 0; at < text.size(); at += piece_size) {
    parser.Parse(text.substr(at, piece_size));
  }
  std::string error;
  const std::optional<std::uint64_t> count = parser.Finish(&error);
  Expect(count.has_value() == error.empty(), "a number, or what is wrong");
  if (count) {
    Expect(*count == entries.size(), "each entry is given that is counted");
  }
  return {.is_whole = count.has_value(),
          .entries = count ? std::move(entries) : std::vector<Values>()};
}

void CheckValue(const std::string& value) {
  std::string plain;
  std::string tsv;
  std::string json;
  const bool is_right = AppendValue(value, TextForm::kPlain, &plain);
  Expect(is_right == AppendValue(value, TextForm::kTsv, &tsv), "in all forms or in none");
  Expect(is_right == AppendValue(value, TextForm::kJson, &json), "in all forms or in none");
  if (!is_right) {
    return;
  }
  ExpectText("the value of the text", ValueOf(plain), value);
  std::string again;
  AppendTsv(plain, &again);
  ExpectText("the text with escapes", again, tsv);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) {
    return 0;
  }
  const std::string_view text(reinterpret_cast<const char*>(data) + 1, size - 1);
  const Read expected = PlainRead(text);
  for (const std::size_t piece_size : {std::size_t{1} + data[0], text.size() + 1}) {
    const Read read = ReadInPieces(text, piece_size);
    Expect(read.is_whole == expected.is_whole, "whole for both or for none");
    Expect(read.entries == expected.entries, "the same entries");
  }
  for (const Values& values : expected.entries) {
    for (const std::string& value : values) {
      CheckValue(value);
    }
  }
  CheckValue(std::string(text));
  return 0;
}
