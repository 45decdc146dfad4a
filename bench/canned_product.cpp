#include "canned_product.h"

#include <stdio.h>

namespace {

std::string_view printed;

/// `number` as ten digits, as a time in seconds has.
std::string TenDigits(std::size_t number) {
  return std::to_string(1500000000 + number);
}

std::string CannedRow(std::size_t number, bool is_parent, FieldLength length) {
  const bool is_long = length == FieldLength::kBeyondSmallText;
  // Two schedules take turns, so that grouping has something to tell apart.
  const char letter = number / 11 % 2 == 0 ? 'a' : 'b';
  return (is_long ? "client-0001.backup.example_" : "db.example_") + TenDigits(number) +
         "   Sun Sep 13 2020     " + (is_parent ? "0 " : "12345 ") +
         (is_long ? "12345678901.5678M " : "3.5M ") +
         (is_long ? "weekly-full-schedule-" : "full-") + letter +
         (is_long ? " file-servers-of-one-site " : " Weekly-FS ") + "1 month 1 MED042 Weekly-FS_" +
         TenDigits(number) + "_full.f\n";
}

}  // namespace

extern "C" {

// NOLINTBEGIN(bugprone-reserved-identifier): the names that the linker's --wrap calls for
FILE* __wrap_popen(const char* /*command*/, const char* /*type*/) {
  // The stream only reads, so that the text stays as it is.
  return fmemopen(const_cast<char*>(printed.data()), printed.size(), "r");
}

int __wrap_pclose(FILE* stream) {
  return fclose(stream);
}
// NOLINTEND(bugprone-reserved-identifier)
}

std::string CannedListing(std::size_t rows, bool parents, FieldLength length) {
  std::string listing = "\nBackupid          Date\n";
  for (std::size_t number = 0; number < rows; ++number) {
    listing += CannedRow(number, parents && number % 11 == 10, length);
  }
  return listing;
}

std::vector<std::string> CannedEntries(std::size_t count, FieldLength length) {
  std::string numbers = "\t374925\t76\t90\t4830875\t1\t0\t0\t64768\t";
  if (length != FieldLength::kAsPrinted) {
    numbers.clear();
    for (int field = 0; field < 9; ++field) {
      numbers += "123456789012345678\t";
    }
  }
  std::vector<std::string> lines;
  for (std::size_t number = 1; number <= count; ++number) {
    std::string line = std::to_string(number);
    line += numbers;
    line += "/home/alice/My Pictures/2020 \"summer\"/file-" + std::to_string(number) + ".jpg";
    line += "\t33188 alice users 374925 1499658131 1499845594 1500033056 0 0 0 4830875 64768 1 7";
    lines.push_back(std::move(line));
  }
  return lines;
}

void LetCommandsPrint(std::string_view text) {
  printed = text;
}
