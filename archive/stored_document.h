#ifndef QUILLMERE_ARCHIVE_STORED_DOCUMENT_H_
#define QUILLMERE_ARCHIVE_STORED_DOCUMENT_H_

#include <zstd.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <streambuf>
#include <string>
#include <string_view>
#include <vector>

#include "archive/directory.h"
#include "archive/manifest.h"
#include "archive/sha256.h"

/// Stores a document as it is written: counts, hashes and, at a level above 0, compresses it on the
/// way to its file.
class DocumentWriter : public std::streambuf {
 public:
  /// Makes the file of the document `name` in `directory`: with ".json", or ".json.zst" at a
  /// compression level of zstd above 0, behind it. Throws an ArchiveError.
  DocumentWriter(const Directory& directory, const std::string& name, int compression_level);

  /// After the last byte: makes the file durable, and returns what is known of it. Throws an
  /// ArchiveError when any of it could not be written.
  DocumentFacts Finish();

 protected:
  std::streamsize xsputn(const char* text, std::streamsize size) override;
  int overflow(int character) override;

 private:
  struct FreeContext {
    void operator()(ZSTD_CCtx* context) const { ZSTD_freeCCtx(context); }
  };

  void Compress(std::string_view text, ZSTD_EndDirective directive);
  void Store(std::string_view piece);

  std::string path_;
  Descriptor file_;
  DocumentFacts facts_;
  Sha256 hash_;
  Sha256 stored_hash_;
  std::unique_ptr<ZSTD_CCtx, FreeContext> context_;  // null: not compressed
  std::vector<char> compressed_;
  int error_ = 0;  // errno of the first failure
};

/// Reads the document `file` in `directory`, in pieces: `take_stored` gets those of the file,
/// `take_plain` those of the document. Throws an ArchiveError when it can't be read to its end, or
/// is no zstd file though its name says so.
using TakePiece = std::function<void(std::string_view piece)>;
void ReadDocument(const Directory& directory, const std::string& file, const TakePiece& take_stored,
                  const TakePiece& take_plain);

/// True when a document of that file name is compressed.
bool IsCompressed(std::string_view file);

#endif  // QUILLMERE_ARCHIVE_STORED_DOCUMENT_H_
