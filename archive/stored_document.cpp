#include "archive/stored_document.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <utility>

#include "archive/document.h"
#include "archive/store.h"

namespace {

constexpr std::string_view kPlainEnd = ".json";
constexpr std::string_view kCompressedEnd = ".json.zst";
constexpr std::size_t kPieceSize = std::size_t{256} * 1024;           // bytes
constexpr std::uint64_t kWriteback = std::uint64_t{8} * 1024 * 1024;  // bytes

DocumentReader::Packing PackingOf(std::string_view file) {
  return IsCompressed(file) ? DocumentReader::Packing::kZstd : DocumentReader::Packing::kNone;
}

}  // namespace

bool IsCompressed(std::string_view file) {
  return file.ends_with(kCompressedEnd);
}

DocumentWriter::DocumentWriter(const Directory& directory, const std::string& name,
                               int compression_level, TakePiece take_plain)
    : take_plain_(std::move(take_plain)) {
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
  take_plain_(piece);
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

DocumentReader::DocumentReader(Descriptor file, std::string path, Packing packing,
                               TakePiece take_stored)
    : file_(std::move(file)),
      path_(std::move(path)),
      take_stored_(std::move(take_stored)),
      packing_(packing) {
  if (packing_ == Packing::kAsItBegins) {
    LookAtBeginning();
  }
  if (packing_ == Packing::kZstd) {
    context_.reset(ZSTD_createDCtx());
    stored_.resize(kPieceSize);
  }
}

void DocumentReader::LookAtBeginning() {
  constexpr std::string_view kMagic = "\x28\xB5\x2F\xFD";
  stored_.resize(kPieceSize);
  in_ = {stored_.data(), ReadStored(stored_.data(), kMagic.size()), 0};
  packing_ = std::string_view(stored_.data(), in_.size) == kMagic ? Packing::kZstd : Packing::kNone;
}

std::size_t DocumentReader::ReadStored(char* to, std::size_t size) {
  std::size_t done = 0;
  ssize_t piece = 1;
  while (done < size && piece != 0) {
    piece = read(file_.get(), to + done, size - done);
    if (piece < 0 && errno != EINTR) {
      throw SystemError("read", path_);
    }
    done += static_cast<std::size_t>(std::max(piece, ssize_t{0}));
  }
  if (take_stored_ && done > 0) {
    take_stored_({to, done});
  }
  return done;
}

std::size_t DocumentReader::Read(char* to, std::size_t size) {
  if (packing_ == Packing::kZstd) {
    ZSTD_outBuffer out{to, size, 0};
    Unpack(&out);
    return out.pos;
  }
  // What was read to look at it.
  const std::size_t begun = std::min(size, in_.size - in_.pos);
  std::copy_n(stored_.begin() + static_cast<std::ptrdiff_t>(in_.pos), begun, to);
  in_.pos += begun;
  return begun + ReadStored(to + begun, size - begun);
}

void DocumentReader::Unpack(ZSTD_outBuffer* out) {
  while (out->pos < out->size) {
    if (in_.pos == in_.size) {
      in_ = {stored_.data(), ReadStored(stored_.data(), stored_.size()), 0};
    }
    const bool is_at_end = in_.size == 0;
    if (is_at_end && left_ == 0) {
      break;
    }
    const std::size_t begun = out->pos;
    left_ = ZSTD_decompressStream(context_.get(), out, &in_);
    // At the end of the file, what is left of a frame may still be to come out.
    if (ZSTD_isError(left_) != 0 || (is_at_end && left_ != 0 && out->pos == begun)) {
      throw ArchiveError(path_ + " is no whole zstd file");
    }
  }
}

void DocumentReader::Skip(std::uint64_t size) {
  if (!context_) {
    if (lseek(file_.get(), static_cast<off_t>(size), SEEK_CUR) < 0) {
      throw SystemError("read", path_);
    }
    return;
  }
  std::vector<char> skipped(kPieceSize);
  for (std::size_t done = 1; size > 0 && done > 0; size -= done) {
    done = Read(skipped.data(), std::min<std::uint64_t>(size, skipped.size()));
  }
}

DocumentReader OpenDocument(const Directory& image, const DocumentFacts& document) {
  if (document.file.find('/') != std::string::npos) {
    throw ArchiveError(image.PathOf(kManifestFile) + ": names another document");
  }
  Descriptor file = image.OpenFile(document.file);
  struct stat status {};
  if (fstat(file.get(), &status) != 0 ||
      static_cast<std::uint64_t>(status.st_size) != document.stored_bytes) {
    throw ArchiveError(image.PathOf(document.file) +
                       ": size of the file is not that of the manifest");
  }
  return {std::move(file), image.PathOf(document.file), PackingOf(document.file)};
}

void ReadPieces(DocumentReader* reader, const TakePiece& take) {
  std::vector<char> piece(kPieceSize);
  while (const std::size_t size = reader->Read(piece.data(), piece.size())) {
    take({piece.data(), size});
  }
}

std::uint64_t FindEntries(DocumentReader* reader) {
  LastEntries entries;
  ReadPieces(reader, [&](std::string_view piece) { entries.Take(piece); });
  return entries.begin();
}

void ReadDocument(const Directory& directory, const std::string& file, const TakePiece& take_stored,
                  const TakePiece& take_plain) {
  DocumentReader reader(directory.OpenFile(file), directory.PathOf(file), PackingOf(file),
                        take_stored);
  ReadPieces(&reader, take_plain);
}
