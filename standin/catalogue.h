#ifndef QUILLMERE_STANDIN_CATALOGUE_H_
#define QUILLMERE_STANDIN_CATALOGUE_H_

#include <array>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>

// What every generated catalogue is made of: names, numbers from a seed, rows and images.

/// SplitMix64: small, and the same everywhere, which the library's distributions are not.
class Random {
 public:
  explicit Random(std::uint64_t seed) : state_(seed) {}

  /// A number from 0 to `bound` - 1.
  std::int64_t Below(std::int64_t bound);

  template <class Array>
  std::string_view OneOf(const Array& choices) {
    return choices[static_cast<std::size_t>(Below(static_cast<std::int64_t>(choices.size())))];
  }

 private:
  std::uint64_t state_;
};

/// The names of clients, policies and schedules. Each function gives another name for each index.
class Names {
 public:
  /// With `odd`, names that a listing can carry and that a careless reader stumbles over.
  explicit Names(bool odd) : odd_(odd) {}

  [[nodiscard]] std::string Client(std::int64_t index) const;
  [[nodiscard]] std::string Policy(std::int64_t index) const;
  [[nodiscard]] std::string Schedule(std::int64_t index) const;

 private:
  bool odd_;
};

/// What one image is, as far as the listing tells.
struct Image {
  std::string client;
  std::string policy;
  std::string schedule;
  std::int64_t time = 0;   // seconds
  std::int64_t files = 0;  // 0 for a parent image
  std::string size;

  [[nodiscard]] std::string Id() const { return client + "_" + std::to_string(time); }
  [[nodiscard]] std::string CatalogueFile() const;
};

extern const std::string_view kListingHeader;
std::string ListingRow(const Image& image, std::int64_t number);
std::string RandomSize(Random* random);

/// Text that goes to a file in large pieces. Ends the program when the file can't be written.
class Writer {
 public:
  explicit Writer(const std::filesystem::path& path);
  Writer(const Writer&) = delete;
  Writer& operator=(const Writer&) = delete;
  ~Writer();

  Writer& operator<<(std::string_view text);
  Writer& operator<<(std::int64_t number);

 private:
  static constexpr std::size_t kPiece = std::size_t{1} << 20;  // bytes

  std::filesystem::path path_;
  std::ofstream file_;
  std::string buffer_;
};

/// Writes what the catalogue below `root` holds of `image` beside its row.
void WriteImage(const std::filesystem::path& root, const Image& image, bool header, Random* random);

#endif  // QUILLMERE_STANDIN_CATALOGUE_H_
