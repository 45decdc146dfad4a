#include "fed_command.h"

#include <stdio.h>

#include <algorithm>
#include <array>
#include <cstring>

#if __has_include(<sanitizer/asan_interface.h>)
#include <sanitizer/asan_interface.h>
#else
#define ASAN_POISON_MEMORY_REGION(address, size) ((void)(address), (void)(size))
#define ASAN_UNPOISON_MEMORY_REGION(address, size) ((void)(address), (void)(size))
#endif

#include "layout/layout.h"
#include "outcome.h"

namespace {

FedCommand* running = nullptr;

/// What the product gets for a pipe: a stream of which nothing is read.
std::FILE* PipeOfTheCommand() {
  static std::FILE* const stream = fopen("/dev/null", "r");
  return stream;
}

// Where line_buf is marked, to see whether it was cleared.
constexpr std::array<std::size_t, 3> kMarks = {0, kLineBufSize / 2, kLineBufSize - 1};

/// Text that is left behind a line.
constexpr auto kStale = [] {
  constexpr std::string_view kText = "_1 12 345 7K stale_2  99 8M old rows\n\t \" ";
  std::array<char, 512> stale{};
  for (std::size_t i = 0; i < stale.size(); ++i) {
    stale[i] = kText[i % kText.size()];
  }
  return stale;
}();

}  // namespace

// The linker gives the product's calls of these functions to __wrap_NAME, and makes the C library's
// own available as __real_NAME.
// NOLINTBEGIN(bugprone-reserved-identifier)
extern "C" {
char* __real_fgets(char* buffer, int size, std::FILE* stream);
int __real_fclose(std::FILE* stream);

std::FILE* __wrap_popen(const char* command, const char* mode) {
  Expect(running != nullptr, "a command is started only where one is expected");
  return running->Popen(command, mode);
}

char* __wrap_fgets(char* buffer, int size, std::FILE* stream) {
  return running != nullptr && running->IsOpen(stream) ? running->Fgets(buffer, size)
                                                       : __real_fgets(buffer, size, stream);
}

int __wrap_pclose(std::FILE* stream) {
  Expect(running != nullptr && running->IsOpen(stream), "pclose is called for an open command");
  return running->Close("pclose\n");
}

int __wrap_fclose(std::FILE* stream) {
  return running != nullptr && running->IsOpen(stream) ? running->Close("fclose\n")
                                                       : __real_fclose(stream);
}
}
// NOLINTEND(bugprone-reserved-identifier)

FedCommand::FedCommand(std::string_view output, std::size_t read_size)
    : left_(output), read_size_(read_size) {
  for (const std::size_t mark : kMarks) {
    line_buf[mark] = '!';
  }
  running = this;
}

FedCommand::~FedCommand() {
  running = nullptr;
  ShowRest();
}

std::FILE* FedCommand::Popen(const char* command, const char* mode) {
  Expect(!is_open_, "one command is run at a time");
  Expect(std::strcmp(mode, "r") == 0, "a command is started to be read");
  steps_ += std::string("popen ") + command + "\n";
  is_open_ = true;
  return PipeOfTheCommand();
}

char* FedCommand::Fgets(const char* buffer, int size) {
  Expect(buffer == line_buf && static_cast<std::size_t>(size) == kLineBufSize,
         "a line is read into all of line_buf");
  if (!was_read_ && std::all_of(kMarks.begin(), kMarks.end(),
                                [](std::size_t mark) { return line_buf[mark] == '\0'; })) {
    steps_ += "read into zeros\n";
  }
  was_read_ = true;
  ShowRest();
  if (left_.empty()) {
    return nullptr;
  }
  const std::size_t count = std::min({left_.find('\n'), left_.size() - 1, read_size_ - 2}) + 1;
  std::memcpy(line_buf, left_.data(), count);
  line_buf[count] = '\0';
  left_.remove_prefix(count);
  HideRest();
  return line_buf;
}

int FedCommand::Close(std::string_view step) {
  steps_ += step;
  is_open_ = false;
  return 0;
}

bool FedCommand::IsOpen(const std::FILE* stream) const {
  return is_open_ && stream == PipeOfTheCommand();
}

/// Makes what is behind the line stale and unreadable.
void FedCommand::HideRest() {
  const std::span<char> rest = std::span(line_buf).subspan(std::strlen(line_buf) + 1);
  hidden_ = rest.first(std::min(rest.size(), kStale.size()));
  std::copy_n(kStale.begin(), hidden_.size(), hidden_.begin());
  ASAN_POISON_MEMORY_REGION(hidden_.data(), hidden_.size());
}

void FedCommand::ShowRest() {
  ASAN_UNPOISON_MEMORY_REGION(hidden_.data(), hidden_.size());
}
