#include "faults.h"

#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <charconv>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <thread>

#include "product.h"

namespace {

enum class End { kWhole, kStop, kFail, kKill, kHang };

constexpr std::chrono::seconds kLongestHang(300);

End end_of_output = End::kWhole;  // of this process

/// The next blank-separated word of *line, which it is taken from.
std::string_view NextWord(std::string_view* line) {
  const std::string_view word = line->substr(0, line->find(' '));
  line->remove_prefix(word.size());
  line->remove_prefix(line->empty() ? 0 : 1);
  return word;
}

void WaitFor(std::string_view milliseconds) {
  std::int64_t count = 0;
  std::from_chars(milliseconds.data(), milliseconds.data() + milliseconds.size(), count);
  std::this_thread::sleep_for(std::chrono::milliseconds(count));
}

std::string ForgottenMark(const std::string& image_path) {
  return image_path + ".forgotten";
}

void Forget(const std::string& image_path) {
  close(open(ForgottenMark(image_path).c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0666));
}

void Obey(std::string_view action, std::string_view argument, const std::string& image_path) {
  if (action == "slow") {
    WaitFor(argument);
  } else if (action == "complain") {
    std::fprintf(stderr, "%.*s\n", static_cast<int>(argument.size()), argument.data());
  } else if (action == "forget" && !image_path.empty()) {
    Forget(image_path);
  } else if (action == "stop") {
    end_of_output = End::kStop;
  } else if (action == "fail") {
    end_of_output = End::kFail;
  } else if (action == "kill") {
    end_of_output = End::kKill;
  } else if (action == "hang") {
    end_of_output = End::kHang;
  }
}

/// Calls `use` with each line of a file, if there is one. Without the stream library, which every
/// command would take time to start.
template <class Use>
void ForEachLine(const std::string& path, const Use& use) {
  std::FILE* const file = std::fopen(path.c_str(), "re");
  if (file == nullptr) {
    return;
  }
  char* line = nullptr;
  std::size_t room = 0;
  ssize_t size = 0;
  while ((size = getline(&line, &room, file)) > 0) {
    const auto length = static_cast<std::size_t>(size);
    use(std::string_view(line, line[length - 1] == '\n' ? length - 1 : length));
  }
  std::free(line);
  std::fclose(file);
}

/// Whether the image has this catalogue file, ".../images/CLIENT/BUCKET/FILE". FILE is the last
/// word that "qvroll -id" prints.
bool IsCatalogueFileOf(const std::string& root, std::string_view backup_id, std::string_view file) {
  const std::string path = ImagePath(root, backup_id);
  std::string name;
  ForEachLine(path + ".id",
              [&](std::string_view line) { name = line.substr(line.rfind(' ') + 1); });
  return !name.empty() && path.substr(0, path.rfind('/') + 1) + name == file;
}

/// Obeys the lines about `command` and any image, or one that `fits`.
template <class Fits>
void ObeyLines(const std::string& root, std::string_view command, std::string_view backup_id,
               const Fits& fits) {
  ForEachLine(root + "/faults", [&](std::string_view line) {
    const std::string_view of_command = NextWord(&line);
    const std::string_view of_image = NextWord(&line);
    const std::string_view action = NextWord(&line);
    if ((of_command == "*" || of_command == command) && (of_image == "*" || fits(of_image))) {
      Obey(action, line, ImagePath(root, of_image == "*" ? backup_id : of_image));
    }
  });
}

}  // namespace

void BeginFaults(const std::string& root, std::string_view command, std::string_view backup_id) {
  ObeyLines(root, command, backup_id, [&](std::string_view image) { return image == backup_id; });
}

void BeginFaultsOfFile(const std::string& root, std::string_view catalogue_file) {
  ObeyLines(root, "rec_unfold", "",
            [&](std::string_view image) { return IsCatalogueFileOf(root, image, catalogue_file); });
}

bool IsOutputCut() {
  return end_of_output != End::kWhole;
}

std::string_view PartToPrint(std::string_view output) {
  if (!IsOutputCut()) {
    return output;
  }
  const std::size_t newline = output.find('\n', output.size() / 2);
  return output.substr(0, newline == std::string_view::npos ? output.size() / 2 : newline + 1);
}

void EndFaults() {
  switch (end_of_output) {
    case End::kWhole:
      return;
    case End::kStop:
      _exit(0);
    case End::kFail:
      _exit(1);
    case End::kKill:
      raise(SIGKILL);
      break;
    case End::kHang:
      // Whoever wants to be rid of it has to mean it.
      signal(SIGTERM, SIG_IGN);
      signal(SIGINT, SIG_IGN);
      signal(SIGHUP, SIG_IGN);
      std::this_thread::sleep_for(kLongestHang);
      _exit(1);
  }
}

bool IsForgotten(const std::string& root, const std::string& image_path) {
  return access((root + "/faults").c_str(), F_OK) == 0 &&
         access(ForgottenMark(image_path).c_str(), F_OK) == 0;
}
