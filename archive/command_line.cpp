#include "archive/command_line.h"

#include <cstddef>
#include <exception>
#include <iostream>
#include <optional>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include "archive/commands/entries.h"
#include "archive/commands/find.h"
#include "archive/commands/init.h"
#include "archive/commands/list.h"
#include "archive/commands/prune.h"
#include "archive/commands/sync.h"
#include "archive/commands/verify.h"
#include "archive/manifest.h"
#include "archive/status.h"
#include "archive/units.h"
#include "system/standard_descriptors.h"
#include "system/standard_streams.h"

namespace {

constexpr std::size_t kMostJobs = 256;
constexpr std::size_t kMostKept = 1000000;  // sets of a series

/// What every command takes first.
void AddArchive(CLI::App* command, std::string* archive) {
  command->add_option("ARCHIVE", *archive, "Directory of the archive")->type_name("")->required();
}

/// CLI::Range, but for its message, which is another one in each version of the library.
template <typename Number>
CLI::Validator Between(Number least, Number most) {
  return {[=](const std::string& text) {
            return CLI::Range(least, most)(text).empty()
                       ? ""
                       : "Value " + text + " not in range " + std::to_string(least) + " to " +
                             std::to_string(most);
          },
          ""};
}

void AddJobs(CLI::App* command, std::size_t* jobs, const std::string& what) {
  command->add_option("--jobs", *jobs, what + " at a time")
      ->type_name("N")
      ->check(Between(std::size_t{1}, kMostJobs))
      ->capture_default_str();
}

/// An option of which each one given adds a text.
void AddTexts(CLI::App* command, const std::string& name, std::vector<std::string>* texts,
              const std::string& type, const std::string& description) {
  command->add_option(name, *texts, description)->type_name(type)->allow_extra_args(false);
}

/// An option whose text `parse` turns into *value, if it is right.
template <class Value, class Parsed>
CLI::Option* AddParsed(CLI::App* command, const std::string& name, Value* value,
                       std::optional<Parsed> (*parse)(std::string_view), const std::string& type,
                       const std::string& description) {
  const auto store = [=](const std::string& text) {
    std::optional<Parsed> parsed = parse(text);
    if (!parsed) {
      throw CLI::ValidationError(name, text + " is no " + type);
    }
    *value = *std::move(parsed);
  };
  return command->add_option_function<std::string>(name, store, description)->type_name(type);
}

CLI::App* AddInit(CLI::App* program, InitOptions* options) {
  CLI::App* const command =
      program->add_subcommand("init", "Make an empty archive in a new or empty directory");
  AddArchive(command, &options->archive);
  command->add_option("--server", options->server, "Name of the server (its host name)")
      ->type_name("NAME");
  command->add_option("--compress", options->compression_level, "Compress documents with zstd")
      ->type_name("LEVEL")
      ->check(Between(1, 19));
  return command;
}

CLI::App* AddSync(CLI::App* program, SyncOptions* options) {
  CLI::App* const command =
      program->add_subcommand("sync", "Export every image of the catalogue that the archive lacks");
  AddArchive(command, &options->archive);
  AddTexts(command, "--client", &options->clients, "NAME", "Only images of this client");
  AddTexts(command, "--policy", &options->policies, "NAME", "Only images of this policy");
  AddTexts(command, "--schedule", &options->schedules, "NAME", "Only images of this schedule");
  AddParsed(command, "--newer-than", &options->newer_than, ParseAge, "AGE", "No older images: 30d");
  AddParsed(command, "--limit", &options->limit, ParseCount, "N", "No more images than these");
  AddTexts(command, "--skip", &options->skipped, "BACKUP_ID", "Not this image");
  AddJobs(command, &options->jobs, "Images exported");
  AddParsed(command, "--timeout", &options->timeout, ParseAge, "AGE",
            "How long a command may print nothing")
      ->default_str(options->timeout.text);
  AddParsed(command, "--keep-free", &options->keep_free, ParseFreeSpace, "SIZE",
            "Begin no image with less free space: 5%, 10G");
  command->add_option("--metrics", options->metrics, "Tell Prometheus' node exporter how it went")
      ->type_name("FILE");
  command->add_flag("--again", options->is_again, "Also images that were pruned");
  command->add_flag("--dry-run", options->is_dry_run, "Only say what would be exported");
  command->add_flag("--quiet", options->is_quiet, "Print warnings and failures only");
  return command;
}

CLI::App* AddList(CLI::App* program, ListOptions* options) {
  CLI::App* const command = program->add_subcommand("list", "Show what is in the archive");
  AddArchive(command, &options->archive);
  CLI::Option* const sets = command->add_flag_callback(
      "--sets", [options] { options->rows = ListOptions::Rows::kSets; }, "Each backup set");
  CLI::Option* const images = command->add_flag_callback(
      "--images", [options] { options->rows = ListOptions::Rows::kImages; }, "Each image");
  command->add_flag("--json", options->is_json, "As a JSON array");
  CLI::Option* const stale = AddParsed(command, "--stale", &options->stale, ParseAge, "AGE",
                                       "Only series whose newest set is older: 26h");
  sets->excludes(images);
  stale->excludes(sets)->excludes(images);
  return command;
}

CLI::App* AddVerify(CLI::App* program, VerifyOptions* options) {
  CLI::App* const command =
      program->add_subcommand("verify", "Check everything in the archive, and say what is wrong");
  AddArchive(command, &options->archive);
  AddJobs(command, &options->jobs, "Images checked");
  return command;
}

CLI::App* AddPrune(CLI::App* program, PruneOptions* options) {
  CLI::App* const command =
      program->add_subcommand("prune", "Remove old sets and images that nothing newer needs");
  AddArchive(command, &options->archive);
  AddParsed(command, "--older-than", &options->older_than, ParseAge, "AGE",
            "Only what is older: 400d")
      ->required();
  command->add_option("--keep-last", options->keep_last, "Newest sets of a series that stay")
      ->type_name("N")
      ->check(Between(std::size_t{1}, kMostKept))
      ->capture_default_str();
  command->add_flag("--dry-run", options->is_dry_run, "Only say what would be removed");
  command->add_flag("--yes", options->is_confirmed, "Don't ask on a terminal");
  command->add_flag("--force", options->is_forced, "Even if more than half of the images go");
  return command;
}

/// The options that choose images.
void AddChoice(CLI::App* command, ImageChoice* choice) {
  AddTexts(command, "--client", &choice->clients, "NAME", "Only images of this client");
  AddTexts(command, "--policy", &choice->policies, "NAME", "Only images of this policy");
  AddTexts(command, "--schedule", &choice->schedules, "NAME", "Only images of this schedule");
  AddParsed(command, "--before", &choice->before, ParseTime, "TIME", "Only images before that");
  AddParsed(command, "--after", &choice->after, ParseTime, "TIME", "Only images after that");
}

CLI::App* AddFind(CLI::App* program, FindOptions* options) {
  CLI::App* const command = program->add_subcommand("find", "Tell which images hold a file");
  AddArchive(command, &options->archive);
  command->add_option("PATTERN", options->patterns, "Globs over the whole path; * matches / too")
      ->type_name("")
      ->required();
  command->add_flag("--substring", options->is_substring, "Patterns are any part of the path");
  command->add_flag("--ignore-case", options->ignores_case, "Ignore the case of ASCII letters");
  AddChoice(command, &options->choice);
  command->add_flag("--newest", options->is_newest,
                    "Only the newest image of each client and path");
  command->add_flag("--json", options->is_json, "Each as a line of JSON");
  return command;
}

CLI::App* AddEntries(CLI::App* program, EntriesOptions* options) {
  CLI::App* const command = program->add_subcommand("entries", "Print each file entry as a line");
  command
      ->add_option("SOURCE", options->sources,
                   "Archives, image directories, documents; - for stdin")
      ->type_name("")
      ->required();
  const auto take_format = [options](const std::string& text) {
    options->format =
        text == "tsv" ? EntriesOptions::Format::kTsv : EntriesOptions::Format::kNdjson;
  };
  command->add_option_function<std::string>("--format", take_format, "tsv or ndjson")
      ->type_name("FORMAT")
      ->check(CLI::IsMember({"tsv", "ndjson"}).description(""))
      ->default_str("tsv");
  AddParsed(command, "--columns", &options->columns, ParseColumns, "LIST",
            "Which columns, in which order: client,path");
  command->add_flag("--header", options->has_header, "Begin with the names of the columns");
  AddChoice(command, &options->choice);
  return command;
}

/// Runs what the arguments say. Returns a Status.
int Run(int argc, char** argv) {
  CLI::App program("Keeps every backup image of the catalogue, and checks what it keeps.",
                   "quillmere-archive");
  program.set_version_flag("--version", kProgram);
  program.require_subcommand(1);
  InitOptions init_options;
  SyncOptions sync_options;
  ListOptions list_options;
  VerifyOptions verify_options;
  PruneOptions prune_options;
  FindOptions find_options;
  EntriesOptions entries_options;
  const CLI::App* const init = AddInit(&program, &init_options);
  const CLI::App* const sync = AddSync(&program, &sync_options);
  const CLI::App* const list = AddList(&program, &list_options);
  const CLI::App* const verify = AddVerify(&program, &verify_options);
  const CLI::App* const prune = AddPrune(&program, &prune_options);
  const CLI::App* const find = AddFind(&program, &find_options);
  AddEntries(&program, &entries_options);
  try {
    program.parse(argc, argv);
  } catch (const CLI::ParseError& end) {
    return program.exit(end, std::cout, std::cerr) == 0 ? kAllIsWell : kWrongArguments;
  }
  if (init->parsed()) {
    return Init(init_options);
  }
  if (sync->parsed()) {
    return Sync(sync_options);
  }
  if (list->parsed()) {
    return List(list_options);
  }
  if (verify->parsed()) {
    return Verify(verify_options);
  }
  if (prune->parsed()) {
    return Prune(prune_options);
  }
  return find->parsed() ? Find(find_options) : Entries(entries_options);
}

}  // namespace

int RunCommandLine(int argc, char** argv) {
  OccupyStandardDescriptors();
  const StandardStreams streams;
  int status = kArchiveFailed;
  try {
    status = Run(argc, argv);
  } catch (const std::exception& error) {
    std::cerr << Printable(error.what()) << '\n';
  }
  if (!std::cout.flush()) {
    std::cerr << "can't write standard output\n";
    return kArchiveFailed;
  }
  return status;
}
