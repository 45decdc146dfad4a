#ifndef QUILLMERE_ARCHIVE_SHA256_H_
#define QUILLMERE_ARCHIVE_SHA256_H_

// Through the interface above these functions, a static program would hold all of the library.
#define OPENSSL_SUPPRESS_DEPRECATED
#include <openssl/sha.h>

#include <string>
#include <string_view>

/// The SHA-256 of bytes that come in pieces.
class Sha256 {
 public:
  Sha256() { SHA256_Init(&context_); }

  void Take(std::string_view piece);

  /// Of all pieces since the beginning or the last call: 64 small hexadecimal digits.
  std::string Finish();

 private:
  SHA256_CTX context_;
};

/// The SHA-256 of `text`: 64 small hexadecimal digits.
std::string Sha256Of(std::string_view text);

#endif  // QUILLMERE_ARCHIVE_SHA256_H_
