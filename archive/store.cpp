#include "archive/store.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <span>
#include <utility>
#include <vector>

#include "archive/names.h"
#include "archive/sha256.h"

namespace {

const std::string kStagedImage = "image";
constexpr std::size_t kBatch = 256;  // files that are open at a time

bool IsEmpty(const Directory& directory) {
  for (const Directory::Entry& entry : directory.List()) {
    // The first is the file system's own, the second what an interrupted run of this leaves.
    if (entry.name != "lost+found" && entry.name != kStagingDirectory) {
      return false;
    }
  }
  return true;
}

std::string StagedFile(std::size_t number) {
  return "file-" + std::to_string(number);
}

/// Replaces files in `to`, each in one step. Their new names are not durable yet.
void PutBatch(const Directory& staging, const Directory& to,
              std::span<const Store::NewFile> files) {
  std::vector<Descriptor> staged;
  for (const Store::NewFile& file : files) {
    const std::string name = StagedFile(staged.size());
    staging.Remove(name);
    if (!WriteAll(staged.emplace_back(staging.MakeFile(name)).get(), file.text)) {
      throw SystemError("write", staging.PathOf(name));
    }
  }
  if (files.size() > 1) {
    // For most file systems that is one step, as many as the files are. Whether each of them is
    // safe is what it is asked itself.
    syncfs(staging.descriptor());
  }
  for (std::size_t i = 0; i < files.size(); ++i) {
    if (fsync(staged[i].get()) != 0) {
      throw SystemError("write", staging.PathOf(StagedFile(i)));
    }
    staging.Move(StagedFile(i), to, files[i].name);
  }
}

ArchiveInfo InfoIn(const Directory& root) {
  const std::string path = root.PathOf(kArchiveFile);
  const std::optional<std::string> text = root.Read(kArchiveFile);
  if (!text) {
    throw ArchiveError(path + ": no such file; quillmere-archive init makes an archive");
  }
  std::string error;
  std::optional<ArchiveInfo> info = ReadArchiveInfo(*text, &error);
  if (!info) {
    throw ArchiveError(path + ": " + error);
  }
  return *std::move(info);
}

/// Calls `visit` with what `directory` holds of `kind`. What throws an ArchiveError in it is left
/// out.
void ForEach(const Directory& directory, Directory::Kind kind, const Store::Complain& complain,
             const std::function<void(const std::string& name)>& visit) {
  for (const Directory::Entry& entry : directory.List()) {
    if (entry.kind != kind) {
      continue;
    }
    try {
      visit(entry.name);
    } catch (const ArchiveError& error) {
      complain(error);
    }
  }
}

/// The same for each directory that is `depth` levels below, with what it is called from `path` on.
void ForEachBelow(const Directory& directory, const std::string& path, int depth,
                  const Store::Complain& complain,
                  const std::function<void(const Directory&, const std::string& path)>& visit) {
  if (depth == 0) {
    visit(directory, path);
    return;
  }
  ForEach(directory, Directory::Kind::kDirectory, complain, [&](const std::string& name) {
    ForEachBelow(directory.Open(name), path + '/' + name, depth - 1, complain, visit);
  });
}

void AddImageNames(const Directory& client, const std::string& client_name,
                   std::unordered_set<std::string>* names) {
  for (const Directory::Entry& image : client.List()) {
    if (image.kind == Directory::Kind::kDirectory) {
      names->insert(client_name + '/' + image.name);
    }
  }
}

}  // namespace

std::string SumsOf(const DocumentFacts& document, std::string_view manifest_text) {
  return document.stored_sha256 + "  " + document.file + '\n' + Sha256Of(manifest_text) + "  " +
         kManifestFile + '\n';
}

void Store::Create(const std::string& path, const ArchiveInfo& info) {
  if (mkdir(path.c_str(), 0700) != 0 && errno != EEXIST) {
    throw SystemError("make", path);
  }
  const Directory archive(path);
  if (!IsEmpty(archive)) {
    throw ArchiveError(path + " is not empty");
  }
  const NewFile file{kArchiveFile, TextOf(info)};
  PutBatch(archive.OpenOrMake(kStagingDirectory), archive, {&file, 1});
  archive.Sync();
}

Store::Store(const std::string& path) : root_(path), info_(InfoIn(root_)) {
}

