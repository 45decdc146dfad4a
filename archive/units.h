#ifndef QUILLMERE_ARCHIVE_UNITS_H_
#define QUILLMERE_ARCHIVE_UNITS_H_

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

// How people write durations, sizes and times, and how they are shown.

/// A duration as it was written, for messages, and what it stands for.
struct Age {
  std::string text;
  std::chrono::seconds duration{};
};

/// Space that has to stay free: a share of the file system, or bytes.
struct FreeSpace {
  std::string text;
  bool is_percentage = false;
  std::uint64_t amount = 0;  ///< percent or bytes
};

/// A whole number, nothing else.
std::optional<std::size_t> ParseCount(std::string_view text);

/// A whole number and one of s, m, h, d, w: "90m". At most 1,000,000 weeks or as much of the
/// others.
std::optional<Age> ParseAge(std::string_view text);

/// A whole number of percent, at most 100, or of bytes with K, M, G, T (1024 and so on) or nothing
/// behind it: "5%", "10G".
std::optional<FreeSpace> ParseFreeSpace(std::string_view text);

/// Seconds since 1970 of "SECONDS", "YYYY-MM-DD" (its beginning) or a time in RFC 3339; in UTC
/// unless that says otherwise. A fraction of a second is dropped.
std::optional<std::int64_t> ParseTime(std::string_view text);

/// Seconds since 1970 in RFC 3339, UTC. Nothing for years before 0000 and after 9999.
std::optional<std::string> Rfc3339(std::int64_t seconds);

/// Bytes for people: "512 B", "3.5 MB" (1000, and so on).
std::string BytesForPeople(std::uint64_t bytes);

/// `text` with control characters as "\x" and two hexadecimal digits.
std::string Printable(std::string_view text);

#endif  // QUILLMERE_ARCHIVE_UNITS_H_
