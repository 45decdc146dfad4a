#ifndef QUILLMERE_EXPORT_IMAGE_DOCUMENT_H_
#define QUILLMERE_EXPORT_IMAGE_DOCUMENT_H_

#include <string>

#include <boost/property_tree/ptree_fwd.hpp>

#include "export/file_entries.h"

// Both functions append the member "fentries" to *root, behind all others even if one of them has
// that name, and write the image dump document that this makes, byte for byte as the JSON writer
// would with the entries as a tree. Both throw
// boost::property_tree::json_parser::json_parser_error with the writer's own messages when *root
// can't be represented in JSON (it is a scalar) or the output can't be written.

/// Writes the document to standard output.
void WriteImageDocument(boost::property_tree::ptree* root, const FileEntryTable& entries);

/// Writes the document to the file `path`, which is created or replaced. It is opened, and so
/// emptied, before *root is judged.
void WriteImageDocument(boost::property_tree::ptree* root, const FileEntryTable& entries,
                        const std::string& path);

#endif  // QUILLMERE_EXPORT_IMAGE_DOCUMENT_H_
