// value: (plain | escape)*         plain: any byte above 0x1F but '"', '\' and '/'
// escape: "\" ["\/bfnrt] | "\u00" [01] [0-9A-F]         the latter for what has no letter

#include "archive/entry_text.h"

#include <emmintrin.h>

#include <array>
#include <bit>
#include <cstddef>
#include <optional>

namespace {

constexpr std::string_view kLetters = "bfnrt";
constexpr std::string_view kLettered = "\b\f\n\r\t";  // what they stand for
constexpr char kLastControl = 0x1F;

constexpr auto kIsSpecial = [] {
  std::array<bool, 256> is_special{};
  for (std::size_t c = 0; c <= kLastControl; ++c) {
    is_special[c] = true;
  }
  is_special['"'] = is_special['\\'] = is_special['/'] = true;
  return is_special;
}();

/// The first of `value` from `at` on that does not stand for itself, or its end.
std::size_t FindSpecial(std::string_view value, std::size_t at) {
  const __m128i controls = _mm_set1_epi8(kLastControl);
  for (; value.size() - at >= sizeof(__m128i); at += sizeof(__m128i)) {
    const __m128i block = _mm_loadu_si128(reinterpret_cast<const __m128i*>(value.data() + at));
    const __m128i is_control = _mm_cmpeq_epi8(_mm_max_epu8(block, controls), controls);
    const __m128i is_quote = _mm_cmpeq_epi8(block, _mm_set1_epi8('"'));
    const __m128i is_slash = _mm_or_si128(_mm_cmpeq_epi8(block, _mm_set1_epi8('\\')),
                                          _mm_cmpeq_epi8(block, _mm_set1_epi8('/')));
    const auto found = static_cast<std::uint32_t>(
        _mm_movemask_epi8(_mm_or_si128(is_control, _mm_or_si128(is_quote, is_slash))));
    if (found != 0) {
      return at + static_cast<std::size_t>(std::countr_zero(found));
    }
  }
  while (at < value.size() && !kIsSpecial[static_cast<unsigned char>(value[at])]) {
    ++at;
  }
  return at;
}

/// An escape: what it stands for, and how long it is.
struct Escape {
  char stands_for;
  std::size_t size;
};

std::optional<unsigned> HexDigit(char c) {
  constexpr std::string_view kDigits = "0123456789ABCDEF";
  const std::size_t digit = kDigits.find(c);
  return digit != std::string_view::npos ? std::optional(static_cast<unsigned>(digit))
                                         : std::nullopt;
}

std::optional<Escape> ReadNumberedEscape(std::string_view text) {
  constexpr std::string_view kStart = "\\u00";
  constexpr std::size_t kSize = 6;
  if (text.size() < kSize || !text.starts_with(kStart)) {
    return std::nullopt;
  }
  const std::optional<unsigned> high = HexDigit(text[4]);
  const std::optional<unsigned> low = HexDigit(text[5]);
  if (!high || !low || *high > 1) {
    return std::nullopt;
  }
  const char c = static_cast<char>(*high * 16 + *low);
  return kLettered.find(c) == std::string_view::npos ? std::optional(Escape{c, kSize})
                                                     : std::nullopt;
}

/// The escape that `text` begins with, if it does.
std::optional<Escape> ReadEscape(std::string_view text) {
  if (text.size() < 2 || text[0] != '\\') {
    return std::nullopt;
  }
  if (text[1] == '"' || text[1] == '\\' || text[1] == '/') {
    return Escape{text[1], 2};
  }
  const std::size_t letter = kLetters.find(text[1]);
  return letter != std::string_view::npos ? std::optional(Escape{kLettered[letter], 2})
                                          : ReadNumberedEscape(text);
}

void AppendSmallHex(char c, std::string* text) {
  constexpr std::string_view kDigits = "0123456789abcdef";
  *text += "\\u00";
  *text += kDigits[static_cast<unsigned char>(c) / 16];
  *text += kDigits[static_cast<unsigned char>(c) % 16];
}

void AppendEscape(std::string_view value, const Escape& escape, TextForm form, std::string* text) {
  const char c = escape.stands_for;
  const bool is_json = form == TextForm::kJson;
  const bool is_escaped = form != TextForm::kPlain && c != '/' && (c != '"' || is_json);
  if (is_escaped && escape.size == 2) {
    *text += value.substr(0, escape.size);
  } else if (is_escaped && is_json) {
    AppendSmallHex(c, text);
  } else {
    *text += c;
  }
}

/// Appends `c` with the letter or the sign that stands for it behind a backslash. Returns false,
/// having done nothing, for a character that has none.
bool AppendNamed(char c, std::string_view signs, std::string* text) {
  const std::size_t letter = kLettered.find(c);
  if (letter == std::string_view::npos && signs.find(c) == std::string_view::npos) {
    return false;
  }
  *text += '\\';
  *text += letter == std::string_view::npos ? c : kLetters[letter];
  return true;
}

}  // namespace

bool AppendValue(std::string_view value, TextForm form, std::string* text) {
  std::size_t at = 0;
  while (true) {
    const std::size_t end = FindSpecial(value, at);
    text->append(value, at, end - at);
    if (end == value.size()) {
      return true;
    }
    const std::optional<Escape> escape = ReadEscape(value.substr(end));
    if (!escape) {
      return false;
    }
    AppendEscape(value.substr(end), *escape, form, text);
    at = end + escape->size;
  }
}

std::string ValueOf(std::string_view plain) {
  constexpr std::string_view kDigits = "0123456789ABCDEF";
  std::string value;
  for (const char c : plain) {
    if (AppendNamed(c, "\"\\/", &value)) {
      continue;
    }
    if (static_cast<unsigned char>(c) <= kLastControl) {
      value += "\\u00";
      value += kDigits[static_cast<unsigned char>(c) / 16];
      value += kDigits[static_cast<unsigned char>(c) % 16];
    } else {
      value += c;
    }
  }
  return value;
}

void AppendTsv(std::string_view plain, std::string* text) {
  for (const char c : plain) {
    if (!AppendNamed(c, "\\", text)) {
      *text += c;
    }
  }
}
