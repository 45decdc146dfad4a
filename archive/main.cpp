#include <cstddef>
#include <iostream>
#include <optional>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include "archive/commands/init.h"
#include "archive/commands/list.h"
#include "archive/commands/sync.h"
#include "archive/commands/verify.h"
#include "archive/directory.h"
#include "archive/manifest.h"
#include "archive/status.h"
#include "archive/units.h"
#include "system/standard_descriptors.h"
#include "system/standard_streams.h"

namespace {

constexpr std::size_t kMostJobs = 256;

/// What every command takes first.
void AddArchive(CLI::App* command, std::string* archive) {
  command->add_option("ARCHIVE", *archive, "Directory of the archive")->type_name("")->required();
}

void AddJobs(CLI::App* command, std::size_t* jobs, const std::string& what) {
  command->add_option("--jobs", *jobs, what + " at a time")
      ->type_name("N")
      ->check(CLI::Range(std::size_t{1}, kMostJobs).description(""))
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
      ->check(CLI::Range(1, 19).description(""));
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
  const CLI::App* const init = AddInit(&program, &init_options);
  const CLI::App* const sync = AddSync(&program, &sync_options);
  const CLI::App* const list = AddList(&program, &list_options);
  AddVerify(&program, &verify_options);
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
  return list->parsed() ? List(list_options) : Verify(verify_options);
}

}  // namespace

int main(int argc, char** argv) {
  OccupyStandardDescriptors();
  const StandardStreams streams;
  int status = kArchiveFailed;
  try {
    status = Run(argc, argv);
  } catch (const ArchiveError& error) {
    std::cerr << Printable(error.what()) << '\n';
  }
  if (!std::cout.flush()) {
    std::cerr << "can't write standard output\n";
    return kArchiveFailed;
  }
  return status;
}
