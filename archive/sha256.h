#ifndef QUILLMERE_ARCHIVE_SHA256_H_
#define QUILLMERE_ARCHIVE_SHA256_H_

#include <nettle/sha2.h>

#include <string>
#include <string_view>

/// The SHA-256 of bytes that come in pieces.
class Sha256 {
 public:
  Sha256() { sha256_init(&context_); }

  void Take(std::string_view piece);

  /// Of all pieces since the beginning or the last call: 64 small hexadecimal digits.
  std::string Finish();

 private:
  sha256_ctx context_;
};

/// The SHA-256 of `text`: 64 small hexadecimal digits.
std::string Sha256Of(std::string_view text);

#endif  // QUILLMERE_ARCHIVE_SHA256_H_
