#include "export/packed_text.h"

#include <lz4.h>

#include <algorithm>
#include <cstring>

namespace {

// Pieces are packed straight into blocks, of which only what is filled is ever touched.
constexpr std::size_t kTextBlockSize = std::size_t{64} * 1024 * 1024;  // bytes

}  // namespace

void PackedText::Append(std::string_view piece) {
  if (piece.empty()) {
    return;
  }
  const auto size = static_cast<int>(piece.size());
  const auto most = static_cast<std::size_t>(LZ4_compressBound(size));
  if (largest_ < piece.size()) {
    unpacked_ = std::make_unique_for_overwrite<char[]>(piece.size() + kRoom);
    largest_ = piece.size();
  }
  if (block_left_ < most) {
    const std::size_t block_size = std::max(kTextBlockSize, most);
    blocks_.push_back(std::make_unique_for_overwrite<char[]>(block_size));
    free_ = blocks_.back().get();
    block_left_ = block_size;
  }
  const int packed = LZ4_compress_default(piece.data(), free_, size, static_cast<int>(most));
  const auto packed_size = static_cast<std::size_t>(packed);
  pieces_.push_back({free_, packed_size, piece.size()});
  free_ += packed_size;
  block_left_ -= packed_size;
}

void PackedText::ForEach(const std::function<void(std::string_view piece)>& use) const {
  for (const Piece& piece : pieces_) {
    LZ4_decompress_safe(piece.packed, unpacked_.get(), static_cast<int>(piece.packed_size),
                        static_cast<int>(piece.size));
    std::memset(unpacked_.get() + piece.size, 0, kRoom);
    use({unpacked_.get(), piece.size});
  }
}
