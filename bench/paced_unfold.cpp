// rec_unfold -dump FILE: prints the file entries of the stand-in like its own command, but works
// for them: a microsecond of processor time for each line, before it is printed.

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstddef>

namespace {

void WorkFor(std::chrono::microseconds duration) {
  const auto end = std::chrono::steady_clock::now() + duration;
  while (std::chrono::steady_clock::now() < end) {
  }
}

bool WriteAll(const char* text, ssize_t size) {
  while (size > 0) {
    const ssize_t written = write(STDOUT_FILENO, text, static_cast<std::size_t>(size));
    if (written < 0) {
      return false;
    }
    text += written;
    size -= written;
  }
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  static std::array<char, std::size_t{64} * 1024> text;
  const int file = argc == 3 ? open(argv[2], O_RDONLY | O_CLOEXEC) : -1;
  ssize_t size = 0;
  while ((size = read(file, text.data(), text.size())) > 0) {
    WorkFor(std::chrono::microseconds(std::count(text.data(), text.data() + size, '\n')));
    if (!WriteAll(text.data(), size)) {
      return 1;
    }
  }
  return size == 0 ? 0 : 1;
}
