#ifndef QUILLMERE_TESTS_UNIT_RANDOM_TEXT_H_
#define QUILLMERE_TESTS_UNIT_RANDOM_TEXT_H_

#include <array>
#include <cstddef>
#include <random>
#include <string>
#include <vector>

#include <boost/property_tree/ptree.hpp>

#include "export/file_entry_table.h"

/// The fields of one file entry.
using Fields = std::array<std::string, FileEntryTable::kFieldCount>;

/// A source of test data that comes out the same in every run. Prints its seed.
class RandomText {
 public:
  explicit RandomText(unsigned seed);

  /// A number from `low` to `high`.
  std::size_t Number(std::size_t low, std::size_t high);

  /// `min_size` to `max_size` bytes of every value.
  std::string Bytes(std::size_t min_size, std::size_t max_size);

  /// Eleven fields of 1 to `max_size` bytes of every value but tab, newline and zero.
  Fields Entry(std::size_t max_size);

  /// `count` such entries.
  std::vector<Fields> Entries(std::size_t count, std::size_t max_size);

  /// A tree that the JSON writer accepts: objects, arrays and texts, `depth` levels deep at most.
  boost::property_tree::ptree Tree(std::size_t depth);

 private:
  char FieldByte();

  std::mt19937 engine_;
};

/// The line that holds `fields`, without its newline.
std::string LineOf(const Fields& fields);

/// The tree that the JSON writer writes for a file entry.
boost::property_tree::ptree TreeOf(const Fields& fields);

/// The member "fentries" as a tree.
boost::property_tree::ptree TreeOf(const std::vector<Fields>& entries);

/// The table that holds `entries`.
FileEntryTable TableOf(const std::vector<Fields>& entries,
                       const FileEntryTable::Packing& packing = {});

#endif  // QUILLMERE_TESTS_UNIT_RANDOM_TEXT_H_
