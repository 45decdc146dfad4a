#ifndef QUILLMERE_TESTS_UNIT_TEMPORARY_DIRECTORY_H_
#define QUILLMERE_TESTS_UNIT_TEMPORARY_DIRECTORY_H_

#include <string>
#include <vector>

/// A new directory that goes with all it holds.
class TemporaryDirectory {
 public:
  TemporaryDirectory();
  ~TemporaryDirectory();
  TemporaryDirectory(const TemporaryDirectory&) = delete;
  TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

  /// Without a '/' at its end.
  [[nodiscard]] const std::string& path() const { return path_; }

  [[nodiscard]] std::string PathOf(const std::string& file_name) const {
    return path_ + "/" + file_name;
  }

  /// The names of what it holds, in byte order.
  [[nodiscard]] std::vector<std::string> FileNames() const;

 private:
  std::string path_;
};

/// All bytes of a file; fails the test when it can't be read.
std::string ReadFile(const std::string& path);

void WriteFile(const std::string& path, const std::string& content);

#endif  // QUILLMERE_TESTS_UNIT_TEMPORARY_DIRECTORY_H_
