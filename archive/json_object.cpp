#include "archive/json_object.h"

#include <openssl/evp.h>

#include <cstddef>
#include <limits>
#include <optional>

#include "archive/units.h"

namespace {

constexpr auto kReplace = Json::error_handler_t::replace;

bool IsUtf8(std::string_view text) {
  try {
    (void)Json(text).dump();
  } catch (const Json::type_error&) {
    return false;
  }
  return true;
}

std::string Base64Of(std::string_view bytes) {
  std::string text((bytes.size() + 2) / 3 * 4, '\0');
  EVP_EncodeBlock(reinterpret_cast<unsigned char*>(text.data()),
                  reinterpret_cast<const unsigned char*>(bytes.data()),
                  static_cast<int>(bytes.size()));
  return text;
}

/// The bytes of which `text`, a part of a file that is read whole, is the base64; nothing if it is
/// none.
std::optional<std::string> BytesOf(std::string_view text) {
  std::string bytes(text.size() / 4 * 3 + 3, '\0');
  const int size = EVP_DecodeBlock(reinterpret_cast<unsigned char*>(bytes.data()),
                                   reinterpret_cast<const unsigned char*>(text.data()),
                                   static_cast<int>(text.size()));
  if (size < 0) {
    return std::nullopt;
  }
  // It counts the padding as bytes, and passes over some of what is none of the text.
  const int padding = text.ends_with("==") ? 2 : text.ends_with('=') ? 1 : 0;
  bytes.resize(static_cast<std::size_t>(size - padding));
  return Base64Of(bytes) == text ? std::optional(bytes) : std::nullopt;
}

/// The member `key` of `object`; null without one, and if it is no object.
const Json* Find(const Json& object, std::string_view key) {
  const auto member = object.find(std::string(key));
  return member == object.end() ? nullptr : &*member;
}

}  // namespace

Json NewJson(std::string_view format, int version) {
  Json object;
  object["format"] = format;
  object["version"] = version;
  return object;
}

void AddText(std::string_view key, std::string_view text, Json* object) {
  const std::string name(key);
  (*object)[name] = text;
  if (!IsUtf8(text)) {
    (*object)[name + "_base64"] = Base64Of(text);
  }
}

void AddTime(std::string_view key, std::int64_t seconds, Json* object) {
  const std::string name(key);
  (*object)[name] = seconds;
  const std::optional<std::string> utc = Rfc3339(seconds);
  (*object)[name + "_utc"] = utc ? Json(*utc) : Json();
}

std::string Utf8Of(std::string_view text) {
  return Json::parse(JsonLine(text)).get<std::string>();
}

std::string JsonText(const Json& object) {
  return object.dump(4, ' ', false, kReplace) + '\n';
}

std::string JsonLine(const Json& object) {
  return object.dump(-1, ' ', false, kReplace);
}

JsonReader::JsonReader(std::string_view text, std::string_view format, int version)
    : object_(Json::parse(text, nullptr, false)) {
  if (object_.is_discarded()) {
    error_ = "not JSON";
  }
  if (!object_.is_object()) {
    object_ = Json::object();
  }
  if (error_.empty() && object_.value("format", Json()) != format) {
    error_ = "not of quillmere-archive";
  }
  const std::int64_t found = Integer("version");
  if (found > version) {
    error_ = "format version " + std::to_string(found) + " is newer than this program";
  } else if (found < 1) {
    Blame("version");
  }
}

void JsonReader::Blame(std::string_view key) {
  if (error_.empty()) {
    error_ = std::string(key) + " is missing or wrong";
  }
}

std::string JsonReader::Text(const Json& object, std::string_view key) {
  const std::string bytes_key = std::string(key) + "_base64";
  const Json* const text = Find(object, key);
  const Json* const base64 = Find(object, bytes_key);
  if (text == nullptr || !text->is_string()) {
    Blame(key);
    return "";
  }
  if (base64 == nullptr) {
    return text->get<std::string>();
  }
  const std::optional<std::string> bytes =
      base64->is_string() ? BytesOf(base64->get_ref<const std::string&>()) : std::nullopt;
  if (!bytes) {
    Blame(bytes_key);
  }
  return bytes.value_or("");
}

std::int64_t JsonReader::Integer(const Json& object, std::string_view key) {
  const Json* const number = Find(object, key);
  const bool is_right = number != nullptr && number->is_number_integer() &&
                        (!number->is_number_unsigned() ||
                         number->get<std::uint64_t>() <=
                             static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max()));
  if (!is_right) {
    Blame(key);
    return 0;
  }
  return number->get<std::int64_t>();
}

std::uint64_t JsonReader::Count(const Json& object, std::string_view key) {
  const Json* const number = Find(object, key);
  if (number == nullptr || !number->is_number_unsigned()) {
    Blame(key);
    return 0;
  }
  return number->get<std::uint64_t>();
}

double JsonReader::Number(std::string_view key) {
  const Json* const number = Find(object_, key);
  if (number == nullptr || !number->is_number()) {
    Blame(key);
    return 0;
  }
  return number->get<double>();
}

const Json& JsonReader::Object(std::string_view key) {
  static const Json kEmpty = Json::object();
  const Json* const object = Find(object_, key);
  if (object == nullptr || !object->is_object()) {
    Blame(key);
    return kEmpty;
  }
  return *object;
}

const Json& JsonReader::Array(const Json& object, std::string_view key) {
  static const Json kEmpty = Json::array();
  const Json* const array = Find(object, key);
  if (array == nullptr || !array->is_array()) {
    Blame(key);
    return kEmpty;
  }
  return *array;
}
