#ifndef QUILLMERE_TESTS_ARCHIVE_UNIT_TERMINAL_H_
#define QUILLMERE_TESTS_ARCHIVE_UNIT_TERMINAL_H_

#include <functional>
#include <string>
#include <vector>

/// A terminal that doesn't show what is typed, and shows everything else as it is.
class Terminal {
 public:
  /// `typed` is typed on it.
  explicit Terminal(const std::string& typed = "");
  ~Terminal();
  Terminal(const Terminal&) = delete;
  Terminal& operator=(const Terminal&) = delete;

  /// Calls `call` with the terminal in place of these descriptors, once. Returns what it showed.
  std::string With(const std::vector<int>& descriptors, const std::function<void()>& call) const;

 private:
  int outer_;  // end of it
  int inner_;
};

#endif  // QUILLMERE_TESTS_ARCHIVE_UNIT_TERMINAL_H_
