#ifndef QUILLMERE_EXPORT_JSON_DOCUMENT_H_
#define QUILLMERE_EXPORT_JSON_DOCUMENT_H_

#include <functional>
#include <iosfwd>
#include <string>

#include <boost/property_tree/ptree_fwd.hpp>

/// Writes an array as the JSON writer does as the value of a member of the root object: from its
/// opening bracket to its closing one, or two quotation marks when it has no items. A failure shows
/// in the state of the stream.
using ArrayWriter = std::function<void(std::ostream& out)>;

// A document is a small tree with one large array as its last member. Both functions append the
// member `array_name` to *root, behind all others even if one of them has that name, and write the
// document that this makes, byte for byte as the JSON writer would with the array as a tree. Both
// throw boost::property_tree::json_parser::json_parser_error with the writer's own messages, which
// name `path`: "write error" when the output can't be written whole, and another when *root can't
// be represented in JSON (it is a scalar).

/// Writes the document to the file `path`, which is created or replaced, or to standard output when
/// `path` is empty. The file is opened, with "cannot open file" as its message, and so emptied,
/// before *root is judged; that it can't be closed is a write error as well.
void WriteDocument(boost::property_tree::ptree* root, const std::string& array_name,
                   const ArrayWriter& write_array, const std::string& path);

/// Writes the document to *out, and flushes it.
void WriteDocumentTo(std::ostream* out, boost::property_tree::ptree* root,
                     const std::string& array_name, const ArrayWriter& write_array,
                     const std::string& path);

#endif  // QUILLMERE_EXPORT_JSON_DOCUMENT_H_
