#include "archive/stored_document.h"

#include <errno.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>

namespace {

constexpr std::string_view kPlainEnd = ".json";
constexpr std::string_view kCompressedEnd = ".json.zst";
constexpr std::size_t kPieceSize = std::size_t{256} * 1024;           // bytes
constexpr std::uint64_t kWriteback = std::uint64_t{8} * 1024 * 1024;  // bytes

struct FreeContext {
  void operator()(ZSTD_DCtx* context) const { ZSTD_freeDCtx(context); }
};

/// Calls `take` with all that is in `file`, piece by piece.
void ReadPieces(int file, const std::string& path, const TakePiece& take) {
  std::vector<char> piece(kPieceSize);
  ssize_t size = 0;
  while ((size = read(file, piece.data(), piece.size())) > 0) {
    take({piece.data(), static_cast<std::size_t>(size)});
  }
  if (size < 0) {
    throw SystemError("read", path);
  }
}

/// Unpacks a zstd file that comes in pieces.
class Unpacker {
 public:
  Unpacker(std::string path, const TakePiece& take)
      : path_(std::move(path)), take_(take), context_(ZSTD_createDCtx()), plain_(kPieceSize) {}

  void Take(std::string_view piece) {
    ZSTD_inBuffer in{piece.data(), piece.size(), 0};
    bool is_full = false;
    while (in.pos < in.size || (is_full && left_ != 0)) {
      ZSTD_outBuffer out{plain_.data(), plain_.size(), 0};
      left_ = ZSTD_decompressStream(context_.get(), &out, &in);
      if (ZSTD_isError(left_) != 0) {
        throw ArchiveError(path_ + " is no whole zstd file");
      }
      take_({plain_.data(), out.pos});
      is_full = out.pos == out.size;
    }
  }

  void Finish() const {
    if (left_ != 0) {
      throw ArchiveError(path_ + " is no whole zstd file");
    }
  }

 private:
  std::string path_;
  const TakePiece& take_;
  std::unique_ptr<ZSTD_DCtx, FreeContext> context_;
  std::vector<char> plain_;
  std::size_t left_ = 1;  // 0 at the end of a frame
};

}  // namespace

bool IsCompressed(std::string_view file) {
  return file.ends_with(kCompressedEnd);
}

DocumentWriter::DocumentWriter(const Directory& directory, const std::string& name,
                               int compression_level) {
  facts_.file = name;
  facts_.file += compression_level > 0 ? kCompressedEnd : kPlainEnd;
  path_ = directory.PathOf(facts_.file);
  file_ = directory.MakeFile(facts_.file);
  if (compression_level > 0) {
    context_.reset(ZSTD_createCCtx());
    ZSTD_CCtx_setParameter(context_.get(), ZSTD_c_compressionLevel, compression_level);
    ZSTD_CCtx_setParameter(context_.get(), ZSTD_c_checksumFlag, 1);
    compressed_.resize(ZSTD_CStreamOutSize());
  }
}

std::streamsize DocumentWriter::xsputn(const char* text, std::streamsize size) {
  const std::string_view piece(text, static_cast<std::size_t>(size));
  facts_.bytes += piece.size();
  hash_.Take(piece);
  if (context_) {
    Compress(piece, ZSTD_e_continue);
  } else {
    Store(piece);
  }
  return error_ == 0 ? size : 0;
}

int DocumentWriter::overflow(int character) {
  const char c = traits_type::to_char_type(character);
  return xsputn(&c, 1) == 1 ? character : traits_type::eof();
}

void DocumentWriter::Compress(std::string_view text, ZSTD_EndDirective directive) {
  ZSTD_inBuffer in{text.data(), text.size(), 0};
  std::size_t left = 0;
  do {
    ZSTD_outBuffer out{compressed_.data(), compressed_.size(), 0};
    left = ZSTD_compressStream2(context_.get(), &out, &in, directive);
    stored_hash_.Take({compressed_.data(), out.pos});
    Store({compressed_.data(), out.pos});
  } while (directive == ZSTD_e_end ? left != 0 : in.pos < in.size);
}

void DocumentWriter::Store(std::string_view piece) {
  if (error_ == 0 && !WriteAll(file_.get(), piece)) {
    error_ = errno;
  }
  const std::uint64_t begun = facts_.stored_bytes / kWriteback;
  facts_.stored_bytes += piece.size();
  if (facts_.stored_bytes / kWriteback > begun) {
    // The disk may as well begin with it now, so that there is less to wait for at the end.
    sync_file_range(file_.get(), 0, 0, SYNC_FILE_RANGE_WRITE);
  }
}

DocumentFacts DocumentWriter::Finish() {
  if (context_) {
    Compress("", ZSTD_e_end);
  }
  if (error_ == 0 && fsync(file_.get()) != 0) {
    error_ = errno;
  }
  if (error_ != 0) {
    errno = error_;
    throw SystemError("write", path_);
  }
  facts_.sha256 = hash_.Finish();
  facts_.stored_sha256 = context_ ? stored_hash_.Finish() : facts_.sha256;
  return facts_;
}

void ReadDocument(const Directory& directory, const std::string& file, const TakePiece& take_stored,
                  const TakePiece& take_plain) {
  const Descriptor opened = directory.OpenFile(file);
  const std::string path = directory.PathOf(file);
  if (!IsCompressed(file)) {
    ReadPieces(opened.get(), path, [&](std::string_view piece) {
      take_stored(piece);
      take_plain(piece);
    });
    return;
  }
  Unpacker unpacker(path, take_plain);
  ReadPieces(opened.get(), path, [&](std::string_view piece) {
    take_stored(piece);
    unpacker.Take(piece);
  });
  unpacker.Finish();
}
