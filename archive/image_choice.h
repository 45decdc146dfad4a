#ifndef QUILLMERE_ARCHIVE_IMAGE_CHOICE_H_
#define QUILLMERE_ARCHIVE_IMAGE_CHOICE_H_

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "archive/directory.h"
#include "archive/manifest.h"
#include "archive/store.h"

/// Which images of an archive are asked about.
struct ImageChoice {
  // Of an empty list, all are chosen.
  std::vector<std::string> clients;
  std::vector<std::string> policies;
  std::vector<std::string> schedules;
  std::optional<std::int64_t> before;  ///< seconds: older images only
  std::optional<std::int64_t> after;   ///< seconds: newer images only

  /// True when no image is left out.
  [[nodiscard]] bool is_all() const;
  [[nodiscard]] bool Has(const Manifest& manifest) const;
};

/// Calls `take` with each chosen image and its directory, the newest first, and `complain` with
/// what can't be read. An ArchiveError that `take` throws is complained about as well.
void ForEachChosen(
    const Store& store, const ImageChoice& choice,
    const std::function<void(const Directory& image, const Manifest& manifest)>& take,
    const Store::Complain& complain);

/// Reads the manifest in an image's directory. Throws an ArchiveError.
Manifest ManifestIn(const Directory& image);

#endif  // QUILLMERE_ARCHIVE_IMAGE_CHOICE_H_
