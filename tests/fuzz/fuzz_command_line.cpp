// ParseCommandLine with the lines of any bytes as its arguments. A zero byte ends an argument.

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "layout/layout.h"
#include "main/command_line.h"
#include "outcome.h"
#include "plain_text.h"

namespace {

constexpr const char* kUsage =
    "Usage:\n"
    "quillmere --action dump_backup_set_list [--policy <policy>] [--client <client>] "
    "[--count <count>] [--output_dir <output_dir>]\n"
    "quillmere --action dump_backup_set[--policy <policy>] [--client <client>] "
    "--time <time> --output_dir <output_dir>\n"
    "quillmere --action list_backups [--policy <policy>] [--client <client>] "
    "[--schedule <schedule>]\n"
    "quillmere --action dump_backup --backup_id <backup_id> [--output_dir <output_dir>]\n";

constexpr int kWalkedToTheEnd = -1;  // in place of a status

std::vector<std::string> ArgumentsIn(const std::string& text) {
  std::vector<std::string> arguments;
  for (const std::string& line : TextsRead(text, text.size() + 2)) {
    const bool has_newline = !line.empty() && line[line.size() - 1] == '\n';
    arguments.push_back(line.substr(0, line.size() - (has_newline ? 1 : 0)));
  }
  return arguments;
}

/// The values as a text; no argument holds a zero byte.
std::string Shown(const Options& options, std::int32_t level) {
  std::string shown;
  for (const std::string& value :
       {"action: " + options.action, "policy: " + options.policy, "client: " + options.client,
        "time: " + std::to_string(options.time), "count: " + std::to_string(options.count),
        "output_dir: " + options.output_dir, "backup_id: " + options.backup_id,
        "schedule: " + options.schedule, "verbose: " + std::to_string(level)}) {
    shown += value + '\0';
  }
  return shown;
}

bool IsActionName(const std::string& name) {
  return name == "dump_backup_set_list" || name == "dump_backup_set" || name == "dump_backup" ||
         name == "list_backups";
}

/// Stores the value of an option. Returns false when there is no such option.
bool StoreValue(const std::string& option, const std::string& value, Options* options) {
  if (option == "--action") {
    options->action = value;
  } else if (option == "--policy") {
    options->policy = value;
  } else if (option == "--client") {
    options->client = value;
  } else if (option == "--time") {
    options->time = PlainAtol(value);
  } else if (option == "--count") {
    options->count = Low32(PlainAtol(value));
  } else if (option == "--output_dir") {
    options->output_dir = value;
  } else if (option == "--backup_id") {
    options->backup_id = value;
  } else if (option == "--schedule") {
    options->schedule = value;
  } else {
    return false;
  }
  return true;
}

Outcome Refused(const std::string& message) {
  Outcome outcome;
  outcome.status = 1;
  outcome.err = message;
  return outcome;
}

/// Walks over the arguments into *options and *level. Returns what that shows, results aside.
Outcome PlainWalk(const std::vector<std::string>& arguments, Options* options,
                  std::int32_t* level) {
  Outcome outcome;
  for (std::size_t at = 0; at < arguments.size(); at += 2) {
    const std::string& argument = arguments[at];
    const bool is_last = at + 1 == arguments.size();
    const std::string value = is_last ? "" : arguments[at + 1];
    Options stored = *options;
    if (argument == "-h" || argument == "--help") {
      outcome.out = kUsage;
      return outcome;
    }
    if (argument == "--verbose") {
      *level = is_last ? 1 : Low32(PlainAtol(value));
      continue;
    }
    if (!StoreValue(argument, value, &stored)) {
      return Refused("unrecognized parameter: " + argument + "\n");
    }
    if (is_last) {
      return Refused("missing value for <" + argument.substr(2) + "> parameter.\n");
    }
    *options = stored;
    if (argument == "--action" && !IsActionName(value)) {
      return Refused("unknown action value: " + value + "\n");
    }
  }
  outcome.status = kWalkedToTheEnd;
  return outcome;
}

Outcome PlainOutcome(const std::vector<std::string>& arguments) {
  Options options;
  std::int32_t level = 0;
  Outcome outcome = PlainWalk(arguments, &options, &level);
  outcome.results = Shown(options, level);
  return outcome;
}

/// Walks over the arguments. Each one, and the array of them, has memory of its own size, and no
/// null pointer stands behind the last: nothing is there to be read by mistake.
Outcome Walk(const std::vector<std::string>& arguments) {
  std::vector<std::unique_ptr<char[]>> texts;
  const auto argv = std::make_unique<const char*[]>(arguments.size() + 1);
  argv[0] = "some other name";
  for (const std::string& argument : arguments) {
    texts.push_back(std::make_unique<char[]>(argument.size() + 1));
    argument.copy(texts.back().get(), argument.size());
    argv[texts.size()] = texts.back().get();
  }
  Options options;
  verbose = 0;
  Outcome outcome = Run([&] {
    return ParseCommandLine(static_cast<int>(arguments.size() + 1), argv.get(), &options)
        .value_or(kWalkedToTheEnd);
  });
  outcome.results = Shown(options, verbose);
  return outcome;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::vector<std::string> arguments =
      ArgumentsIn(std::string(reinterpret_cast<const char*>(data), size));
  const Outcome expected = PlainOutcome(arguments);
  for (int run = 0; run < 2; ++run) {
    ExpectOutcome(Walk(arguments), expected);
  }
  return 0;
}
