#ifndef QUILLMERE_ARCHIVE_JSON_OBJECT_H_
#define QUILLMERE_ARCHIVE_JSON_OBJECT_H_

#include <cstdint>
#include <string>
#include <string_view>

#include <nlohmann/json.hpp>

// What the JSON files of an archive have in common: UTF-8, keys in a fixed order, texts that may be
// any bytes, times in two forms, and a format with a version at the beginning.

using Json = nlohmann::ordered_json;

/// An object that begins with `format` and `version`.
Json NewJson(std::string_view format, int version);

/// Adds `text` under `key`; if it is no UTF-8, its bytes in base64 under the key with "_base64"
/// behind it, too.
void AddText(std::string_view key, std::string_view text, Json* object);

/// Adds `seconds` under `key`, and in RFC 3339 under the key with "_utc" behind it.
void AddTime(std::string_view key, std::int64_t seconds, Json* object);

/// `text` as UTF-8: what is none becomes U+FFFD.
std::string Utf8Of(std::string_view text);

/// The text of a file: indented, with a newline at the end. What is no UTF-8 becomes U+FFFD.
std::string JsonText(const Json& object);

/// The same on one line, without a newline.
std::string JsonLine(const Json& object);

/// Reads the members of an object. What is missing or of the wrong type comes out empty or 0, and
/// the first such key is the error.
class JsonReader {
 public:
  /// Parses `text`, an object of `format` and of a version from 1 to `version`. If it is none, that
  /// is the error.
  JsonReader(std::string_view text, std::string_view format, int version);

  /// Empty as long as everything was right: "not JSON", "not of quillmere-archive", "format version
  /// N is newer than this program" or "KEY is missing or wrong".
  [[nodiscard]] const std::string& error() const { return error_; }

  std::string Text(std::string_view key) { return Text(object_, key); }
  std::int64_t Integer(std::string_view key) { return Integer(object_, key); }
  std::uint64_t Count(std::string_view key) { return Count(object_, key); }
  double Number(std::string_view key);
  const Json& Object(std::string_view key);
  const Json& Array(std::string_view key) { return Array(object_, key); }

  // The same for a value inside, which has no members if it is no object.
  std::string Text(const Json& object, std::string_view key);
  std::int64_t Integer(const Json& object, std::string_view key);
  std::uint64_t Count(const Json& object, std::string_view key);
  const Json& Array(const Json& object, std::string_view key);

 private:
  void Blame(std::string_view key);

  Json object_;
  std::string error_;
};

#endif  // QUILLMERE_ARCHIVE_JSON_OBJECT_H_
