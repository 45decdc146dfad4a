#ifndef QUILLMERE_ARCHIVE_MANIFEST_H_
#define QUILLMERE_ARCHIVE_MANIFEST_H_

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

// The JSON files of an archive as values. docs/archive.md describes their members, which have the
// names that they have here.

/// "quillmere-archive" and its version: what makes archives and manifests.
extern const std::string kProgram;

/// What a directory is.
struct ArchiveInfo {
  std::string program;
  std::string server;
  std::int64_t created = 0;             ///< seconds
  std::uint64_t compression_level = 0;  ///< of zstd; 0: none
};

/// A command that was run for an image.
struct CommandRun {
  std::string command;                  ///< its name without a path
  std::int64_t status = 0;              ///< exit status
  std::vector<std::string> complaints;  ///< lines on standard error
};

/// The document of an image, as the tool writes it and as it is stored.
struct DocumentFacts {
  std::string file;  ///< name
  std::uint64_t bytes = 0;
  std::string sha256;
  std::uint64_t stored_bytes = 0;
  std::string stored_sha256;
};

/// An image and its export.
struct Manifest {
  std::string program;
  std::string server;
  std::string client;
  std::string policy;
  std::string schedule;
  std::string backup_id;
  std::int64_t backup_time = 0;  ///< seconds
  std::string size;              ///< as listed
  std::uint64_t size_bytes = 0;
  std::int64_t files = 0;
  std::int64_t exported = 0;  ///< seconds
  double export_seconds = 0;
  DocumentFacts document;
  std::uint64_t entries = 0;
  std::vector<CommandRun> commands;
};

/// A backup set.
struct SetFile {
  std::string server;
  std::string client;
  std::string policy;
  std::string schedule;
  std::string backup_id;
  std::int64_t create_time = 0;  ///< seconds
  std::uint64_t size_bytes = 0;
  std::vector<std::string> images;  ///< backup ids, in listing order
};

// What the files hold, whole.
std::string TextOf(const ArchiveInfo& info);
std::string TextOf(const Manifest& manifest);
std::string TextOf(const SetFile& set);

/// The manifest `text`, which has to be one, of an image that was pruned at the time `pruned`: as
/// it is, with two members more behind its own.
std::string MarkOf(std::string_view text, std::int64_t pruned);

// The way back, from any bytes. Nothing for a text that is not right, with what is wrong in *error
// as JsonReader has it.
std::optional<ArchiveInfo> ReadArchiveInfo(std::string_view text, std::string* error);
std::optional<Manifest> ReadManifest(std::string_view text, std::string* error);
std::optional<SetFile> ReadSetFile(std::string_view text, std::string* error);
/// The same of the manifest of an image that was pruned, and of no other.
std::optional<Manifest> ReadMark(std::string_view text, std::string* error);

#endif  // QUILLMERE_ARCHIVE_MANIFEST_H_
