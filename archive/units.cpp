#include "archive/units.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdio>
#include <system_error>

namespace {

/// The whole number that `text` begins with, which is taken off it.
std::optional<std::uint64_t> CutNumber(std::string_view* text) {
  std::uint64_t number = 0;
  const auto [end, error] = std::from_chars(text->data(), text->data() + text->size(), number);
  if (error != std::errc()) {
    return std::nullopt;
  }
  text->remove_prefix(static_cast<std::size_t>(end - text->data()));
  return number;
}

/// Seconds of the unit of an age, 0 for a text that is none.
std::uint64_t SecondsOf(std::string_view unit) {
  constexpr std::string_view kUnits = "smhdw";
  constexpr std::array<std::uint64_t, kUnits.size()> kSeconds = {1, 60, 3600, 86400, 604800};
  const std::size_t at = unit.size() == 1 ? kUnits.find(unit) : std::string_view::npos;
  return at == std::string_view::npos ? 0 : kSeconds[at];
}

/// By how many bits the unit of a size shifts; nothing for a text that is none.
std::optional<unsigned> ShiftOf(std::string_view unit) {
  constexpr std::string_view kUnits = "KMGT";
  if (unit.empty()) {
    return 0;
  }
  const std::size_t at = unit.size() == 1 ? kUnits.find(unit) : std::string_view::npos;
  if (at == std::string_view::npos) {
    return std::nullopt;
  }
  return static_cast<unsigned>(10 * (at + 1));
}

/// Cuts `digits` digits and what follows them, if anything has to, off the beginning of *text.
std::optional<int> CutDigits(std::size_t digits, std::string_view behind, std::string_view* text) {
  int number = 0;
  if (text->size() < digits + behind.size() ||
      !std::all_of(text->begin(), text->begin() + static_cast<std::ptrdiff_t>(digits),
                   [](char c) { return c >= '0' && c <= '9'; }) ||
      !text->substr(digits).starts_with(behind)) {
    return std::nullopt;
  }
  std::from_chars(text->data(), text->data() + digits, number);
  text->remove_prefix(digits + behind.size());
  return number;
}

/// "YYYY-MM-DD": seconds since 1970.
std::optional<std::int64_t> CutDay(std::string_view* text) {
  const std::optional<int> year = CutDigits(4, "-", text);
  const std::optional<int> month = year ? CutDigits(2, "-", text) : std::nullopt;
  const std::optional<int> day = month ? CutDigits(2, "", text) : std::nullopt;
  if (!day) {
    return std::nullopt;
  }
  const std::chrono::year_month_day date{std::chrono::year(*year),
                                         std::chrono::month(static_cast<unsigned>(*month)),
                                         std::chrono::day(static_cast<unsigned>(*day))};
  if (!date.ok()) {
    return std::nullopt;
  }
  return std::chrono::seconds(std::chrono::sys_days(date).time_since_epoch()).count();
}

/// "HH:MM" or less than that: seconds.
std::optional<std::int64_t> CutHoursAndMinutes(std::string_view behind, std::string_view* text) {
  const std::optional<int> hours = CutDigits(2, ":", text);
  const std::optional<int> minutes = hours ? CutDigits(2, behind, text) : std::nullopt;
  if (!minutes || *hours > 23 || *minutes > 59) {
    return std::nullopt;
  }
  return (*hours * 60 + *minutes) * 60;
}

/// "THH:MM:SS", with or without a fraction: seconds.
std::optional<std::int64_t> CutClock(std::string_view* text) {
  if (!text->starts_with('T') && !text->starts_with('t')) {
    return std::nullopt;
  }
  text->remove_prefix(1);
  const std::optional<std::int64_t> minutes = CutHoursAndMinutes(":", text);
  const std::optional<int> seconds = minutes ? CutDigits(2, "", text) : std::nullopt;
  if (!seconds || *seconds > 60) {  // a leap second
    return std::nullopt;
  }
  if (text->starts_with('.')) {
    const std::size_t end = std::min(text->find_first_not_of("0123456789", 1), text->size());
    if (end == 1) {
      return std::nullopt;
    }
    text->remove_prefix(end);
  }
  return *minutes + *seconds;
}

/// "Z", "+HH:MM" or "-HH:MM": seconds.
std::optional<std::int64_t> ParseOffset(std::string_view text) {
  if (text == "Z" || text == "z") {
    return 0;
  }
  if (!text.starts_with('+') && !text.starts_with('-')) {
    return std::nullopt;
  }
  const int sign = text.starts_with('+') ? 1 : -1;
  text.remove_prefix(1);
  const std::optional<std::int64_t> offset = CutHoursAndMinutes("", &text);
  return offset && text.empty() ? std::optional(sign * *offset) : std::nullopt;
}

}  // namespace

