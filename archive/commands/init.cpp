#include "archive/commands/init.h"

#include <limits.h>
#include <unistd.h>

#include <array>
#include <ctime>

#include "archive/status.h"
#include "archive/store.h"

namespace {

std::string HostName() {
  std::array<char, HOST_NAME_MAX + 1> name{};
  gethostname(name.data(), name.size() - 1);
  return name.data();
}

}  // namespace

int Init(const InitOptions& options) {
  Store::Create(options.archive,
                {.program = kProgram,
                 .server = options.server.empty() ? HostName() : options.server,
                 .created = std::time(nullptr),
                 .compression_level = static_cast<std::uint64_t>(options.compression_level)});
  return kAllIsWell;
}
