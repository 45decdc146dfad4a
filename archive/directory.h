#ifndef QUILLMERE_ARCHIVE_DIRECTORY_H_
#define QUILLMERE_ARCHIVE_DIRECTORY_H_

#include <cstddef>
#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

/// What is wrong with an archive, as one line: "can't open PATH: REASON", "PATH is a symbolic
/// link".
class ArchiveError : public std::runtime_error {
 public:
  explicit ArchiveError(const std::string& text) : std::runtime_error(text) {}
};

/// An ArchiveError that says "can't WHAT PATH: " and what errno stands for.
ArchiveError SystemError(std::string_view what, const std::string& path);

/// A file descriptor that is closed with the object.
class Descriptor {
 public:
  explicit Descriptor(int descriptor = -1) : descriptor_(descriptor) {}
  Descriptor(Descriptor&& other) noexcept : descriptor_(std::exchange(other.descriptor_, -1)) {}
  Descriptor& operator=(Descriptor&& other) noexcept;
  ~Descriptor() { Close(); }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;

  [[nodiscard]] int get() const { return descriptor_; }
  void Close();

 private:
  int descriptor_;
};

/// Writes all of `text`. Returns false, with errno, when that fails.
bool WriteAll(int descriptor, std::string_view text);

/// An open directory. Names are those of its own entries, and a link among them is never followed.
/// What fails throws an ArchiveError.
class Directory {
 public:
  enum class Kind : std::uint8_t { kFile, kDirectory, kOther };

  struct Entry {
    std::string name;
    Kind kind;
  };

  /// Opens the directory `path`, which may be a link or end in one.
  explicit Directory(const std::string& path);

  [[nodiscard]] int descriptor() const { return descriptor_.get(); }
  [[nodiscard]] const std::string& path() const { return path_; }
  [[nodiscard]] std::string PathOf(std::string_view name) const;

  /// Its entries in byte order of their names.
  [[nodiscard]] std::vector<Entry> List() const;

  /// True when there is such an entry, of any kind.
  [[nodiscard]] bool Has(const std::string& name) const;

  [[nodiscard]] Directory Open(const std::string& name) const;
  /// The directory `path` below, name by name.
  [[nodiscard]] Directory OpenBelow(std::string_view path) const;
  /// Nothing when there is no such entry.
  [[nodiscard]] std::optional<Directory> Find(const std::string& name) const;
  /// Makes it first, durably, when there is none.
  [[nodiscard]] Directory OpenOrMake(const std::string& name) const;

  /// Opens a regular file to be read.
  [[nodiscard]] Descriptor OpenFile(const std::string& name) const;
  /// What a regular file holds, at most 64 MiB; nothing when there is none.
  [[nodiscard]] std::optional<std::string> Read(const std::string& name) const;

  /// Makes a file that must not be there, to be written.
  [[nodiscard]] Descriptor MakeFile(const std::string& name) const;
  /// Makes such a file that holds `text`, durably but for its name.
  void Write(const std::string& name, std::string_view text) const;

  void Make(const std::string& name) const;
  void Move(const std::string& name, const Directory& to, const std::string& new_name) const;
  /// Removes an entry with all that is in it. Nothing has to be there.
  void Remove(const std::string& name) const;
  /// Makes the names in it durable.
  void Sync() const;

 private:
  Directory(Descriptor descriptor, std::string path)
      : descriptor_(std::move(descriptor)), path_(std::move(path)) {}

  [[nodiscard]] int TryOpen(const std::string& name, int flags) const;
  [[nodiscard]] ArchiveError OpenError(const std::string& name) const;
  [[nodiscard]] bool RemoveContents() const;

  Descriptor descriptor_;
  std::string path_;
};

#endif  // QUILLMERE_ARCHIVE_DIRECTORY_H_
