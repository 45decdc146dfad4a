#include "archive/path_pattern.h"

#include <fnmatch.h>

#include <cstddef>
#include <utility>

namespace {

/// A glob that matches whatever has `text` in it.
std::string GlobAround(std::string_view text) {
  std::string glob = "*";
  for (const char c : text) {
    glob += '\\';
    glob += c;
  }
  return glob += '*';
}

}  // namespace

PathPattern::PathPattern(std::string_view text, bool is_substring, bool ignores_case)
    : glob_(is_substring ? GlobAround(text) : text), flags_(ignores_case ? FNM_CASEFOLD : 0) {
  if (!ignores_case) {
    TakeLiterals();
  }
}

bool PathPattern::Matches(const std::string& path) const {
  return fnmatch(glob_.c_str(), path.c_str(), flags_) == 0;
}

void PathPattern::TakeLiterals() {
  std::string text;
  bool is_first = true;
  for (std::size_t at = 0; at < glob_.size(); ++at) {
    const char c = glob_[at];
    if (c == '*' || c == '?' || c == '[') {
      TakeLiteral(std::exchange(text, ""), std::exchange(is_first, false), false);
    } else {
      at += c == '\\' && at + 1 < glob_.size() ? 1 : 0;
      text += glob_[at];
    }
    if (c == '[') {
      return;  // Where a set ends depends on all that it may hold; what is known suffices.
    }
  }
  if (is_first) {
    whole_ = text;
  }
  TakeLiteral(text, is_first, true);
}

void PathPattern::TakeLiteral(const std::string& text, bool is_first, bool is_last) {
  if (text.size() > literal_.size()) {
    literal_ = text;
  }
  std::size_t begin = 0;
  bool is_name = is_first;  // A slash precedes the others, or nothing does.
  for (std::size_t end = 0; end <= text.size(); ++end) {
    if (end < text.size() && text[end] != '/') {
      continue;
    }
    const bool is_whole = is_name && (end < text.size() || is_last);
    if (is_whole && end > begin) {
      names_.push_back(text.substr(begin, end - begin));
    }
    begin = end + 1;
    is_name = true;
  }
}
