// FindCatalogueFile on three lines, or any other bytes.

#include <cstdint>
#include <string>

#include "export/catalogue_file.h"
#include "input.h"
#include "outcome.h"
#include "plain_text.h"

namespace {

/// What the third of the lines, `text`, makes of the outcome. Returns false when it ends the call.
bool PlainThirdLine(const std::string& text, Outcome* outcome) {
  std::size_t begin = text.size();  // of the last word
  while (begin > 0 && text[begin - 1] != ' ') {
    --begin;
  }
  if (begin == 0) {
    outcome->status = 1;
    outcome->err = "parse output of qvroll failed.\n";
    outcome->steps += "fclose\n";
    return false;
  }
  if (begin == text.size()) {
    outcome->thrown = "out_of_range basic_string::erase";
    outcome->steps += "pclose\n";
    return false;
  }
  for (std::size_t i = begin; i + 1 < text.size(); ++i) {
    outcome->results += text[i];
  }
  return true;
}

Outcome PlainOutcome(const Input& input) {
  Outcome outcome = PlainStart(input, "/usr/ostra/keelhaven/bin/admincmd/qvroll -id a_1 2");
  int count = 0;
  for (const std::string& text : TextsRead(input.text(), input.read_size())) {
    outcome.out += input.trace_level() >= 1 ? text : "";
    ++count;
    if (count == 3 && !PlainThirdLine(text, &outcome)) {
      return outcome;
    }
  }
  outcome.steps += "pclose\n";
  if (count != 3) {
    outcome.status = 1;
    outcome.err = "parse output of qvrolle failed. output lines is not the same as expected.\n";
    outcome.results = "";
  }
  return outcome;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const Input input(data, size);
  const Outcome expected = PlainOutcome(input);
  for (int run = 0; run < 2; ++run) {
    std::string name = "a name from before";
    Outcome outcome =
        RunFed(input, input.text(), [&] { return FindCatalogueFile("a_1 2", &name); });
    outcome.results = outcome.succeeded() ? name : "";
    ExpectOutcome(outcome, expected);
  }
  return 0;
}
