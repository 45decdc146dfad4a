#include "archive/commands/sync.h"

#include <iostream>

#include "archive/status.h"

int Sync(const SyncOptions& /*options*/) {
  std::cerr << "sync is not there yet\n";
  return kArchiveFailed;
}
