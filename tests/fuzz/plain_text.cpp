#include "plain_text.h"

#include <limits>

std::vector<std::string> TextsRead(std::string_view output, std::size_t read_size) {
  std::vector<std::string> texts;
  std::size_t at = 0;
  while (at < output.size()) {
    std::string piece;
    do {
      piece += output[at++];
    } while (at < output.size() && piece.back() != '\n' && piece.size() + 1 < read_size);
    texts.push_back(piece.substr(0, piece.find('\0')));
  }
  return texts;
}

std::int64_t PlainAtol(std::string_view text) {
  constexpr std::int64_t kMost = std::numeric_limits<std::int64_t>::max();
  std::size_t at = 0;
  while (at < text.size() && (text[at] == ' ' || (text[at] >= '\t' && text[at] <= '\r'))) {
    ++at;
  }
  const bool is_negative = at < text.size() && text[at] == '-';
  if (at < text.size() && (text[at] == '-' || text[at] == '+')) {
    ++at;
  }
  std::int64_t number = 0;  // as a negative one, of which there is one more
  for (; at < text.size() && text[at] >= '0' && text[at] <= '9'; ++at) {
    const int digit = text[at] - '0';
    if (number < (-kMost - 1 + digit) / 10) {
      return is_negative ? -kMost - 1 : kMost;
    }
    number = 10 * number - digit;
  }
  if (is_negative) {
    return number;
  }
  return number == -kMost - 1 ? kMost : -number;
}

std::int32_t Low32(std::int64_t number) {
  constexpr std::int64_t kTwoTo31 = std::int64_t{1} << 31;
  const std::int64_t low = number & (2 * kTwoTo31 - 1);
  return static_cast<std::int32_t>(low < kTwoTo31 ? low : low - 2 * kTwoTo31);
}

Outcome PlainStart(const Input& input, const std::string& command) {
  Outcome outcome;
  outcome.out = input.trace_level() >= 1 ? "[cmd] " + command + "\n" : "";
  outcome.steps = "popen " + command + "\n";
  return outcome;
}
