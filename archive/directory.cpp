#include "archive/directory.h"

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <memory>

#include "export/output_path.h"

namespace {

constexpr mode_t kDirectoryMode = 0700;
constexpr mode_t kFileMode = 0600;
constexpr std::size_t kLargestFile = std::size_t{64} * 1024 * 1024;  // bytes, of what is read whole
constexpr int kDirectoryFlags = O_RDONLY | O_DIRECTORY;
// O_NONBLOCK: a pipe that stands in the place of a file is not waited for.
constexpr int kReadFlags = O_RDONLY | O_NONBLOCK | O_NOCTTY;

Directory::Kind KindOf(mode_t mode) {
  if (S_ISREG(mode)) {
    return Directory::Kind::kFile;
  }
  return S_ISDIR(mode) ? Directory::Kind::kDirectory : Directory::Kind::kOther;
}

/// The kind of the entry `name` of the directory `at`; kOther too when it is gone.
Directory::Kind KindOf(int at, const char* name) {
  struct stat status {};
  fstatat(at, name, &status, AT_SYMLINK_NOFOLLOW);
  return KindOf(status.st_mode);
}

}  // namespace

ArchiveError SystemError(std::string_view what, const std::string& path) {
  const std::string reason = std::strerror(errno);
  return ArchiveError("can't " + std::string(what) + " " + path + ": " + reason);
}

Descriptor& Descriptor::operator=(Descriptor&& other) noexcept {
  std::swap(descriptor_, other.descriptor_);
  return *this;
}

void Descriptor::Close() {
  if (descriptor_ >= 0) {
    close(std::exchange(descriptor_, -1));
  }
}

bool WriteAll(int descriptor, std::string_view text) {
  while (!text.empty()) {
    const ssize_t size = write(descriptor, text.data(), text.size());
    if (size >= 0) {
      text.remove_prefix(static_cast<std::size_t>(size));
    } else if (errno != EINTR) {
      return false;
    }
  }
  return true;
}

Directory::Directory(const std::string& path)
    : descriptor_(open(path.c_str(), kDirectoryFlags | O_CLOEXEC)), path_(path) {
  if (descriptor_.get() < 0) {
    throw SystemError("open", path);
  }
}

std::string Directory::PathOf(std::string_view name) const {
  return OutputPath(path_, std::string(name));
}

int Directory::TryOpen(const std::string& name, int flags) const {
  return openat(descriptor(), name.c_str(), flags | O_NOFOLLOW | O_CLOEXEC, kFileMode);
}