std::optional<std::size_t> ParseCount(std::string_view text) {
  const std::optional<std::uint64_t> number = CutNumber(&text);
  return text.empty() ? number : std::nullopt;
}

std::optional<Age> ParseAge(std::string_view text) {
  constexpr std::uint64_t kMost = std::uint64_t{1000000} * 604800;  // seconds
  std::string_view unit = text;
  const std::optional<std::uint64_t> number = CutNumber(&unit);
  const std::uint64_t seconds = SecondsOf(unit);
  if (!number || seconds == 0 || *number > kMost / seconds) {
    return std::nullopt;
  }
  return Age{std::string(text), std::chrono::seconds(*number * seconds)};
}

std::optional<FreeSpace> ParseFreeSpace(std::string_view text) {
  std::string_view unit = text;
  const std::optional<std::uint64_t> number = CutNumber(&unit);
  if (!number) {
    return std::nullopt;
  }
  if (unit == "%") {
    return *number <= 100 ? std::optional(FreeSpace{std::string(text), true, *number})
                          : std::nullopt;
  }
  const std::optional<unsigned> shift = ShiftOf(unit);
  if (!shift || (*number << *shift) >> *shift != *number) {
    return std::nullopt;
  }
  return FreeSpace{std::string(text), false, *number << *shift};
}

std::optional<std::int64_t> ParseTime(std::string_view text) {
  std::int64_t seconds = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), seconds);
  if (error == std::errc() && end == text.data() + text.size()) {
    return seconds;
  }
  const std::optional<std::int64_t> day = CutDay(&text);
  if (!day || text.empty()) {
    return day;
  }
  const std::optional<std::int64_t> clock = CutClock(&text);
  const std::optional<std::int64_t> offset = ParseOffset(text);
  return clock && offset ? std::optional(*day + *clock - *offset) : std::nullopt;
}

std::optional<std::string> Rfc3339(std::int64_t seconds) {
  constexpr std::int64_t kFirst = -62167219200;  // 0000-01-01T00:00:00Z
  constexpr std::int64_t kLast = 253402300799;   // 9999-12-31T23:59:59Z
  if (seconds < kFirst || seconds > kLast) {
    return std::nullopt;
  }
  const std::chrono::sys_seconds time{std::chrono::seconds(seconds)};
  const auto day = std::chrono::floor<std::chrono::days>(time);
  const std::chrono::year_month_day date(day);
  const std::chrono::hh_mm_ss clock(time - day);
  std::array<char, 32> text{};
  const int size = std::snprintf(
      text.data(), text.size(), "%04d-%02u-%02uT%02d:%02d:%02dZ", static_cast<int>(date.year()),
      static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()),
      static_cast<int>(clock.hours().count()), static_cast<int>(clock.minutes().count()),
      static_cast<int>(clock.seconds().count()));
  return std::string(text.data(), static_cast<std::size_t>(size));
}

std::string BytesForPeople(std::uint64_t bytes) {
  constexpr std::array<const char*, 6> kUnits = {"kB", "MB", "GB", "TB", "PB", "EB"};
  if (bytes < 1000) {
    return std::to_string(bytes) + " B";
  }
  auto amount = static_cast<double>(bytes) / 1000;
  std::size_t unit = 0;
  while (amount >= 999.95) {
    amount /= 1000;
    ++unit;
  }
  std::array<char, 32> text{};
  const int size = std::snprintf(text.data(), text.size(), "%.1f %s", amount, kUnits[unit]);
  return {text.data(), static_cast<std::size_t>(size)};
}

std::string Printable(std::string_view text) {
  constexpr std::string_view kHexDigits = "0123456789ABCDEF";
  std::string printable;
  printable.reserve(text.size());
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte >= 0x20 && byte != 0x7F) {
      printable += c;
    } else {
      printable += "\\x";
      printable += kHexDigits[byte / 16];
      printable += kHexDigits[byte % 16];
    }
  }
  return printable;
}
