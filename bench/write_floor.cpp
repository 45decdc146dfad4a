// write_floor PIECE DOCUMENT FILE: writes as many bytes as DOCUMENT has to FILE, from memory, in
// pieces of PIECE bytes: what no program can do without that makes the bytes of a file itself.

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <vector>

int main(int argc, char** argv) {
  struct stat document = {};
  if (argc != 4 || stat(argv[2], &document) != 0) {
    return 1;
  }
  const int file = open(argv[3], O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
  const std::vector<char> piece(std::strtoul(argv[1], nullptr, 10), 'x');
  for (auto left = static_cast<std::size_t>(document.st_size); left > 0;) {
    const ssize_t size = write(file, piece.data(), std::min(piece.size(), left));
    if (size <= 0) {
      return 1;
    }
    left -= static_cast<std::size_t>(size);
  }
  return close(file) == 0 ? 0 : 1;
}
