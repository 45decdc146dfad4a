#include "archive/path_filter.h"

#include <errno.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "archive/entry_text.h"
#include "failing_calls.h"
#include "temporary_directory.h"

namespace {

const std::string kSha(64, 'a');

/// A document of entries with paths of its own, and its filter.
class PathFilter : public testing::Test {
 protected:
  ~PathFilter() override { FailNothing(); }

  static std::string Entry(const std::string& path) {
    std::string entry = "        {\n";
    for (std::size_t field = 0; field < kFieldCount; ++field) {
      entry.append("            \"").append(kFieldNames[field]).append("\": \"");
      entry += field == kPathField ? ValueOf(path) : "1";
      entry += field + 1 < kFieldCount ? "\",\n" : "\"\n";
    }
    return entry + "        }";
  }

  static std::string DocumentOf(const std::vector<std::string>& paths) {
    std::string document = "{\n    \"fentries\": ";
    std::string before = "[\n";
    for (const std::string& path : paths) {
      document += before + Entry(path);
      before = ",\n";
    }
    return document + (paths.empty() ? "\"\"\n}\n" : "\n    ]\n}\n");
  }

  void Write(const std::string& document) {
    PathFilterWriter writer(directory_);
    DocumentParser parser([&](const RawEntry& entry) { writer.Take(entry); });
    parser.Parse(document);
    writer.Finish(kSha, parser);
  }

  /// Whether the filter agrees with `document`.
  [[nodiscard]] bool Agrees(const std::string& document, const std::string& sha256 = kSha) const {
    PathFilterCheck check(directory_, sha256);
    DocumentParser parser([&](const RawEntry& entry) { check.Take(entry); });
    parser.Parse(document);
    return check.Finish(parser);
  }

  [[nodiscard]] std::optional<std::vector<DocumentPart>> PartsFor(
      const std::vector<std::string>& globs) const {
    std::vector<PathPattern> patterns;
    for (const std::string& glob : globs) {
      patterns.emplace_back(glob, false, false);
    }
    return PartsWith(directory_, kSha, patterns);
  }

  TemporaryDirectory temporary_;
  Directory directory_{temporary_.PathOf("")};
};

using Parts = std::vector<DocumentPart>;

/// Many paths, so that the filter has more than one part.
std::vector<std::string> ManyPaths() {
  std::vector<std::string> paths;
  for (int i = 0; i < 100000; ++i) {
    paths.push_back("/data/" + std::to_string(i / 100) + "/file-" + std::to_string(i));
  }
  return paths;
}

}  // namespace

TEST_F(PathFilter, TellsWherePathsCanBe) {
  const std::vector<std::string> paths = {"/home/alice/x.txt", "/home/alice/y", "C:\\a"};
  const std::string document = DocumentOf(paths);
  Write(document);
  const Parts all = {{document.find("        {"), document.rfind("    ]")}};
  for (const char* const glob : {"/home/alice/x.txt", "/home/alice/y", "C:\\\\a", "*/alice/*",
                                 "/home/*", "*/y", "*", "*.txt", "/ho*", "[/]home/x"}) {
    EXPECT_EQ(PartsFor({glob}), all) << glob;
  }
  for (const char* const glob :
       {"/home/alice/x", "/home/alice", "home/alice/y", "*/bob/*", "/Home/*", "*/x", "/tmp"}) {
    EXPECT_EQ(PartsFor({glob}), Parts()) << glob;
  }
  EXPECT_EQ(PartsFor({"/tmp", "*/y"}), all);
  EXPECT_EQ(PartsFor({"*/alice/y/bob/*"}), Parts());
  EXPECT_TRUE(Agrees(document));
}

// Another form under the same magic would miss what archives hold that are there already. The word
// was made elsewhere: 6 bits each for the keys of "/home/x", "home" and "x".
TEST_F(PathFilter, HasTheFormThatArchivesAlreadyHold) {
  const std::string document = DocumentOf({"/home/x"});
  Write(document);
  std::string expected = "quillpf1" + kSha;
  const std::uint64_t begin = document.find("        {");
  const std::uint64_t end = document.rfind("    ]");
  for (const std::uint64_t number :
       {begin, end, begin, end, std::uint64_t{1}, std::uint64_t{0xb8f96a688555e809},
        std::uint64_t{0x20c300610c020469}}) {
    for (int byte = 0; byte < 8; ++byte) {
      expected += static_cast<char>(number >> (8 * byte));
    }
  }
  EXPECT_EQ(ReadFile(temporary_.PathOf("paths.filter")), expected);
}

TEST_F(PathFilter, OfNoEntriesHasNoParts) {
  Write(DocumentOf({}));
  EXPECT_EQ(PartsFor({"*"}), Parts());
  EXPECT_TRUE(Agrees(DocumentOf({})));
  EXPECT_FALSE(Agrees(DocumentOf({"/a"})));
}

