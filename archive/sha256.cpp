#include "archive/sha256.h"

#include <array>

void Sha256::Take(std::string_view piece) {
  SHA256_Update(&context_, piece.data(), piece.size());
}

std::string Sha256::Finish() {
  std::array<unsigned char, SHA256_DIGEST_LENGTH> digest{};
  SHA256_Final(digest.data(), &context_);
  SHA256_Init(&context_);
  constexpr std::string_view kDigits = "0123456789abcdef";
  std::string text;
  for (const unsigned char byte : digest) {
    text += kDigits[byte >> 4U];
    text += kDigits[byte & 0xFU];
  }
  return text;
}

std::string Sha256Of(std::string_view text) {
  Sha256 hash;
  hash.Take(text);
  return hash.Finish();
}
