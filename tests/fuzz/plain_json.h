#ifndef QUILLMERE_TESTS_FUZZ_PLAIN_JSON_H_
#define QUILLMERE_TESTS_FUZZ_PLAIN_JSON_H_

#include <array>
#include <string>
#include <vector>

#include <boost/property_tree/ptree.hpp>

// The rules of an image dump document, without the JSON writer.

/// The fields of one file entry.
using Entry = std::array<std::string, 11>;

/// The tree of the document: `metadata` with the entries as its last member "fentries".
boost::property_tree::ptree DocumentTree(const boost::property_tree::ptree& metadata,
                                         const std::vector<Entry>& entries);

/// The bytes of the document of a tree.
std::string PlainDocument(const boost::property_tree::ptree& tree);

/// Checks that the JSON reader makes `tree` of `document`. Both are UTF-8.
void ExpectHolds(const std::string& document, const boost::property_tree::ptree& tree);

#endif  // QUILLMERE_TESTS_FUZZ_PLAIN_JSON_H_
