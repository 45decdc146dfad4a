#include "scratch_directory.h"

#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <system_error>

#include "outcome.h"

namespace {

class ScratchDirectory {
 public:
  ScratchDirectory() : path_(std::filesystem::temp_directory_path() / "quillmere_fuzz.XXXXXX") {
    Expect(mkdtemp(path_.data()) != nullptr, "there is room for temporary files");
  }
  ~ScratchDirectory() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  ScratchDirectory(const ScratchDirectory&) = delete;
  ScratchDirectory& operator=(const ScratchDirectory&) = delete;

  [[nodiscard]] const std::string& path() const { return path_; }

 private:
  std::string path_;
};

}  // namespace

std::string ScratchPath(const std::string& name) {
  static const ScratchDirectory directory;
  return directory.path() + "/" + name;
}

void WriteContent(const std::string& path, const std::string& content) {
  std::ofstream file(path, std::ios::binary);
  file << content << std::flush;
  Expect(file.good(), "a temporary file can be written");
}

std::string ContentOf(const std::string& path) {
  const std::ifstream file(path, std::ios::binary);
  if (!file) {
    return "no file";
  }
  std::ostringstream content;
  content << file.rdbuf();
  return content.str();
}
