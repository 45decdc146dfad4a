#include "product.h"

#include <fcntl.h>
#include <limits.h>
#include <unistd.h>

#include <array>
#include <cstddef>
#include <cstdio>

#include "faults.h"

namespace {

constexpr int kPipeSize = 1 << 20;  // bytes
constexpr std::size_t kBucketDigits = 4;

bool WriteAll(const char* text, std::size_t size) {
  while (size > 0) {
    const ssize_t written = write(STDOUT_FILENO, text, size);
    if (written < 0) {
      return false;
    }
    text += written;
    size -= static_cast<std::size_t>(written);
  }
  return true;
}

}  // namespace

std::string ProductRoot(std::string_view command_below_root) {
  std::array<char, PATH_MAX> path{};
  const ssize_t size = readlink("/proc/self/exe", path.data(), path.size());
  const std::string_view command(path.data(), size < 0 ? 0 : static_cast<std::size_t>(size));
  if (!command.ends_with(command_below_root)) {
    return "";
  }
  return std::string(command.substr(0, command.size() - command_below_root.size()));
}

std::string ImagePath(const std::string& root, std::string_view backup_id) {
  const std::size_t underscore = backup_id.find('_');
  if (underscore == std::string_view::npos || backup_id.size() - underscore <= kBucketDigits) {
    return "";
  }
  const std::string client(backup_id.substr(0, underscore));
  const std::string time(backup_id.substr(underscore + 1));
  return root + "/db/images/" + client + "/" + time.substr(0, kBucketDigits) + "000000/" + time;
}

bool PrintFile(const std::string& path) {
  const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (file < 0) {
    return false;
  }
  fcntl(STDOUT_FILENO, F_SETPIPE_SZ, kPipeSize);  // fails, harmlessly, when it is no pipe
  static std::array<char, std::size_t{256} * 1024> buffer;
  std::string kept;
  ssize_t size = 0;
  while ((size = read(file, buffer.data(), buffer.size())) > 0) {
    if (IsOutputCut()) {
      kept.append(buffer.data(), static_cast<std::size_t>(size));
    } else if (!WriteAll(buffer.data(), static_cast<std::size_t>(size))) {
      close(file);
      return false;
    }
  }
  close(file);
  return size == 0 && PrintText(kept);
}

bool PrintText(std::string_view text) {
  const std::string_view part = PartToPrint(text);
  const bool is_written = WriteAll(part.data(), part.size());
  EndFaults();
  return is_written;
}

int Fail(std::string_view command, std::string_view message) {
  std::fprintf(stderr, "%.*s: %.*s\n", static_cast<int>(command.size()), command.data(),
               static_cast<int>(message.size()), message.data());
  return 1;
}
