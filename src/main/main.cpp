#include <exception>
#include <iostream>
#include <optional>

#include "catalog/list_backups.h"
#include "export/dump_backup.h"
#include "export/dump_backup_set.h"
#include "export/dump_backup_set_list.h"
#include "layout/layout.h"
#include "main/command_line.h"
#include "main/usage.h"
#include "system/standard_descriptors.h"
#include "system/standard_streams.h"

namespace {

std::terminate_handler runtime_terminate = nullptr;

/// An uncaught exception ends the process without flushing its streams. The traces in them are
/// what tells how far the run came.
void FlushAndTerminate() {
  std::cout.flush();
  runtime_terminate();
}

int MissingParameter(const char* usage) {
  std::cerr << "missing \" " << usage << " \" parameter.\n";
  return 1;
}

/// Runs the one action that was chosen and returns its status; the usage text and 1 without one.
int RunAction(const Options& options) {
  if (options.action == ACTION_DUMP_BACKUP_SET_LIST) {
    return dump_backup_set_list(options.policy, options.client, options.count, options.output_dir);
  }
  if (options.action == ACTION_DUMP_BACKUP_SET) {
    if (options.time == 0) {
      return MissingParameter("--time <time>");
    }
    if (options.output_dir.empty()) {
      return MissingParameter("--output_dir <output_dir>");
    }
    return dump_backup_set(options.policy, options.client, options.time, options.output_dir);
  }
  if (options.action == ACTION_LIST_BACKUPS) {
    return list_backups(options.policy, options.client, options.schedule);
  }
  if (options.action == ACTION_DUMP_BACKUP) {
    if (options.backup_id.empty()) {
      return MissingParameter("--backup_id <backup_id>");
    }
    return dump_backup(options.backup_id, options.output_dir);
  }
  PrintUsage(prog);
  return 1;
}

}  // namespace

int main(int argc, char** argv) {
  OccupyStandardDescriptors();
  const StandardStreams streams;
  runtime_terminate = std::set_terminate(FlushAndTerminate);
  Options options;
  const std::optional<int> status = ParseCommandLine(argc, argv, &options);
  return status ? *status : RunAction(options);
}
