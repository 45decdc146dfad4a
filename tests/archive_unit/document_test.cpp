#include "archive/document.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

namespace {

/// An entry without what follows its closing brace. `value` is that of "path".
std::string Entry(const std::string& value = "\\/a") {
  return R"(        {
            "filenum": "1",
            "length": "2",
            "plength": "3",
            "dlength": "4",
            "blknum": "5",
            "in_image": "6",
            "raw_partition_sz": "7",
            "gigabytes": "8",
            "device_num": "9",
            "path": ")" +
         value + R"(",
            "data": "d"
        })";
}

const std::string kOpen = "{\n    \"kind\": {\n        \"a\": \"b\"\n    },\n    \"fentries\": [\n";
const std::string kClose = "\n    ]\n}\n";

/// What is counted when `text` comes in pieces of `size` bytes.
std::string Counted(const std::string& text, std::size_t size) {
  DocumentParser counter;
  for (std::size_t at = 0; at < text.size(); at += size) {
    counter.Parse(std::string_view(text).substr(at, size));
  }
  std::string error;
  const std::optional<std::uint64_t> entries = counter.Finish(&error);
  return entries ? std::to_string(*entries) : error;
}

/// The paths of the entries that are given, with where they begin, when `text` comes in pieces of
/// `size` bytes.
std::string Given(const std::string& text, std::size_t size,
                  std::optional<std::uint64_t> only_from = std::nullopt) {
  std::string given;
  DocumentParser parser([&](const RawEntry& entry) {
    given += std::to_string(entry.offset) + ':' + std::string(entry.values[kPathField]) + ' ';
    EXPECT_EQ(entry.values.front(), "1");
    EXPECT_EQ(entry.values[kLengthField], "2");
    EXPECT_EQ(entry.values.back(), "d");
  });
  if (only_from) {
    parser.TakeOnlyFrom(*only_from);
  }
  for (std::size_t at = 0; at < text.size(); at += size) {
    parser.Parse(std::string_view(text).substr(at, size));
  }
  return given + (parser.has_given_others() ? "others " : "") +
         std::to_string(parser.entries_begin()) + '-' + std::to_string(parser.entries_end());
}

/// The same, of which every size of pieces has to say the same.
std::string Counted(const std::string& text) {
  const std::string counted = Counted(text, text.size() + 1);
  for (const std::size_t size : {1, 2, 3, 7, 64, 500}) {
    EXPECT_EQ(Counted(text, size), counted) << "pieces of " << size << " bytes";
  }
  return counted;
}

std::string WrongAt(std::size_t offset) {
  return "no document: wrong at byte " + std::to_string(offset);
}

/// `text` with the first `from` replaced.
std::string Replaced(std::string text, const std::string& from, const std::string& to) {
  return text.replace(text.find(from), from.size(), to);
}

}  // namespace

TEST(DocumentParser, CountsEntriesInPiecesOfAnySize) {
  const std::vector<std::pair<std::string, std::string>> kCases = {
      {"{\n    \"fentries\": \"\"\n}\n", "0"},
      {"{\n    \"a\": \"b\",\n    \"fentries\": \"\"\n}\n", "0"},
      {kOpen + Entry() + kClose, "1"},
      {kOpen + Entry("") + ",\n" + Entry("\\\"") + ",\n" + Entry(std::string(1000, 'x')) + kClose,
       "3"},
  };
  for (const auto& [document, count] : kCases) {
    EXPECT_EQ(Counted(document), count);
  }
}

TEST(DocumentParser, OfTwoFentriesTheLastCounts) {
  const std::string last = "    \"fentries\": [\n" + Entry() + kClose;
  const std::vector<std::string> kFirst = {
      "    \"fentries\": \"\",\n",
      "    \"fentries\": [\n        \"a\",\n        \"b\"\n    ],\n",
      "    \"fentries\": [\n" + Entry() + ",\n" + Entry() + "\n    ],\n    \"x\": \"y\",\n",
      "    \"fentries\": {\n        \"a\": \"b\"\n    },\n",
  };
  for (const std::string& first : kFirst) {
    EXPECT_EQ(Counted("{\n" + first + last), "1") << first;
  }
}

TEST(DocumentParser, ACutDocumentIsNone) {
  const std::string document = kOpen + Entry() + ",\n" + Entry() + kClose;
  for (std::size_t size = 0; size < document.size(); ++size) {
    EXPECT_NE(Counted(document.substr(0, size), 64), "2") << size;
  }
  EXPECT_EQ(Counted(document.substr(0, document.size() - 1)), WrongAt(document.size() - 2));
  EXPECT_EQ(Counted(""), WrongAt(0));
}

