// name: byte*              file name: "%" | (plain | escape)* | first-100-bytes "%" sha256
//
//   my host, ../x          my%20host%2C%20..%2Fx
//   ..                     %2E.

#include "archive/names.h"

#include <algorithm>
#include <cstddef>

#include "archive/sha256.h"

namespace {

constexpr std::size_t kLongest = 200;  // bytes, so that ".json.zst" still fits behind it
constexpr std::size_t kKept = 100;     // bytes of a name that is longer

bool IsPlain(char c) {
  return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '.' ||
         c == '_' || c == '-';
}

void AppendEscape(char c, std::string* text) {
  constexpr std::string_view kHexDigits = "0123456789ABCDEF";
  const auto byte = static_cast<unsigned char>(c);
  *text += '%';
  *text += kHexDigits[byte / 16];
  *text += kHexDigits[byte % 16];
}

}  // namespace

std::string FileNameOf(std::string_view name) {
  if (name.empty()) {
    return "%";
  }
  std::string file_name;
  file_name.reserve(name.size());
  for (const char c : name) {
    if (IsPlain(c) && (c != '.' || !file_name.empty())) {
      file_name += c;
    } else {
      AppendEscape(c, &file_name);
    }
  }
  if (file_name.size() > kLongest) {
    file_name.resize(kKept);
    file_name += '%' + Sha256Of(name);
  }
  return file_name;
}

std::string_view ClientOf(std::string_view backup_id) {
  return backup_id.substr(0, backup_id.find('_'));
}

std::string_view TimeOf(std::string_view backup_id) {
  return backup_id.substr(std::min(backup_id.find('_'), backup_id.size() - 1) + 1);
}
