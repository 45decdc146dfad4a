#ifndef QUILLMERE_ARCHIVE_PATH_PATTERN_H_
#define QUILLMERE_ARCHIVE_PATH_PATTERN_H_

#include <string>
#include <string_view>
#include <vector>

/// What paths are looked for: a glob over the whole path, byte by byte. '*' stands for any bytes,
/// slashes too, '?' for one, "[a-z]" and "[!a-z]" for one of a set, and a backslash takes its
/// meaning from the next byte.
class PathPattern {
 public:
  /// `is_substring`: `text` has no such signs, and matches anywhere in the path. `ignores_case`: of
  /// ASCII letters.
  PathPattern(std::string_view text, bool is_substring, bool ignores_case);

  /// `path` holds no zero byte.
  [[nodiscard]] bool Matches(const std::string& path) const;

  /// The longest text that each path has in it that matches; empty when there is none.
  [[nodiscard]] const std::string& literal() const { return literal_; }

  /// The path that alone matches; empty when there are more of them.
  [[nodiscard]] const std::string& whole() const { return whole_; }

  /// Names, whole ones between slashes, that each path has that matches.
  [[nodiscard]] const std::vector<std::string>& names() const { return names_; }

 private:
  void TakeLiterals();
  void TakeLiteral(const std::string& text, bool is_first, bool is_last);

  std::string glob_;
  int flags_;  // of fnmatch
  std::string literal_;
  std::string whole_;
  std::vector<std::string> names_;
};

#endif  // QUILLMERE_ARCHIVE_PATH_PATTERN_H_