TEST(DocumentParser, SaysWhereALineIsOutOfPlace) {
  const std::string document = kOpen + Entry() + ",\n" + Entry() + kClose;
  struct Case {
    std::string from;
    std::string to;
  };
  // Each is the beginning of a line once it is replaced.
  const std::vector<Case> kCases = {
      {"{\n    \"kind", "[\n    \"kind"},
      {"    \"kind", "   \"kind"},
      {"        {\n            \"filenum\"", "        [\n            \"filenum\""},
      {"            \"filenum\": \"1\"", "            \"filename\": \"1\""},
      {"            \"length\": \"2\",", "            \"length\": \"2\""},
      {"            \"length\": \"2\",", "            \"length\": \","},
      {"            \"data\": \"d\"", "            \"data\": \"d\","},
      {"            \"data\": \"d\"", "            \"data\": \""},
      {"        },\n", "        };\n"},
      {"        },\n", "        ],\n"},
      {"        }\n", "        }}\n"},
      {"    ]\n", "    ];\n"},
  };
  for (const Case& change : kCases) {
    EXPECT_EQ(Counted(Replaced(document, change.from, change.to)),
              WrongAt(document.find(change.from)))
        << change.to;
  }
  EXPECT_EQ(Counted(Replaced(document, "    ]\n}\n", "    ]\n]\n")), WrongAt(document.size() - 2));
  EXPECT_EQ(Counted(Replaced(document, "    ]\n}\n", "    ],\n}\n")), WrongAt(document.size() - 8));
}

TEST(DocumentParser, NothingFollowsADocument) {
  const std::string document = kOpen + Entry() + kClose;
  EXPECT_EQ(Counted(document + "\n"), WrongAt(document.size()));
  EXPECT_EQ(Counted(document + "x"), WrongAt(document.size()));
  EXPECT_EQ(Counted(document + "\nx\n"), WrongAt(document.size()));
}

TEST(DocumentParser, WithoutFentriesThereIsNoDocument) {
  EXPECT_EQ(Counted("{\n    \"a\": \"b\"\n}\n"), WrongAt(15));
}

TEST(DocumentParser, GivesEntriesWithTheirValues) {
  const std::string document =
      kOpen + Entry("a") + ",\n" + Entry("") + ",\n" + Entry(std::string(3000, 'x')) + kClose;
  const std::size_t first = kOpen.size();
  const std::size_t second = first + Entry("a").size() + 2;
  const std::size_t third = second + Entry("").size() + 2;
  const std::string expected = std::to_string(first) + ":a " + std::to_string(second) + ": " +
                               std::to_string(third) + ':' + std::string(3000, 'x') + ' ' +
                               std::to_string(first) + '-' +
                               std::to_string(document.size() - std::string("    ]\n}\n").size());
  for (const std::size_t size :
       {std::size_t{1}, std::size_t{7}, std::size_t{500}, document.size()}) {
    EXPECT_EQ(Given(document, size), expected) << size;
  }
  EXPECT_EQ(Given("{\n    \"fentries\": \"\"\n}\n", 100), "0-0");
}

TEST(DocumentParser, GivesNoEntriesButThoseThatBeginWhereTheyAreExpected) {
  const std::string first = "{\n    \"fentries\": [\n" + Entry("a") + "\n    ],\n";
  const std::string document = first + "    \"fentries\": [\n" + Entry("b") + kClose;
  const std::size_t begin = first.size() + std::string("    \"fentries\": [\n").size();
  const std::string end = std::to_string(begin) + "-" +
                          std::to_string(document.size() - std::string("    ]\n}\n").size());
  for (const std::size_t size : {std::size_t{1}, std::size_t{64}, document.size()}) {
    EXPECT_EQ(Given(document, size, begin), std::to_string(begin) + ":b " + end);
    EXPECT_EQ(Given(document, size), "20:a " + std::to_string(begin) + ":b others " + end);
  }
  const std::string others =
      "    \"fentries\": [\n        \"a\"\n    ],\n    \"fentries\": \"\"\n}\n";
  EXPECT_EQ(Given("{\n" + others, 100), "0-0");
  EXPECT_EQ(Given(first + others, 100), "20:a others 0-0");
}

TEST(DocumentParser, HoldsNoMoreThanAnEntryCanTake) {
  const auto document_with = [](std::size_t size) {
    return kOpen + Entry(std::string(size, 'x')) + kClose;
  };
  const std::size_t rest = Entry("").size() - std::string("        {\n        }").size() - 11;
  EXPECT_EQ(Counted(document_with(kLongestEntry - rest), 1000000), "1");
  const std::string larger = document_with(kLongestEntry - rest + 1);
  EXPECT_EQ(Counted(larger, 1000000), WrongAt(larger.find("            \"data\"")));
}

TEST(LastEntries, AreThoseOfTheLastMember) {
  const std::string first = "{\n    \"fentries\": [\n        \"a\"\n    ],\n";
  const std::string member = "    \"fentries\": [\n";
  const std::vector<std::pair<std::string, std::uint64_t>> kCases = {
      {"{\n" + member + Entry() + kClose, 2 + member.size()},
      {first + member + Entry() + kClose, first.size() + member.size()},
      {"", 0},
      {"{\n}\n", 0},
  };
  for (const auto& [document, begin] : kCases) {
    for (const std::size_t size : {std::size_t{1}, std::size_t{5}, std::size_t{16}, std::size_t{17},
                                   std::size_t{18}, document.size() + 1}) {
      LastEntries entries;
      for (std::size_t at = 0; at < document.size(); at += size) {
        entries.Take(std::string_view(document).substr(at, size));
      }
      EXPECT_EQ(entries.begin(), begin) << document << size;
    }
  }
}
