// Globs with any bytes: a first line, and a path in the second, against a plain matcher. What a
// pattern knows of each path that matches holds for those that do.

#include <cstddef>
#include <cstdint>
#include <set>
#include <string>
#include <string_view>

#include "archive/path_pattern.h"
#include "outcome.h"

namespace {

/// Matches without sets: after each sign of the glob, how much of the path it can have taken.
bool PlainMatches(std::string_view glob, std::string_view path) {
  std::set<std::size_t> taken = {0};
  for (std::size_t at = 0; at < glob.size(); ++at) {
    std::set<std::size_t> next;
    const bool is_quoted = glob[at] == '\\';
    if (is_quoted && ++at == glob.size()) {
      return false;
    }
    for (const std::size_t size : taken) {
      if (!is_quoted && glob[at] == '*') {
        for (std::size_t more = size; more <= path.size(); ++more) {
          next.insert(more);
        }
      } else if (size < path.size() &&
                 ((!is_quoted && glob[at] == '?') || glob[at] == path[size])) {
        next.insert(size + 1);
      }
    }
    taken = next;
  }
  return taken.contains(path.size());
}

bool HasName(const std::string& path, const std::string& name) {
  return ('/' + path + '/').find('/' + name + '/') != std::string::npos;
}

void CheckKnown(const PathPattern& pattern, const std::string& path) {
  Expect(path.find(pattern.literal()) != std::string::npos, "the literal is in the path");
  Expect(pattern.whole().empty() || pattern.whole() == path, "the whole path");
  for (const std::string& name : pattern.names()) {
    Expect(HasName(path, name), "the name is in the path");
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  const std::size_t end = text.find('\n');
  if (end == std::string_view::npos || text.find('\0') != std::string_view::npos) {
    return 0;
  }
  const std::string glob(text.substr(0, end));
  const std::string path(text.substr(end + 1));
  const PathPattern pattern(glob, false, false);
  const bool matches = pattern.Matches(path);
  if (matches) {
    CheckKnown(pattern, path);
  }
  if (glob.find('[') == std::string::npos) {
    Expect(matches == PlainMatches(glob, path), "the same as the plain matcher");
    Expect(!matches || PathPattern(glob, false, true).Matches(path), "also without regard to case");
  }
  const PathPattern part(glob, true, false);
  Expect(part.Matches(path) == (path.find(glob) != std::string::npos), "as a part of the path");
  if (part.Matches(path)) {
    CheckKnown(part, path);
  }
  return 0;
}
