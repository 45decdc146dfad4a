#ifndef QUILLMERE_BENCH_CANNED_PRODUCT_H_
#define QUILLMERE_BENCH_CANNED_PRODUCT_H_

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

// What the product's commands print, from memory: a program that links this with popen and pclose
// wrapped starts no process.

enum class FieldLength : std::uint8_t {
  kAsPrinted,        ///< like the product's
  kBeyondSmallText,  ///< each field longer than a std::string holds without an allocation
};

/// A listing of `rows` rows in one block. Every 11th closes a set, or none without `parents`.
std::string CannedListing(std::size_t rows, bool parents, FieldLength length);

/// `count` entry lines of an image, without their newlines.
std::vector<std::string> CannedEntries(std::size_t count, FieldLength length);

/// From now on every command prints `text`, which the caller keeps.
void LetCommandsPrint(std::string_view text);

#endif  // QUILLMERE_BENCH_CANNED_PRODUCT_H_
