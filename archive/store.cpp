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

/// Who is told of what can't be read, and whether of what doesn't belong there.
struct Told {
  const Store::Complain& complain;
  Store::Strays strays;
};

/// Calls `visit` with an entry of `directory` that is of `kind`. Where that throws an ArchiveError,
/// it is left out.
void Visit(const Directory& directory, const Directory::Entry& entry, Directory::Kind kind,
           const Told& told, const std::function<void(const std::string& name)>& visit) {
  if (entry.kind != kind) {
    if (told.strays == Store::Strays::kComplained) {
      told.complain(ArchiveError(directory.PathOf(entry.name) + ": does not belong here"));
    }
    return;
  }
  try {
    visit(entry.name);
  } catch (const ArchiveError& error) {
    if (directory.Has(entry.name)) {
      told.complain(error);
    }
  }
}

/// The same for each of its entries.
void ForEach(const Directory& directory, Directory::Kind kind, const Told& told,
             const std::function<void(const std::string& name)>& visit) {
  for (const Directory::Entry& entry : directory.List()) {
    Visit(directory, entry, kind, told, visit);
  }
}

/// The same for each directory that is `depth` levels below, with what it is called from `path` on.
void ForEachBelow(const Directory& directory, const std::string& path, int depth, const Told& told,
                  const std::function<void(const Directory&, const std::string& path)>& visit) {
  if (depth == 0) {
    visit(directory, path);
    return;
  }
  ForEach(directory, Directory::Kind::kDirectory, told, [&](const std::string& name) {
    ForEachBelow(directory.Open(name), path + '/' + name, depth - 1, told, visit);
  });
}

void AddNames(const Directory& directory, const std::string& name, Directory::Kind kind,
              const std::string& suffix, std::unordered_set<std::string>* names) {
  for (const Directory::Entry& entry : directory.List()) {
    if (entry.kind == kind && entry.name.ends_with(suffix)) {
      names->insert(name + '/' + entry.name.substr(0, entry.name.size() - suffix.size()));
    }
  }
}

/// The entries of `kind` of the directories in `top`, "DIRECTORY/ENTRY", whose names end in
/// `suffix`, without that.
std::unordered_set<std::string> NamesIn(const std::optional<Directory>& top, Directory::Kind kind,
                                        const std::string& suffix) {
  std::unordered_set<std::string> names;
  if (!top) {
    return names;
  }
  for (const Directory::Entry& directory : top->List()) {
    if (directory.kind == Directory::Kind::kDirectory) {
      AddNames(top->Open(directory.name), directory.name, kind, suffix, &names);
    }
  }
  return names;
}

void TakeFile(const Directory& directory, const std::string& path, const std::string& name,
              const Store::Take& take) {
  if (const std::optional<std::string> text = directory.Read(name)) {
    take(path + '/' + name, *text);
  }
}

/// An image's "CLIENT/ID" in two.
std::pair<std::string, std::string> ClientAndId(const std::string& name) {
  const std::size_t at = name.find('/');
  return {name.substr(0, at), name.substr(at + 1)};
}

}  // namespace

std::string ImageNameOf(std::string_view backup_id) {
  return FileNameOf(ClientOf(backup_id)) + '/' + FileNameOf(backup_id);
}

bool IsOfImage(const Manifest& manifest, std::string_view name, std::string_view suffix) {
  return manifest.client == ClientOf(manifest.backup_id) &&
         ImageNameOf(manifest.backup_id).append(suffix) == name;
}

std::string SetNameOf(const SetFile& set) {
  return FileNameOf(set.client) + '/' + FileNameOf(set.policy) + '/' + FileNameOf(set.schedule) +
         '/' + FileNameOf(TimeOf(set.backup_id)) + ".json";
}

std::string SumsOf(const DocumentFacts& document, std::string_view manifest_text) {
  return document.stored_sha256 + "  " + document.file + '\n' + Sha256Of(manifest_text) + "  " +
         kManifestFile + '\n';
}