bool Store::Lock() {
  const int file = openat(root_.descriptor(), kLockFile.c_str(),
                          O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0600);
  lock_ = Descriptor(file);
  // Of the process, not of the open file, which workers share: it has to go with this process.
  struct flock whole {};
  whole.l_type = F_WRLCK;
  whole.l_whence = SEEK_SET;
  if (file >= 0 && fcntl(file, F_SETLK, &whole) == 0) {
    return true;
  }
  if (file >= 0 && (errno == EACCES || errno == EAGAIN)) {
    return false;
  }
  throw SystemError("lock", root_.PathOf(kLockFile));
}

bool Store::HasLessFreeThan(const FreeSpace& space) const {
  struct statvfs status {};
  if (fstatvfs(root_.descriptor(), &status) != 0) {
    throw SystemError("read", root_.path());
  }
  if (space.is_percentage) {
    return status.f_bavail * 100 < status.f_blocks * space.amount;
  }
  return status.f_bavail * status.f_frsize < space.amount;
}

void Store::ClearStaging() const {
  const Directory staging = root_.OpenOrMake(kStagingDirectory);
  for (const Directory::Entry& entry : staging.List()) {
    staging.Remove(entry.name);
  }
}

Staging Store::NewStaging() {
  const Directory all = root_.OpenOrMake(kStagingDirectory);
  std::string name = std::to_string(getpid()) + '-' + std::to_string(++staging_count_);
  all.Make(name);
  Directory work = all.Open(name);
  work.Make(kStagedImage);
  Directory image = work.Open(kStagedImage);
  return {std::move(name), std::move(work), std::move(image)};
}

void Store::Discard(const Staging& staging) const {
  root_.Open(kStagingDirectory).Remove(staging.name);
}

void Store::Install(const Staging& staging, const Manifest& manifest) const {
  const std::string text = TextOf(manifest);
  staging.image.Write(kManifestFile, text);
  staging.image.Write(kSumsFile, SumsOf(manifest.document, text));
  staging.image.Sync();
  const Directory client =
      root_.OpenOrMake(kImagesDirectory).OpenOrMake(FileNameOf(manifest.client));
  staging.work.Move(kStagedImage, client, FileNameOf(manifest.backup_id));
  client.Sync();
}

std::unordered_set<std::string> Store::ImageNames() const {
  std::unordered_set<std::string> names;
  const std::optional<Directory> images = root_.Find(kImagesDirectory);
  if (!images) {
    return names;
  }
  for (const Directory::Entry& client : images->List()) {
    if (client.kind == Directory::Kind::kDirectory) {
      AddImageNames(images->Open(client.name), client.name, &names);
    }
  }
  return names;
}

std::optional<Directory> Store::FindSeries(const std::string& client, const std::string& policy,
                                           const std::string& schedule, bool is_made) const {
  std::optional<Directory> directory;
  for (const std::string& name :
       {kSetsDirectory, FileNameOf(client), FileNameOf(policy), FileNameOf(schedule)}) {
    const Directory& parent = directory ? *directory : root_;
    std::optional<Directory> child =
        is_made ? std::optional(parent.OpenOrMake(name)) : parent.Find(name);
    if (!child) {
      return std::nullopt;
    }
    directory = std::move(child);
  }
  return directory;
}

void Store::PutSets(const Directory& series, const std::vector<NewFile>& sets) const {
  const Directory staging = root_.OpenOrMake(kStagingDirectory);
  for (std::size_t begin = 0; begin < sets.size(); begin += kBatch) {
    const std::size_t end = std::min(begin + kBatch, sets.size());
    PutBatch(staging, series,
             {sets.begin() + static_cast<std::ptrdiff_t>(begin),
              sets.begin() + static_cast<std::ptrdiff_t>(end)});
  }
}

void Store::ForEachManifest(const Take& take, const Complain& complain) const {
  const auto visit = [&](const Directory& image, const std::string& path) {
    const std::optional<std::string> text = image.Read(kManifestFile);
    if (!text) {
      throw ArchiveError(image.PathOf(kManifestFile) + ": no such file");
    }
    take(path + '/' + kManifestFile, *text);
  };
  if (const std::optional<Directory> images = root_.Find(kImagesDirectory)) {
    ForEachBelow(*images, kImagesDirectory, 2, complain, visit);
  }
}

void Store::ForEachSet(const Take& take, const Complain& complain) const {
  const auto visit = [&](const Directory& series, const std::string& path) {
    ForEach(series, Directory::Kind::kFile, complain, [&](const std::string& name) {
      take(path + '/' + name, series.Read(name).value_or(""));
    });
  };
  if (const std::optional<Directory> sets = root_.Find(kSetsDirectory)) {
    ForEachBelow(*sets, kSetsDirectory, 3, complain, visit);
  }
}
