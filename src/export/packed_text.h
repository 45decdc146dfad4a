#ifndef QUILLMERE_EXPORT_PACKED_TEXT_H_
#define QUILLMERE_EXPORT_PACKED_TEXT_H_

#include <cstddef>
#include <functional>
#include <memory>
#include <string_view>
#include <vector>

/// Pieces of text that are held packed (LZ4) and read in the order in which they came. What reading
/// takes of memory is there since the pieces were added.
class PackedText {
 public:
  /// Readable bytes behind each piece, all zero.
  static constexpr std::size_t kRoom = 64;

  /// Adds a copy of `piece`, at most 1 GiB. Throws std::bad_alloc, and is as it was then.
  void Append(std::string_view piece);

  /// Calls `use` with each piece. The text is valid until `use` returns.
  void ForEach(const std::function<void(std::string_view piece)>& use) const;

 private:
  struct Piece {
    const char* packed;
    std::size_t packed_size;  // bytes
    std::size_t size;         // bytes, unpacked
  };

  std::vector<std::unique_ptr<char[]>> blocks_;
  std::size_t block_left_ = 0;  // bytes, at the end of the last block
  char* free_ = nullptr;        // there
  std::vector<Piece> pieces_;
  std::unique_ptr<char[]> unpacked_;  // room for the largest piece
  std::size_t largest_ = 0;           // bytes
};

#endif  // QUILLMERE_EXPORT_PACKED_TEXT_H_
