// What the product unfolds from a catalogue file:
//
//   output: line*
//   line:   "0" anything NL                 dropped
//         | "num" TAB anything NL           the column header, the first time it comes
//         | NL
//         | TAB* field (TAB+ field){10} TAB* NL
//
//   12	4096	0	0	88	1	0	0	64768	/home/a b	33188 3
//   users

#include "export/file_entries.h"

#include <iostream>
#include <string_view>

#include "host/command_output.h"
#include "layout/layout.h"

int ReadFileEntries(const std::string& path, FileEntryTable* entries) {
  CommandOutput output(path_rec_unfold + " -dump " + path);
  if (!output.started()) {
    std::cerr << "run command rec_unfold failed.\n";
    return 1;
  }
  bool header_seen = false;
  while (output.ReadLine()) {
    std::string_view line = output.line();
    if (line.starts_with('0')) {
      continue;
    }
    while (line.ends_with('\n')) {
      line.remove_suffix(1);
    }
    if (!header_seen && line.starts_with("num\t")) {
      header_seen = true;
      continue;
    }
    if (line.empty()) {
      continue;
    }
    if (!entries->Append(line)) {
      std::cerr << "parse output failed. token size mismatch\n";
      // Given up in the middle. Pinned by FileEntries.AnyOtherFieldCountFails.
      output.Fclose();
      return 1;
    }
  }
  return 0;
}