ArchiveError Directory::OpenError(const std::string& name) const {
  ArchiveError error = SystemError("open", PathOf(name));
  struct stat status {};
  if (fstatat(descriptor(), name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0 &&
      S_ISLNK(status.st_mode)) {
    return ArchiveError(PathOf(name) + " is a symbolic link");
  }
  return error;
}

std::vector<Directory::Entry> Directory::List() const {
  // Of its own, so that each walk begins at the beginning.
  const int own = TryOpen(".", kDirectoryFlags);
  const std::unique_ptr<DIR, int (*)(DIR*)> stream(own < 0 ? nullptr : fdopendir(own), closedir);
  if (!stream) {
    throw SystemError("read", path_);
  }
  std::vector<Entry> entries;
  errno = 0;
  while (const dirent* const entry = readdir(stream.get())) {
    const std::string_view name = entry->d_name;
    if (name != "." && name != "..") {
      const Kind kind = entry->d_type == DT_UNKNOWN
                            ? KindOf(own, entry->d_name)
                            : KindOf(static_cast<mode_t>(DTTOIF(entry->d_type)));
      entries.push_back({std::string(name), kind});
    }
    errno = 0;
  }
  if (errno != 0) {
    throw SystemError("read", path_);
  }
  std::sort(entries.begin(), entries.end(),
            [](const Entry& a, const Entry& b) { return a.name < b.name; });
  return entries;
}

bool Directory::Has(const std::string& name) const {
  return faccessat(descriptor(), name.c_str(), F_OK, AT_SYMLINK_NOFOLLOW) == 0 || errno != ENOENT;
}

Directory Directory::Open(const std::string& name) const {
  Descriptor opened(TryOpen(name, kDirectoryFlags));
  if (opened.get() < 0) {
    throw OpenError(name);
  }
  return {std::move(opened), PathOf(name)};
}

Directory Directory::OpenBelow(std::string_view path) const {
  const std::size_t end = path.find('/');
  Directory directory = Open(std::string(path.substr(0, end)));
  return end == std::string_view::npos ? std::move(directory)
                                       : directory.OpenBelow(path.substr(end + 1));
}

std::optional<Directory> Directory::Find(const std::string& name) const {
  Descriptor opened(TryOpen(name, kDirectoryFlags));
  if (opened.get() >= 0) {
    return Directory(std::move(opened), PathOf(name));
  }
  if (errno == ENOENT) {
    return std::nullopt;
  }
  throw OpenError(name);
}

Directory Directory::OpenOrMake(const std::string& name) const {
  if (std::optional<Directory> found = Find(name)) {
    return *std::move(found);
  }
  Make(name);
  Sync();
  return Open(name);
}

Descriptor Directory::OpenFile(const std::string& name) const {
  Descriptor file(TryOpen(name, kReadFlags));
  if (file.get() < 0) {
    throw OpenError(name);
  }
  struct stat status {};
  fstat(file.get(), &status);
  if (!S_ISREG(status.st_mode)) {
    throw ArchiveError(PathOf(name) + " is no regular file");
  }
  return file;
}

std::optional<std::string> Directory::Read(const std::string& name) const {
  if (!Has(name)) {
    return std::nullopt;
  }
  const Descriptor file = OpenFile(name);
  struct stat status {};
  fstat(file.get(), &status);
  const auto size = static_cast<std::size_t>(status.st_size);
  if (size > kLargestFile) {
    throw ArchiveError(PathOf(name) + " is too large");
  }
  std::string text(size, '\0');
  std::size_t end = 0;
  ssize_t piece = 1;
  while (piece > 0 && end < size) {
    piece = read(file.get(), text.data() + end, size - end);
    end += static_cast<std::size_t>(std::max(piece, ssize_t{0}));
  }
  if (piece < 0) {
    throw SystemError("read", PathOf(name));
  }
  text.resize(end);
  return text;
}

Descriptor Directory::MakeFile(const std::string& name) const {
  Descriptor file(TryOpen(name, O_WRONLY | O_CREAT | O_EXCL));
  if (file.get() < 0) {
    throw SystemError("write", PathOf(name));
  }
  return file;
}

void Directory::Write(const std::string& name, std::string_view text) const {
  const Descriptor file = MakeFile(name);
  if (!WriteAll(file.get(), text) || fsync(file.get()) != 0) {
    throw SystemError("write", PathOf(name));
  }
}

void Directory::Make(const std::string& name) const {
  if (mkdirat(descriptor(), name.c_str(), kDirectoryMode) != 0) {
    throw SystemError("make", PathOf(name));
  }
}

void Directory::Move(const std::string& name, const Directory& to,
                     const std::string& new_name) const {
  if (renameat(descriptor(), name.c_str(), to.descriptor(), new_name.c_str()) != 0) {
    throw SystemError("make", to.PathOf(new_name));
  }
}

bool Directory::RemoveContents() const {
  const std::vector<Entry> entries = List();
  for (const Entry& entry : entries) {
    Remove(entry.name);
  }
  return !entries.empty();
}

void Directory::Remove(const std::string& name) const {
  if (unlinkat(descriptor(), name.c_str(), 0) == 0 || errno == ENOENT) {
    return;
  }
  if (errno != EISDIR) {
    throw SystemError("remove", PathOf(name));
  }
  // Who still writes in it, a command whose worker is gone, may have made something meanwhile.
  const Directory directory = Open(name);
  while (unlinkat(descriptor(), name.c_str(), AT_REMOVEDIR) != 0) {
    const int error = errno;
    if ((error != ENOTEMPTY && error != EEXIST) || !directory.RemoveContents()) {
      errno = error;
      throw SystemError("remove", PathOf(name));
    }
  }
}

void Directory::Sync() const {
  if (fsync(descriptor()) != 0) {
    throw SystemError("write", path_);
  }
}