TEST_F(PathFilter, HasPartsWhichAreFoundEachByItself) {
  const std::vector<std::string> paths = ManyPaths();
  const std::string document = DocumentOf(paths);
  Write(document);
  const Parts first = PartsFor({"/data/0/file-0"}).value_or(Parts());
  const Parts last = PartsFor({paths.back()}).value_or(Parts());
  ASSERT_EQ(first.size(), 1U);
  ASSERT_EQ(last.size(), 1U);
  EXPECT_EQ(first[0].begin, document.find("        {"));
  EXPECT_LT(first[0].end, last[0].begin);
  EXPECT_EQ(last[0].end, document.rfind("    ]"));
  EXPECT_TRUE(document.substr(last[0].begin).starts_with("        {\n"));
  EXPECT_EQ(PartsFor({"/data/0/file-0", paths.back()}), (Parts{first[0], last[0]}));
  EXPECT_EQ(PartsFor({"*"}), (Parts{{first[0].begin, last[0].end}}));
  EXPECT_TRUE(Agrees(document));
  // A twentieth of the document, and few are found that are not there.
  EXPECT_LT(ReadFile(temporary_.PathOf("paths.filter")).size(), document.size() / 20);
  int found = 0;
  for (int i = 0; i < 2000; ++i) {
    found += PartsFor({"/data/0/none-" + std::to_string(i)})->empty() ? 0 : 1;
  }
  EXPECT_LT(found, 20);
}

TEST_F(PathFilter, EntriesOfTheMetadataAreNotInIt) {
  const std::string entries = "    \"fentries\": [\n";
  const std::string document =
      "{\n" + entries + Entry("/false") + "\n    ],\n" + entries + Entry("/true") + "\n    ]\n}\n";
  Write(document);
  EXPECT_EQ(PartsFor({"/false"}), Parts());
  EXPECT_EQ(PartsFor({"/true"}),
            (Parts{{document.rfind(entries) + entries.size(), document.rfind("    ]")}}));
  EXPECT_TRUE(Agrees(document));
  const std::string none =
      "{\n" + entries + Entry("/false") + "\n    ],\n    \"fentries\": \"\"\n}\n";
  std::remove(temporary_.PathOf("paths.filter").c_str());
  Write(none);
  EXPECT_EQ(PartsFor({"/false"}), Parts());
  EXPECT_TRUE(Agrees(none));
}

TEST_F(PathFilter, DoesNotAgreeWithAnotherDocument) {
  const std::string document = DocumentOf({"/a", "/b"});
  Write(document);
  EXPECT_FALSE(Agrees(DocumentOf({"/a", "/c"})));
  EXPECT_FALSE(Agrees(DocumentOf({"/a", "/b/a"})));
  EXPECT_FALSE(Agrees(DocumentOf({"/a", "/b", "/a"})));
  EXPECT_FALSE(Agrees(DocumentOf({"/a"})));
  EXPECT_FALSE(Agrees("{\n    \"x\": \"\"," + document.substr(1)));
  EXPECT_FALSE(Agrees(document, std::string(64, 'b')));
}

TEST_F(PathFilter, WhatIsNotRightIsNoFilter) {
  EXPECT_EQ(PartsFor({"/a"}), std::nullopt);
  EXPECT_FALSE(Agrees(DocumentOf({"/a"})));
  Write(DocumentOf(ManyPaths()));
  const std::string whole = ReadFile(temporary_.PathOf("paths.filter"));
  for (const std::size_t size : {std::size_t{0}, std::size_t{87}, std::size_t{88}, std::size_t{100},
                                 std::size_t{120}, whole.size() - 1}) {
    WriteFile(temporary_.PathOf("paths.filter"), whole.substr(0, size));
    EXPECT_EQ(PartsFor({"/a"}), std::nullopt) << size;
  }
  // Magic, checksum of the document, begin and end of the entries, begin, end and number of words
  // of a part, their checksum, and a word.
  for (const std::size_t at : {0, 8, 72, 80, 88, 96, 104, 112, 120}) {
    std::string changed = whole;
    changed[at] = static_cast<char>(changed[at] ^ 1);
    WriteFile(temporary_.PathOf("paths.filter"), changed);
    EXPECT_EQ(PartsFor({"/a"}), std::nullopt) << at;
  }
  std::string huge = whole;
  huge[104 + 7] = 0x40;  // a power of 2 still
  huge[104 + 2] = 0;
  WriteFile(temporary_.PathOf("paths.filter"), huge);
  EXPECT_EQ(PartsFor({"/a"}), std::nullopt);
  std::remove(temporary_.PathOf("paths.filter").c_str());
  Write(DocumentOf({"/a"}));
  const std::string small = ReadFile(temporary_.PathOf("paths.filter"));
  const std::uint64_t end = DocumentOf({"/a"}).rfind("    ]");
  // The only part ends where it begins, before the last entry does, or behind it.
  for (const std::uint64_t wrong_end : {std::uint64_t{20}, end - 1, end + 1}) {
    std::string changed = small;
    std::memcpy(changed.data() + 96, &wrong_end, sizeof(wrong_end));
    WriteFile(temporary_.PathOf("paths.filter"), changed);
    EXPECT_EQ(PartsFor({"/a"}), std::nullopt) << wrong_end;
    EXPECT_FALSE(Agrees(DocumentOf({"/a"}))) << wrong_end;
  }
}

TEST_F(PathFilter, SaysWhatCannotBeWritten) {
  const std::string document = DocumentOf(ManyPaths());
  const std::string error =
      "can't write " + directory_.PathOf("paths.filter") + ": No space left on device";
  for (const char* const call : {"write", "lseek", "fsync"}) {
    std::remove(temporary_.PathOf("paths.filter").c_str());
    FailOnce(call, ENOSPC);
    try {
      Write(document);
      ADD_FAILURE() << call;
    } catch (const ArchiveError& thrown) {
      EXPECT_EQ(thrown.what(), error);
    }
  }
  EXPECT_THROW(PathFilterWriter writer(directory_), ArchiveError);
}
