#include "main/usage.h"

#include <iostream>

#include "layout/layout.h"

void PrintUsage(const char* program) {
  std::cout
      << "Usage:\n"
      << program << " --action " << ACTION_DUMP_BACKUP_SET_LIST
      << " [--policy <policy>] [--client <client>] [--count <count>] [--output_dir <output_dir>]\n"
      // No blank behind this action name: consumers compare the text as a whole.
      // Pinned by Usage.WholeText.
      << program << " --action " << ACTION_DUMP_BACKUP_SET
      << "[--policy <policy>] [--client <client>] --time <time> --output_dir <output_dir>\n"
      << program << " --action " << ACTION_LIST_BACKUPS
      << " [--policy <policy>] [--client <client>] [--schedule <schedule>]\n"
      << program << " --action " << ACTION_DUMP_BACKUP
      << " --backup_id <backup_id> [--output_dir <output_dir>]\n";
}
