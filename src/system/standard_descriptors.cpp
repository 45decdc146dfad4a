#include "system/standard_descriptors.h"

#include <fcntl.h>
#include <unistd.h>

void OccupyStandardDescriptors() {
  for (int descriptor = STDIN_FILENO; descriptor <= STDERR_FILENO; ++descriptor) {
    if (fcntl(descriptor, F_GETFD) == -1) {
      // Takes the lowest free number, which is this one. A path-only descriptor needs no
      // permission and no device, and refuses every read and write.
      open("/", O_PATH);
    }
  }
}
