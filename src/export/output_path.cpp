#include "export/output_path.h"

std::string OutputPath(const std::string& directory, const std::string& file_name) {
  return directory + (directory.ends_with('/') ? "" : "/") + file_name;
}
