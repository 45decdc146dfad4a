#include <errno.h>

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "archive/sha256.h"
#include "archive/store.h"
#include "failing_calls.h"
#include "product.h"

namespace {

const std::string kImage = "images/a/a_1600000000/";
const std::string kDocumentFile = kImage + "a_1600000000.json";
const std::string kSet = "sets/a/Files/Daily/1600000000.json";

class Verify : public ArchiveTest {
 protected:
  Verify() { Keep(Row("a_1600000000", 1) + Row("b_1600000000", 1)); }

  /// Verifies, and expects these problems alone.
  void ExpectProblems(const std::string& lines, int count, const std::string& sums) {
    EXPECT_EQ(Run({"verify", "ARCHIVE", "--jobs", "1"}),
              (Outcome{1, lines + sums + ": " + std::to_string(count) + " problems\n", ""}));
  }

  /// Replaces the first `from` in a file.
  void Change(const std::string& file, const std::string& from, const std::string& to) const {
    std::string text = ReadFile(PathOf(file));
    const std::size_t at = text.find(from);
    ASSERT_NE(at, std::string::npos) << file << ": " << from;
    WriteFile(PathOf(file), text.replace(at, from.size(), to));
  }

  /// Writes SHA256SUMS anew, as they have to be for the manifest that is there.
  void Sum() const {
    const std::string text = ReadFile(PathOf(kImage + "manifest.json"));
    WriteFile(PathOf(kImage + "SHA256SUMS"),
              SumsOf(ManifestOf(kImage + "manifest.json").document, text));
  }
};

const std::string kAll = "2 images, 2 sets, 762 bytes";

}  // namespace

TEST_F(Verify, FindsNothingInAWholeArchive) {
  for (const std::string jobs : {"1", "8"}) {
    EXPECT_EQ(Run({"verify", "ARCHIVE", "--jobs", jobs}),
              (Outcome{0, kAll + ": 0 problems\n", ""}));
  }
  std::filesystem::create_directory(PathOf("lost+found"));
  WriteFile(PathOf(".staging/left"), "");
  EXPECT_EQ(Run({"verify", "ARCHIVE"}).status, 0);
}

TEST_F(Verify, FindsChangedDocuments) {
  Change(kDocumentFile, "\"x\"", "\"y\"");
  ExpectProblems(kDocumentFile + ": checksum of the file is not that of the manifest\n" +
                     kDocumentFile + ": checksum of the document is not that of the manifest\n",
                 2, kAll);
}

TEST_F(Verify, FindsCutDocuments) {
  std::filesystem::resize_file(PathOf(kDocumentFile), 380);
  ExpectProblems(kDocumentFile + ": size of the file is not that of the manifest\n" +
                     kDocumentFile + ": checksum of the file is not that of the manifest\n" +
                     kDocumentFile + ": size of the document is not that of the manifest\n" +
                     kDocumentFile + ": checksum of the document is not that of the manifest\n" +
                     kDocumentFile + ": no document: wrong at byte 379\n",
                 5, "2 images, 2 sets, 761 bytes");
}

TEST_F(Verify, FindsMissingFiles) {
  for (const std::string file : {"manifest.json", "SHA256SUMS"}) {
    const std::string text = ReadFile(PathOf(kImage + file));
    std::filesystem::remove(PathOf(kImage + file));
    ExpectProblems(kImage + file + ": no such file\n", 1,
                   std::string(file) == "SHA256SUMS" ? kAll : "2 images, 2 sets, 381 bytes");
    WriteFile(PathOf(kImage + file), text);
  }
  std::filesystem::remove(PathOf(kDocumentFile));
  ExpectProblems(
      kDocumentFile + ": can't open ARCHIVE/" + kDocumentFile + ": No such file or directory\n", 1,
      "2 images, 2 sets, 381 bytes");
}

TEST_F(Verify, FindsManifestsThatAreNone) {
  Change(kImage + "manifest.json", "{", "");
  ExpectProblems(kImage + "manifest.json: not JSON\n", 1, "2 images, 2 sets, 381 bytes");
}

TEST_F(Verify, FindsManifestsThatDoNotFit) {
  const std::string manifest = kImage + "manifest.json";
  const std::string text = ReadFile(PathOf(manifest));
  struct Case {
    std::string from;
    std::string to;
    std::string line;
    std::string sums;
  };
  const std::vector<Case> kCases = {
      {"\"client\": \"a\"", "\"client\": \"b\"", manifest + ": of another image\n", kAll},
      {"\"client\": \"a\"", "\"client\": \"\"", manifest + ": of another image\n", kAll},
      {"\"backup_id\": \"a_", "\"backup_id\": \"a_1", manifest + ": of another image\n", kAll},
      {"\"file\": \"a_", "\"file\": \"b_", manifest + ": names another document\n",
       "2 images, 2 sets, 381 bytes"},
      {"\"entries\": 1,", "\"entries\": 2,", kDocumentFile + ": 1 entries, but 2 in the manifest\n",
       kAll},
      {"\"bytes\": 381", "\"bytes\": 382",
       kDocumentFile + ": size of the document is not that of the manifest\n", kAll},
  };
  for (const Case& changed : kCases) {
    Change(manifest, changed.from, changed.to);
    Sum();
    ExpectProblems(changed.line, 1, changed.sums);
    WriteFile(PathOf(manifest), text);
  }
}

TEST_F(Verify, FindsChecksumsThatDoNotFit) {
  Change(kImage + "SHA256SUMS", "  a_", " *a_");
  ExpectProblems(kImage + "SHA256SUMS: does not agree with the manifest\n", 1, kAll);
}

