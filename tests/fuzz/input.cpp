#include "input.h"

#include <algorithm>

#include "layout/layout.h"

Input::Input(const std::uint8_t* data, std::size_t size) {
  const std::string_view bytes(reinterpret_cast<const char*>(data), size);
  const std::size_t newline = std::min(bytes.find('\n'), bytes.size());
  settings_ = bytes.substr(0, newline);
  text_ = bytes.substr(std::min(newline + 1, bytes.size()));
}

bool Input::Has(char setting) const {
  return settings_.find(setting) != std::string_view::npos;
}

int Input::trace_level() const {
  const std::size_t at = settings_.find_last_of("0123456789");
  return at == std::string_view::npos ? 0 : (settings_[at] - '0') % 4;
}

std::size_t Input::read_size() const {
  constexpr std::string_view kLetters = "ABCDEFGHIJKLMNOPQRSTUVWXYZ";
  const std::size_t at = settings_.find_last_of(kLetters);
  return at == std::string_view::npos ? kLineBufSize : 2 + 8 * kLetters.find(settings_[at]);
}
