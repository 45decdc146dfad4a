#include "temporary_directory.h"

#include <stdlib.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>

#include <gtest/gtest.h>

TemporaryDirectory::TemporaryDirectory() : path_(testing::TempDir() + "quillmere_unit_XXXXXX") {
  if (mkdtemp(path_.data()) == nullptr) {
    ADD_FAILURE() << "no directory can be made from " << path_;
  }
}

TemporaryDirectory::~TemporaryDirectory() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

std::vector<std::string> TemporaryDirectory::FileNames() const {
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(path_)) {
    names.push_back(entry.path().filename().string());
  }
  std::sort(names.begin(), names.end());
  return names;
}

std::string ReadFile(const std::string& path) {
  const std::ifstream file(path, std::ios::binary);
  EXPECT_TRUE(file.good()) << path << " can't be read";
  std::ostringstream content;
  content << file.rdbuf();
  return content.str();
}

void WriteFile(const std::string& path, const std::string& content) {
  std::ofstream file(path, std::ios::binary);
  file << content << std::flush;
  EXPECT_TRUE(file.good()) << path << " can't be written";
}