TEST_F(Verify, FindsFiltersThatDoNotFit) {
  const std::string filter = kImage + "paths.filter";
  const std::string text = ReadFile(PathOf(filter));
  std::string changed = text;
  changed.back() = static_cast<char>(changed.back() ^ 1);
  for (const std::string& wrong : {changed, text.substr(1), std::string()}) {
    WriteFile(PathOf(filter), wrong);
    ExpectProblems(filter + ": does not agree with the document\n", 1, kAll);
  }
  std::filesystem::remove(PathOf(filter));
  EXPECT_EQ(Run({"verify", "ARCHIVE"}), (Outcome{0, kAll + ": 0 problems\n", ""}));
}

TEST_F(Verify, FindsSetsThatDoNotFit) {
  const std::string text = ReadFile(PathOf(kSet));
  struct Case {
    std::string from;
    std::string to;
    std::string line;
  };
  const std::vector<Case> kCases = {
      {"{", "", "not JSON"},
      {"\"policy\": \"Files\"", "\"policy\": \"Other\"", "of another set"},
      {"\"backup_id\": \"a_1600000000\",", "\"backup_id\": \"a_2\",", "of another set"},
      {"            \"backup_id\": \"a_1600000000\"", "            \"backup_id\": \"a_2\"",
       "the image a_2 is not there"},
      {"            \"backup_id\": \"a_1600000000\"", "            \"backup_id\": \"c_2\"",
       "the image c_2 is not there"},
  };
  for (const Case& changed : kCases) {
    Change(kSet, changed.from, changed.to);
    ExpectProblems(kSet + ": " + changed.line + '\n', 1, kAll);
    WriteFile(PathOf(kSet), text);
  }
  std::filesystem::remove_all(PathOf("images"));
  ExpectProblems(kSet + ": the image a_1600000000 is not there\n" +
                     "sets/b/Files/Daily/1600000000.json: the image b_1600000000 is not there\n",
                 2, "0 images, 2 sets, 0 bytes");
}

TEST_F(Verify, FindsStrayFiles) {
  std::filesystem::create_directories(PathOf("pruned/a"));
  for (const std::string path :
       {"stray", "pruned/stray", "images/stray", "images/a/stray", "images/a/a_1600000000/stray",
        "sets/stray", "sets/a/stray", "sets/a/Files/stray"}) {
    WriteFile(PathOf(path), "");
    ExpectProblems(std::string(path) + ": does not belong here\n", 1, kAll);
    std::filesystem::remove(PathOf(path));
  }
  for (const std::string path : {"pruned/a/stray", "sets/a/Files/Daily/stray",
                                 "images/a/a_1600000000/a_1600000000.json.zst"}) {
    std::filesystem::create_directory(PathOf(path));
    ExpectProblems(path + ": does not belong here\n", 1, kAll);
    std::filesystem::remove(PathOf(path));
  }
  std::filesystem::create_symlink("a_1600000000", PathOf("images/a/a_1"));
  ExpectProblems("images/a/a_1: does not belong here\n", 1, kAll);
}

TEST_F(Verify, FindsWhatCannotBeRead) {
  std::filesystem::remove_all(PathOf("sets"));
  std::filesystem::remove_all(PathOf("images/b"));
  FailOnce("read", EIO, 1);
  EXPECT_EQ(Run({"verify", "ARCHIVE", "--jobs", "1"}),
            (Outcome{1,
                     "images/a/a_1600000000: can't read ARCHIVE/images/a/a_1600000000/"
                     "manifest.json: Input/output error\n"
                     "0 images, 0 sets, 0 bytes: 1 problems\n",
                     ""}));
  // An archive is opened without it; the first one is of its root's own list.
  FailOnce("fdopendir", EMFILE, 2);
  EXPECT_EQ(Run({"verify", "ARCHIVE", "--jobs", "1"}),
            (Outcome{1,
                     "images/a: can't read ARCHIVE/images/a: Too many open files\n"
                     "0 images, 0 sets, 0 bytes: 1 problems\n",
                     ""}));
  FailOnce("fdopendir", EMFILE);
  EXPECT_EQ(Run({"verify", "ARCHIVE", "--jobs", "1"}),
            (Outcome{4, "", "can't read ARCHIVE: Too many open files\n"}));
}

TEST_F(Verify, MarksBelongToTheirNames) {
  const std::string mark = "pruned/a/a_1600000000.json";
  const std::string text = MarkOf(ReadFile(PathOf(kImage + "manifest.json")), 1700000000);
  std::filesystem::create_directories(PathOf("pruned/a"));
  // Beside its image too, as an interrupted prune leaves it.
  WriteFile(PathOf(mark), text);
  EXPECT_EQ(Run({"verify", "ARCHIVE"}), (Outcome{0, kAll + ": 0 problems\n", ""}));
  struct Case {
    std::string from;
    std::string to;
    std::string what;
  };
  for (const auto& [from, to, what] :
       {Case{"{", "", "not JSON"}, Case{"\"pruned\"", "\"x\"", "pruned is missing or wrong"},
        Case{"\"client\": \"a\"", "\"client\": \"b\"", "of another image"},
        Case{"\"backup_id\": \"a_", "\"backup_id\": \"a_1", "of another image"}}) {
    Change(mark, from, to);
    ExpectProblems(mark + ": " + what + '\n', 1, kAll);
    WriteFile(PathOf(mark), text);
  }
  std::filesystem::rename(PathOf(mark), PathOf("pruned/a/a_1600000000"));
  ExpectProblems("pruned/a/a_1600000000: of another image\n", 1, kAll);
  std::filesystem::remove(PathOf("pruned/a/a_1600000000"));
  std::filesystem::create_symlink("x", PathOf("pruned/b"));
  ExpectProblems("pruned/b: does not belong here\n", 1, kAll);
}
