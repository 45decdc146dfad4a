#include "archive/progress.h"

#include <iostream>

#include "archive/units.h"

namespace {

constexpr std::string_view kClearLine = "\r\033[K";

/// "1 h 20 min", "3 min" or "40 s".
std::string TimeForPeople(std::uint64_t seconds) {
  if (seconds < 60) {
    return std::to_string(seconds) + " s";
  }
  const std::uint64_t minutes = (seconds + 30) / 60;
  const std::string rest = std::to_string(minutes % 60) + " min";
  return minutes < 60 ? rest : std::to_string(minutes / 60) + " h " + rest;
}

}  // namespace

void Progress::Begin(std::size_t images, std::uint64_t files) {
  images_ = images;
  files_ = files;
  start_ = Clock::now();
}

void Progress::Exported(std::string_view backup_id, std::uint64_t files, std::uint64_t entries,
                        std::uint64_t bytes) {
  ++images_done_;
  files_done_ += files;
  entries_ += entries;
  bytes_ += bytes;
  if (!is_on_terminal_) {
    Say(backup_id, std::to_string(entries) + " entries, " + std::to_string(bytes) + " bytes");
  }
}

void Progress::Failed(std::string_view backup_id, std::uint64_t files, std::string_view reason) {
  ++images_done_;
  files_done_ += files;
  Complain(backup_id, "failed: " + std::string(reason));
}

void Progress::Say(std::string_view backup_id, std::string_view text) {
  if (!is_quiet_) {
    Clear();
    std::cout << Printable(backup_id) << ": " << text << '\n' << std::flush;
  }
}

void Progress::Complain(std::string_view backup_id, std::string_view text) {
  Clear();
  std::cerr << Printable(backup_id) + ": " + Printable(text) + '\n';
}

void Progress::Complain(std::string_view text) {
  Clear();
  std::cerr << Printable(text) + '\n';
}

void Progress::Clear() {
  if (is_drawn_) {
    std::cout << kClearLine << std::flush;
    is_drawn_ = false;
  }
}

std::string Progress::Line() const {
  const std::chrono::duration<double> elapsed = Clock::now() - start_;
  std::string line =
      std::to_string(images_done_) + " of " + std::to_string(images_) + " images, " +
      std::to_string(static_cast<std::uint64_t>(static_cast<double>(entries_) / elapsed.count())) +
      " entries/s, " + BytesForPeople(bytes_);
  if (files_done_ > 0) {
    const double share =
        static_cast<double>(files_ - files_done_) / static_cast<double>(files_done_);
    line += ", " + TimeForPeople(static_cast<std::uint64_t>(elapsed.count() * share)) + " left";
  }
  return line;
}

void Progress::Tick() {
  const Clock::time_point now = Clock::now();
  if (is_quiet_ || !is_on_terminal_ || now - drawn_at_ < std::chrono::seconds(1)) {
    return;
  }
  std::cout << kClearLine << Line() << std::flush;
  is_drawn_ = true;
  drawn_at_ = now;
}

void Progress::Finish(const SyncCounts& counts) {
  if (!is_quiet_) {
    Clear();
    std::cout << counts.exported << " exported, " << counts.failed << " failed, " << counts.expired
              << " expired, " << counts.warnings << " warnings; sets: " << counts.sets_written
              << " written, " << counts.sets_removed << " removed, " << counts.sets_waiting
              << " waiting for images\n";
  }
}

void Progress::FinishDryRun(std::size_t images) {
  if (!is_quiet_) {
    std::cout << images << " to export\n";
  }
}
