#ifndef QUILLMERE_TESTS_ARCHIVE_UNIT_PRODUCT_H_
#define QUILLMERE_TESTS_ARCHIVE_UNIT_PRODUCT_H_

#include <map>
#include <string>
#include <vector>

#include "archive/manifest.h"
#include "temporary_directory.h"

#include <gtest/gtest.h>

/// What a run of the program did.
struct Outcome {
  int status = -1;
  std::string out;
  std::string err;

  friend bool operator==(const Outcome&, const Outcome&) = default;
};

void PrintTo(const Outcome& outcome, std::ostream* out);

/// A row of the listing, with its newline.
std::string Row(const std::string& id, int files, const std::string& policy = "Files",
                const std::string& schedule = "Daily", const std::string& size = "2K");

/// The line of an entry as rec_unfold prints it, of the file `path`.
std::string EntryLine(const std::string& path);

/// The document that the product's images make: one entry, of the file "/a".
extern const std::string kDocument;

/// A product of three shell scripts, and the program on an archive beside it. By default the
/// listing is empty, and every image has the document kDocument.
class ArchiveTest : public testing::Test {
 protected:
  ArchiveTest();
  ~ArchiveTest() override;

  /// Calls the program with "ARCHIVE" for the path of the archive. In what it prints, the path
  /// becomes "ARCHIVE" again.
  Outcome Run(const std::vector<std::string>& arguments);
  /// The same, where nothing is captured. Returns the status.
  int RunAsItIs(const std::vector<std::string>& arguments) const;

  /// The listing has these rows from now on.
  void Lists(const std::string& rows) const;
  /// What a command does from now on, as the lines of a shell script. $ROOT is the product's root.
  void Does(const std::string& command, const std::string& script) const;
  /// What `command` does unless told otherwise.
  static std::string Usual(const std::string& command);
  /// The same, with `script` before it for the images that match the shell pattern `ids`.
  void DoesFor(const std::string& command, const std::string& ids, const std::string& script) const;

  /// An archive with these images, none of which failed.
  void Keep(const std::string& rows);

  [[nodiscard]] std::string PathOf(const std::string& name) const { return archive_ + '/' + name; }
  /// All files below `name` in the archive, with what they hold, but for the lock.
  [[nodiscard]] std::map<std::string, std::string> Files(const std::string& name) const;
  [[nodiscard]] Manifest ManifestOf(const std::string& path) const;

  TemporaryDirectory directory_;
  std::string archive_;
  std::string root_;  // of the product
};

#endif  // QUILLMERE_TESTS_ARCHIVE_UNIT_PRODUCT_H_
