#include "archive/commands/init.h"

#include <iostream>

#include "archive/status.h"

int Init(const InitOptions& /*options*/) {
  std::cerr << "init is not there yet\n";
  return kArchiveFailed;
}