void WriteManifest(const Staging& staging, const Manifest& manifest) {
  const std::string text = TextOf(manifest);
  staging.image.Write(kManifestFile, text);
  staging.image.Write(kSumsFile, SumsOf(manifest.document, text));
  staging.image.Sync();
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

std::string Store::NewStagingName() {
  return std::to_string(getpid()) + '-' + std::to_string(++staging_count_);
}

Staging Store::NewStaging() {
  const Directory all = root_.OpenOrMake(kStagingDirectory);
  std::string name = NewStagingName();
  all.Make(name);
  Directory work = all.Open(name);
  work.Make(kStagedImage);
  Directory image = work.Open(kStagedImage);
  return {std::move(name), std::move(work), std::move(image)};
}

void Store::Discard(const Staging& staging) const {
  root_.Open(kStagingDirectory).Remove(staging.name);
}

void Store::Install(const Staging& staging, const std::string& backup_id) const {
  const auto [client_name, image_name] = ClientAndId(ImageNameOf(backup_id));
  const Directory client = root_.OpenOrMake(kImagesDirectory).OpenOrMake(client_name);
  staging.work.Move(kStagedImage, client, image_name);
  client.Sync();
}

std::unordered_set<std::string> Store::ImageNames() const {
  return NamesIn(root_.Find(kImagesDirectory), Directory::Kind::kDirectory, "");
}

std::unordered_set<std::string> Store::MarkNames() const {
  return NamesIn(root_.Find(kPrunedDirectory), Directory::Kind::kFile, kMarkSuffix);
}

void Store::PruneImage(const std::string& name, std::int64_t now) {
  const auto [client_name, image_name] = ClientAndId(name);
  const Directory client = root_.Open(kImagesDirectory).Open(client_name);
  const Directory image = client.Open(image_name);
  const std::string manifest = image.Read(kManifestFile).value_or("");
  std::string error;
  if (!ReadManifest(manifest, &error)) {
    throw ArchiveError(image.PathOf(kManifestFile) + ": " + error);
  }
  const Directory marks = root_.OpenOrMake(kPrunedDirectory).OpenOrMake(client_name);
  const Directory staging = root_.OpenOrMake(kStagingDirectory);
  const NewFile mark{image_name + kMarkSuffix, MarkOf(manifest, now)};
  PutBatch(staging, marks, {&mark, 1});
  marks.Sync();
  const std::string staged = NewStagingName();
  client.Move(image_name, staging, staged);
  client.Sync();
  staging.Sync();
  staging.Remove(staged);
}

void Store::RemoveMark(const std::string& name) const {
  const auto [client_name, image_name] = ClientAndId(name);
  root_.Open(kPrunedDirectory).Open(client_name).Remove(image_name + kMarkSuffix);
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

void Store::RemoveSets(const std::string& series, const std::vector<std::string>& files) const {
  const Directory directory = root_.Open(kSetsDirectory).OpenBelow(series);
  for (const std::string& file : files) {
    directory.Remove(file);
  }
  directory.Sync();
}

void Store::ForEachSeries(const std::function<void(const Directory& series)>& visit,
                          const Complain& complain) const {
  if (const std::optional<Directory> sets = root_.Find(kSetsDirectory)) {
    ForEachBelow(*sets, kSetsDirectory, 3, {complain, Strays::kPassedOver},
                 [&](const Directory& series, const std::string&) { visit(series); });
  }
}

void Store::ForEachManifest(const Take& take, const Complain& complain, Strays strays) const {
  const auto visit = [&](const Directory& image, const std::string& path) {
    const std::optional<std::string> text = image.Read(kManifestFile);
    if (!text) {
      throw ArchiveError(image.PathOf(kManifestFile) + ": no such file");
    }
    take(path + '/' + kManifestFile, *text);
  };
  if (const std::optional<Directory> images = root_.Find(kImagesDirectory)) {
    ForEachBelow(*images, kImagesDirectory, 2, {complain, strays}, visit);
  }
}

void Store::ForEachSet(const Take& take, const Complain& complain, Strays strays) const {
  const Told told{complain, strays};
  const auto visit = [&](const Directory& series, const std::string& path) {
    ForEach(series, Directory::Kind::kFile, told,
            [&](const std::string& name) { TakeFile(series, path, name, take); });
  };
  if (const std::optional<Directory> sets = root_.Find(kSetsDirectory)) {
    ForEachBelow(*sets, kSetsDirectory, 3, told, visit);
  }
}
