#ifndef QUILLMERE_ARCHIVE_RECORD_H_
#define QUILLMERE_ARCHIVE_RECORD_H_

#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

// Small records between processes of one program: numbers as they are in memory, texts behind their
// size.

class RecordWriter {
 public:
  void Put(std::uint64_t number) {
    text_.append(reinterpret_cast<const char*>(&number), sizeof(number));
  }

  void Put(std::string_view text) {
    Put(std::uint64_t{text.size()});
    text_.append(text);
  }

  [[nodiscard]] const std::string& text() const { return text_; }

 private:
  std::string text_;
};

/// Reads what a RecordWriter made. Where the text ends too early, as it does when its writer died,
/// everything is 0 and empty from there on.
class RecordReader {
 public:
  explicit RecordReader(std::string_view text) : rest_(text) {}

  [[nodiscard]] bool is_whole() const { return is_whole_; }

  std::uint64_t Number() {
    std::uint64_t number = 0;
    const std::string_view bytes = Cut(sizeof(number));
    std::memcpy(&number, bytes.data(), bytes.size());
    return number;
  }

  /// A view of the text that is read.
  std::string_view Text() { return Cut(Number()); }

 private:
  std::string_view Cut(std::uint64_t size) {
    if (size > rest_.size()) {
      is_whole_ = false;
      rest_ = {};
      return "";
    }
    const std::string_view text = rest_.substr(0, size);
    rest_.remove_prefix(size);
    return text;
  }

  std::string_view rest_;
  bool is_whole_ = true;
};

#endif  // QUILLMERE_ARCHIVE_RECORD_H_
