// fgets_copy COMMAND: copies what a shell command prints, line by line, as a first version of
// list_backups would: buffers and pipes as the system gives them.

#include <stdio.h>

#include <array>
#include <cstddef>

int main(int argc, char** argv) {
  static std::array<char, std::size_t{4} * 1024 * 1024> line;
  FILE* const command = argc == 2 ? popen(argv[1], "r") : nullptr;
  if (command == nullptr) {
    return 1;
  }
  while (fgets(line.data(), static_cast<int>(line.size()), command) != nullptr) {
    fputs(line.data(), stdout);
  }
  pclose(command);
  return 0;
}
