#include "main/command_line.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <iostream>
#include <string_view>

#include "layout/layout.h"
#include "main/usage.h"

namespace {

/// An option that takes the argument behind it, whatever that looks like.
struct ValueOption {
  std::string_view name;  ///< without the two dashes
  void (*store)(const char* value, Options* options);
};

/// The low 32 bits of what atol makes of `text`.
std::int32_t LowAtol(const char* text) {
  return static_cast<std::int32_t>(std::atol(text));
}

constexpr std::array<ValueOption, 8> kValueOptions = {{
    {"action", [](const char* value, Options* options) { options->action = value; }},
    {"policy", [](const char* value, Options* options) { options->policy = value; }},
    {"client", [](const char* value, Options* options) { options->client = value; }},
    {"time", [](const char* value, Options* options) { options->time = std::atol(value); }},
    {"count", [](const char* value, Options* options) { options->count = LowAtol(value); }},
    {"output_dir", [](const char* value, Options* options) { options->output_dir = value; }},
    {"backup_id", [](const char* value, Options* options) { options->backup_id = value; }},
    {"schedule", [](const char* value, Options* options) { options->schedule = value; }},
}};

/// The option that `argument` names, or null.
const ValueOption* FindValueOption(std::string_view argument) {
  if (!argument.starts_with("--")) {
    return nullptr;
  }
  const auto* const found =
      std::find_if(kValueOptions.begin(), kValueOptions.end(),
                   [&](const ValueOption& option) { return argument.substr(2) == option.name; });
  return found == kValueOptions.end() ? nullptr : found;
}

bool IsAction(std::string_view name) {
  return name == ACTION_DUMP_BACKUP_SET_LIST || name == ACTION_DUMP_BACKUP_SET ||
         name == ACTION_DUMP_BACKUP || name == ACTION_LIST_BACKUPS;
}

}  // namespace

std::optional<int> ParseCommandLine(int argc, const char* const* argv, Options* options) {
  for (int index = 1; index < argc; ++index) {
    const std::string_view argument = argv[index];
    const char* const value = index + 1 < argc ? argv[index + 1] : nullptr;
    if (argument == "-h" || argument == "--help") {
      PrintUsage(prog);
      return 0;
    }
    if (argument == "--verbose") {
      verbose = value == nullptr ? 1 : LowAtol(value);
      ++index;
      continue;
    }
    const ValueOption* const option = FindValueOption(argument);
    if (option == nullptr) {
      std::cerr << "unrecognized parameter: " << argument << '\n';
      return 1;
    }
    if (value == nullptr) {
      std::cerr << "missing value for <" << option->name << "> parameter.\n";
      return 1;
    }
    option->store(value, options);
    ++index;
    // A wrong action ends the walk before anything to its right is looked at.
    if (argument == "--action" && !IsAction(options->action)) {
      std::cerr << "unknown action value: " << options->action << '\n';
      return 1;
    }
  }
  return std::nullopt;
}
