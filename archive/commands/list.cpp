#include "archive/commands/list.h"

#include <iostream>

#include "archive/status.h"

int List(const ListOptions& /*options*/) {
  std::cerr << "list is not there yet\n";
  return kArchiveFailed;
}
