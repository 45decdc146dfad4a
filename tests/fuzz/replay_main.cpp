// Runs one target over files, in place of a fuzzer. Arguments: files, and directories whose files
// are taken in the order of their names. A directory that is not there holds none, but no file at
// all is a failure. The last name printed is that of the input that ended the run.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <memory>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

namespace fs = std::filesystem;

std::vector<fs::path> FilesIn(const fs::path& argument) {
  std::vector<fs::path> files;
  if (fs::is_regular_file(argument)) {
    files.push_back(argument);
  } else if (fs::is_directory(argument)) {
    std::copy(fs::directory_iterator(argument), fs::directory_iterator(),
              std::back_inserter(files));
    std::sort(files.begin(), files.end());
  }
  return files;
}

void Replay(const fs::path& path) {
  std::cout << path.string() << std::endl;
  std::ifstream file(path, std::ios::binary);
  const std::vector<char> content((std::istreambuf_iterator<char>(file)),
                                  std::istreambuf_iterator<char>());
  // Memory of its own size, so that a sanitizer sees what is read behind it.
  const auto data = std::make_unique<std::uint8_t[]>(content.size());
  std::copy(content.begin(), content.end(), data.get());
  LLVMFuzzerTestOneInput(data.get(), content.size());
}

}  // namespace

int main(int argc, char** argv) {
  std::size_t count = 0;
  for (int i = 1; i < argc; ++i) {
    for (const fs::path& path : FilesIn(argv[i])) {
      Replay(path);
      ++count;
    }
  }
  std::cout << count << " inputs replayed" << std::endl;
  return count == 0 ? EXIT_FAILURE : EXIT_SUCCESS;
}
