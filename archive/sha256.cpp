#include "archive/sha256.h"

#include <nettle/base16.h>

#include <array>
#include <cstdint>

void Sha256::Take(std::string_view piece) {
  sha256_update(&context_, piece.size(), reinterpret_cast<const std::uint8_t*>(piece.data()));
}

std::string Sha256::Finish() {
  std::array<std::uint8_t, SHA256_DIGEST_SIZE> digest{};
  sha256_digest(&context_, digest.size(), digest.data());
  std::string digits(BASE16_ENCODE_LENGTH(SHA256_DIGEST_SIZE), '\0');
  base16_encode_update(digits.data(), digest.size(), digest.data());
  return digits;
}

std::string Sha256Of(std::string_view text) {
  Sha256 hash;
  hash.Take(text);
  return hash.Finish();
}
