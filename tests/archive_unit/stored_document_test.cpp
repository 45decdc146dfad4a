#include "archive/stored_document.h"

#include <errno.h>

#include <algorithm>
#include <cstdint>
#include <ostream>
#include <string>

#include <gtest/gtest.h>

#include "archive/sha256.h"
#include "failing_calls.h"
#include "temporary_directory.h"

namespace {

class StoredDocument : public testing::Test {
 protected:
  ~StoredDocument() override { FailNothing(); }

  /// Stores `text` as "d", in pieces and single characters.
  DocumentFacts Store(const std::string& text, int level) {
    taken_.clear();
    DocumentWriter writer(directory_, "d", level,
                          [this](std::string_view piece) { taken_ += piece; });
    std::ostream stream(&writer);
    const std::size_t size = text.size() - std::min<std::size_t>(text.size(), 1000);
    stream << text.substr(0, size);
    for (const char c : text.substr(size)) {
      stream.put(c);
    }
    return writer.Finish();
  }

  /// What ReadDocument gives of `file`, "" or an error: stored and plain text.
  std::string Read(const std::string& file) {
    stored_.clear();
    plain_.clear();
    try {
      ReadDocument(
          directory_, file, [this](std::string_view piece) { stored_ += piece; },
          [this](std::string_view piece) { plain_ += piece; });
    } catch (const ArchiveError& error) {
      std::string text = error.what();
      return text.replace(text.find(temporary_.path()), temporary_.path().size(), "DIR");
    }
    return "";
  }

  TemporaryDirectory temporary_;
  Directory directory_{temporary_.path()};
  std::string taken_;  // by the one that stores
  std::string stored_;
  std::string plain_;
};

/// Text of `size` bytes of which no part repeats soon.
std::string Varied(std::size_t size) {
  std::string text;
  std::uint32_t state = 1;
  while (text.size() < size) {
    state = state * 1664525 + 1013904223;
    text += static_cast<char>('a' + (state >> 24) % 26);
  }
  return text;
}

}  // namespace

TEST_F(StoredDocument, IsKeptAsItIsWithoutALevel) {
  const DocumentFacts facts = Store("abc", 0);
  EXPECT_EQ(facts.file, "d.json");
  EXPECT_EQ(facts.bytes, 3U);
  EXPECT_EQ(facts.stored_bytes, 3U);
  // printf abc | sha256sum
  const std::string hash = "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad";
  EXPECT_EQ(facts.sha256, hash);
  EXPECT_EQ(facts.stored_sha256, hash);
  EXPECT_EQ(Read("d.json"), "");
  EXPECT_EQ(stored_, "abc");
  EXPECT_EQ(plain_, "abc");
}

TEST_F(StoredDocument, IsCompressedAtALevel) {
  for (const std::string& text : {std::string("abc"), std::string(1000000, 'a'), Varied(3000000)}) {
    const DocumentFacts facts = Store(text, 3);
    EXPECT_EQ(facts.file, "d.json.zst");
    EXPECT_EQ(facts.bytes, text.size());
    EXPECT_EQ(facts.sha256, Sha256Of(text));
    EXPECT_EQ(Read("d.json.zst"), "");
    EXPECT_EQ(facts.stored_bytes, stored_.size());
    EXPECT_EQ(facts.stored_sha256, Sha256Of(stored_));
    EXPECT_EQ(plain_, text);
    EXPECT_EQ(taken_, text);
    directory_.Remove("d.json.zst");
  }
}

TEST_F(StoredDocument, OfManyBytesIsHandedToTheDiskEarly) {
  const std::string text(std::size_t{20} * 1024 * 1024, 'a');
  EXPECT_EQ(Store(text, 0).stored_bytes, text.size());
  EXPECT_EQ(ReadFile(temporary_.PathOf("d.json")), text);
}

TEST_F(StoredDocument, CanBeReadFromAnywhere) {
  const std::string text = Varied(3000000);
  for (const int level : {0, 3}) {
    const DocumentFacts facts = Store(text, level);
    for (const std::size_t begin : {std::size_t{0}, std::size_t{5}, std::size_t{1000000},
                                    text.size() - 1, text.size(), text.size() + 10}) {
      DocumentReader reader = OpenDocument(directory_, facts);
      reader.Skip(begin);
      std::string rest(text.size(), '\0');
      rest.resize(reader.Read(rest.data(), rest.size()));
      EXPECT_EQ(rest, text.substr(std::min(begin, text.size()))) << begin;
    }
  }
}

TEST_F(StoredDocument, IsWhatItBeginsWith) {
  const std::string text = Varied(300000);
  for (const int level : {0, 3}) {
    DocumentReader reader(directory_.OpenFile(Store(text, level).file), "d",
                          DocumentReader::Packing::kAsItBegins);
    std::string read(text.size() + 1, '\0');
    const std::size_t size = reader.Read(read.data(), 3);
    read.resize(size + reader.Read(read.data() + size, read.size() - size));
    EXPECT_EQ(read, text) << level;
  }
}

TEST_F(StoredDocument, HasTheSizeThatItShouldHave) {
  DocumentFacts facts = Store("abc", 0);
  ++facts.stored_bytes;
  EXPECT_THROW(OpenDocument(directory_, facts), ArchiveError);
}

TEST_F(StoredDocument, ThatIsNoZstdFileIsRefused) {
  const std::string error = "DIR/d.json.zst is no whole zstd file";
  Store("abcabcabc", 3);
  const std::string whole = ReadFile(temporary_.PathOf("d.json.zst"));
  // So short a text is in it as it is: with another letter, only the frame's checksum is wrong.
  std::string changed = whole;
  changed.at(changed.find("abc")) = 'x';
  for (const std::string& text : {std::string(), std::string("abcdefgh"), whole.substr(0, 10),
                                  whole.substr(0, whole.size() - 1), whole + "x", changed}) {
    WriteFile(temporary_.PathOf("d.json.zst"), text);
    EXPECT_EQ(Read("d.json.zst"), error) << text.size();
  }
}

TEST_F(StoredDocument, IsReadThoughASignalInterrupts) {
  Store("abc", 0);
  FailOnce("read", EINTR);
  EXPECT_EQ(Read("d.json"), "");
  EXPECT_EQ(plain_, "abc");
}

TEST_F(StoredDocument, ThatCannotBeReadSaysWhy) {
  EXPECT_EQ(Read("d.json"), "can't open DIR/d.json: No such file or directory");
  Store("abc", 0);
  FailOnce("read", EIO);
  EXPECT_EQ(Read("d.json"), "can't read DIR/d.json: Input/output error");
}

TEST_F(StoredDocument, ThatCannotBeWrittenFails) {
  const std::string text = Varied(1000000);
  for (const int level : {0, 3}) {
    for (const std::string function : {"write", "fsync"}) {
      FailOnce(function, ENOSPC);
      try {
        Store(text, level);
        ADD_FAILURE() << function;
      } catch (const ArchiveError& error) {
        EXPECT_EQ(error.what(), "can't write " + temporary_.path() +
                                    (level == 0 ? "/d.json" : "/d.json.zst") +
                                    ": No space left on device");
      }
      directory_.Remove(level == 0 ? "d.json" : "d.json.zst");
    }
  }
}
