#ifndef QUILLMERE_TESTS_FUZZ_INPUT_H_
#define QUILLMERE_TESTS_FUZZ_INPUT_H_

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

/// One input: settings on its first line, each a single character, and then the text that the
/// command prints. Every sequence of bytes is an input.
class Input {
 public:
  Input(const std::uint8_t* data, std::size_t size);

  [[nodiscard]] bool Has(char setting) const;

  /// The level for `verbose`: the last digit among the settings, modulo 4; 0 without one.
  [[nodiscard]] int trace_level() const;

  /// How much of line_buf one read may fill, its terminating zero included: all of it, or 2 to 202
  /// bytes for a capital letter among the settings. So the border between two pieces of a long line
  /// can lie anywhere in a short text.
  [[nodiscard]] std::size_t read_size() const;

  [[nodiscard]] const std::string& text() const { return text_; }

 private:
  std::string_view settings_;  // part of the data
  std::string text_;
};

#endif  // QUILLMERE_TESTS_FUZZ_INPUT_H_
