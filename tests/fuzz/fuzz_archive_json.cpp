// The readers of an archive's JSON files with any bytes: each says what is wrong, or gives a value
// whose text gives the same value again, also with keys in it that nobody knows.

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "archive/manifest.h"
#include "outcome.h"

namespace {

/// The text of what a reader makes of `text`; what is wrong, where there is nothing. Checks that it
/// is the one or the other.
template <class Value>
std::optional<std::string> Rewritten(
    const std::function<std::optional<Value>(std::string_view, std::string*)>& read,
    std::string_view text) {
  std::string error;
  const std::optional<Value> value = read(text, &error);
  Expect(value.has_value() == error.empty(), "a value, or what is wrong");
  Expect(error.find('\n') == std::string::npos, "what is wrong is one line");
  return value ? std::optional(TextOf(*value)) : std::nullopt;
}

template <class Value>
void CheckReader(const std::function<std::optional<Value>(std::string_view, std::string*)>& read,
                 std::string_view text) {
  const std::optional<std::string> once = Rewritten(read, text);
  if (!once) {
    return;
  }
  const auto expect_same = [&](std::string_view what, std::string_view other) {
    const std::optional<std::string> again = Rewritten(read, other);
    Expect(again.has_value(), what);
    ExpectText(what, *again, *once);
  };
  expect_same("the same text once more", text);
  expect_same("the value's own text", *once);
  const std::size_t brace = text.find('{');
  std::string longer(text);
  expect_same("with a key of a later version",
              longer.insert(brace + 1, R"("later": [{"version": 2}, null, 1e3],)"));
}

/// Every manifest can be marked, and only what is marked is a mark.
void CheckMark(std::string_view text) {
  const std::optional<std::string> manifest = Rewritten<Manifest>(ReadManifest, text);
  const std::optional<std::string> mark = Rewritten<Manifest>(ReadMark, text);
  Expect(!mark || mark == manifest, "a mark is a manifest");
  if (manifest) {
    ExpectText("a manifest that is marked",
               Rewritten<Manifest>(ReadMark, MarkOf(text, 1)).value_or("none"), *manifest);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  CheckReader<ArchiveInfo>(ReadArchiveInfo, text);
  CheckReader<Manifest>(ReadManifest, text);
  CheckReader<SetFile>(ReadSetFile, text);
  CheckMark(text);
  return 0;
}
