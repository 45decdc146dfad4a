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

using TakePiece = std::function<void(std::string_view piece)>;

/// Stores a document as it is written: counts, hashes and, at a level above 0, compresses it on the
/// way to its file.
class DocumentWriter : public std::streambuf {
 public:
  /// Makes the file of the document `name` in `directory`: with ".json", or ".json.zst" at a
  /// compression level of zstd above 0, behind it. `take_plain` gets the pieces of the document.
  /// Throws an ArchiveError.
  DocumentWriter(const Directory& directory, const std::string& name, int compression_level,
                 TakePiece take_plain);

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
  TakePiece take_plain_;
  DocumentFacts facts_;
  Sha256 hash_;
  Sha256 stored_hash_;
  std::unique_ptr<ZSTD_CCtx, FreeContext> context_;  // null: not compressed
  std::vector<char> compressed_;
  int error_ = 0;  // errno of the first failure
};

/// Reads a document, plain or compressed, as what it was before it was stored.
class DocumentReader {
 public:
  enum class Packing : std::uint8_t {
    kNone,
    kZstd,
    kAsItBegins,  ///< zstd if it begins as such files do
  };

  /// Reads from where `file` is. `path` is for messages. `take_stored`, if any, gets the pieces of
  /// the file.
  DocumentReader(Descriptor file, std::string path, Packing packing,
                 TakePiece take_stored = nullptr);

  /// Reads up to `size` bytes to `to`. Returns how many, fewer only at the end. Throws an
  /// ArchiveError when the file can't be read, or is no whole zstd file though it should be one.
  std::size_t Read(char* to, std::size_t size);

  /// Leaves out the next `size` bytes. A file that is not compressed has to be one that can seek.
  void Skip(std::uint64_t size);

  [[nodiscard]] const std::string& path() const { return path_; }

 private:
  struct FreeContext {
    void operator()(ZSTD_DCtx* context) const { ZSTD_freeDCtx(context); }
  };

  void LookAtBeginning();
  std::size_t ReadStored(char* to, std::size_t size);
  void Unpack(ZSTD_outBuffer* out);

  Descriptor file_;
  std::string path_;
  TakePiece take_stored_;
  Packing packing_;
  std::unique_ptr<ZSTD_DCtx, FreeContext> context_;  // null: not compressed
  std::vector<char> stored_;
  ZSTD_inBuffer in_{};    // in stored_
  std::size_t left_ = 1;  // of a frame; 0 at its end
};

/// Opens the document in an image's directory. Throws an ArchiveError when that can't be done or it
/// has not the size that it should have.
DocumentReader OpenDocument(const Directory& image, const DocumentFacts& document);

/// Calls `take` with the pieces of a document up to its end.
void ReadPieces(DocumentReader* reader, const TakePiece& take);

/// Where the entries of a document begin, in bytes; it is read to its end.
std::uint64_t FindEntries(DocumentReader* reader);

/// Reads the document `file` in `directory`, in pieces: `take_stored` gets those of the file,
/// `take_plain` those of the document. Throws an ArchiveError as DocumentReader does.
void ReadDocument(const Directory& directory, const std::string& file, const TakePiece& take_stored,
                  const TakePiece& take_plain);

/// True when a document of that file name is compressed.
bool IsCompressed(std::string_view file);

#endif  // QUILLMERE_ARCHIVE_STORED_DOCUMENT_H_
