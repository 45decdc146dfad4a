#ifndef QUILLMERE_ARCHIVE_PROGRESS_H_
#define QUILLMERE_ARCHIVE_PROGRESS_H_

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

/// What a sync has done so far.
struct SyncCounts {
  std::size_t exported = 0;  ///< images
  std::size_t failed = 0;
  std::size_t expired = 0;
  std::size_t warnings = 0;
  std::size_t sets_written = 0;
  std::size_t sets_removed = 0;
  std::size_t sets_waiting = 0;  ///< for images
  std::uint64_t stored_bytes = 0;
};

/// What a person sees of a sync: on a terminal a line that is redrawn in place, elsewhere a line
/// for each image. Quiet, only what goes to standard error.
class Progress {
 public:
  Progress(bool is_quiet, bool is_on_terminal)
      : is_quiet_(is_quiet), is_on_terminal_(is_on_terminal) {}

  /// So many images with so many files altogether are to come.
  void Begin(std::size_t images, std::uint64_t files);

  /// One of them, which was listed with `files`, was exported or failed.
  void Exported(std::string_view backup_id, std::uint64_t files, std::uint64_t entries,
                std::uint64_t bytes);
  void Failed(std::string_view backup_id, std::uint64_t files, std::string_view reason);

  /// A line about an image, on standard output: "ID: TEXT".
  void Say(std::string_view backup_id, std::string_view text);
  /// The same on standard error.
  void Complain(std::string_view backup_id, std::string_view text);
  /// A line on standard error.
  void Complain(std::string_view text);

  /// Redraws the line, at most once a second.
  void Tick();

  /// The last lines.
  void Finish(const SyncCounts& counts);
  void FinishDryRun(std::size_t images);

 private:
  void Clear();
  [[nodiscard]] std::string Line() const;

  using Clock = std::chrono::steady_clock;

  bool is_quiet_;
  bool is_on_terminal_;
  bool is_drawn_ = false;
  Clock::time_point start_ = Clock::now();
  Clock::time_point drawn_at_;
  std::size_t images_ = 0;
  std::size_t images_done_ = 0;
  std::uint64_t files_ = 0;
  std::uint64_t files_done_ = 0;
  std::uint64_t entries_ = 0;
  std::uint64_t bytes_ = 0;
};

#endif  // QUILLMERE_ARCHIVE_PROGRESS_H_
