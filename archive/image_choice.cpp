#include "archive/image_choice.h"

#include <algorithm>
#include <string_view>
#include <utility>

namespace {

bool IsAmong(const std::vector<std::string>& chosen, std::string_view name) {
  return chosen.empty() || std::find(chosen.begin(), chosen.end(), name) != chosen.end();
}

/// What is kept in memory of an image, of which there can be many.
struct ChosenImage {
  std::int64_t backup_time;
  std::string path;  // below the archive
};

Manifest ManifestOf(const std::string& text, const std::string& path) {
  std::string error;
  std::optional<Manifest> manifest = ReadManifest(text, &error);
  if (!manifest) {
    throw ArchiveError(path + ": " + error);
  }
  return *std::move(manifest);
}

}  // namespace

bool ImageChoice::is_all() const {
  return clients.empty() && policies.empty() && schedules.empty() && !before && !after;
}

bool ImageChoice::Has(const Manifest& manifest) const {
  return IsAmong(clients, manifest.client) && IsAmong(policies, manifest.policy) &&
         IsAmong(schedules, manifest.schedule) && (!before || manifest.backup_time < *before) &&
         (!after || manifest.backup_time > *after);
}

Manifest ManifestIn(const Directory& image) {
  const std::string path = image.PathOf(kManifestFile);
  const std::optional<std::string> text = image.Read(kManifestFile);
  if (!text) {
    throw ArchiveError(path + ": no such file");
  }
  return ManifestOf(*text, path);
}

void ForEachChosen(
    const Store& store, const ImageChoice& choice,
    const std::function<void(const Directory& image, const Manifest& manifest)>& take,
    const Store::Complain& complain) {
  std::vector<ChosenImage> images;
  store.ForEachManifest(
      [&](const std::string& path, const std::string& text) {
        const Manifest manifest = ManifestOf(text, store.root().PathOf(path));
        if (choice.Has(manifest)) {
          images.push_back({manifest.backup_time, path.substr(0, path.rfind('/'))});
        }
      },
      complain);
  std::stable_sort(images.begin(), images.end(), [](const ChosenImage& a, const ChosenImage& b) {
    return a.backup_time > b.backup_time;
  });
  for (const ChosenImage& image : images) {
    try {
      const Directory directory = store.root().OpenBelow(image.path);
      take(directory, ManifestIn(directory));
    } catch (const ArchiveError& error) {
      complain(error);
    }
  }
}
