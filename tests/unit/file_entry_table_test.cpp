// The table against a tree: both must come out as the same bytes.

#include "export/file_entry_table.h"

#include <algorithm>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <boost/property_tree/json_parser.hpp>
#include <boost/property_tree/ptree.hpp>

#include "random_text.h"

namespace {

using boost::property_tree::ptree;

std::string ArrayText(const FileEntryTable& table) {
  std::ostringstream out;
  table.WriteArray(out);
  return out.str();
}

/// The array that the JSON writer makes of a member that holds `entries` as a tree.
std::string ArrayTextOfATree(const std::vector<Fields>& entries) {
  ptree root;
  root.push_back({"m", TreeOf(entries)});
  std::ostringstream out;
  boost::property_tree::write_json(out, root, true);
  const std::string start = "{\n    \"m\": ";
  const std::string end = "\n}\n";
  const std::string document = out.str();
  EXPECT_EQ(document.substr(0, start.size()), start);
  return document.substr(start.size(), document.size() - start.size() - end.size());
}

/// Compares without printing megabytes.
void ExpectSameBytes(const std::string& text, const std::string& expected) {
  if (text == expected) {
    return;
  }
  const auto difference = static_cast<std::size_t>(
      std::mismatch(text.begin(), text.end(), expected.begin(), expected.end()).first -
      text.begin());
  const std::size_t from = difference < 40 ? 0 : difference - 40;
  ADD_FAILURE() << text.size() << " bytes for " << expected.size() << ", different at "
                << difference << ": ..." << text.substr(from, 80) << "... for ..."
                << expected.substr(from, 80) << "...";
}

void ExpectTheBytesOfATree(const std::vector<Fields>& entries) {
  ExpectSameBytes(ArrayText(TableOf(entries)), ArrayTextOfATree(entries));
}

Fields Filled(const std::string& text) {
  Fields fields;
  fields.fill(text);
  return fields;
}

// Text is looked at in groups of 64 bytes, so each length and each place of a byte is a case of its
// own.
constexpr std::size_t kTwoGroups = 128;

TEST(FileEntryTable, WritesTheBytesOfARealTree) {
  RandomText random(20200913);
  ExpectTheBytesOfATree(random.Entries(3000, 50));
}

/// Fields with `c` at one place each: at `place` in the first one, then at those behind it.
Fields WithByte(char c, std::size_t place) {
  Fields fields;
  for (std::string& field : fields) {
    field.assign(place++, 'a').append(1, c).append(1, 'b');
  }
  return fields;
}

/// Every byte that a field can hold.
std::string FieldBytes() {
  std::string bytes;
  for (int value = 1; value <= 0xFF; ++value) {
    if (value != '\t' && value != '\n') {
      bytes += static_cast<char>(value);
    }
  }
  return bytes;
}

TEST(FileEntryTable, EveryByteIsEscapedAsTheWriterDoes) {
  std::vector<Fields> entries;
  for (const char c : FieldBytes()) {
    for (std::size_t place = 0; place < 64; place += FileEntryTable::kFieldCount) {
      entries.push_back(WithByte(c, place));
    }
  }
  ExpectTheBytesOfATree(entries);
}

TEST(FileEntryTable, TheEscapesAreThoseThatConsumersKnow) {
  Fields fields = Filled("x");
  fields[9] = "\"\\/ \b\f\r";
  fields[10] = "\x01\x02\x0b\x0e\x1f\x7f\x80\xff";
  const std::string text = ArrayText(TableOf({fields}));
  EXPECT_NE(text.find(R"("path": "\"\\\/ \b\f\r")"), std::string::npos);
  EXPECT_NE(text.find("\"data\": \"\\u0001\\u0002\\u000B\\u000E\\u001F\x7f\x80\xff\""),
            std::string::npos);
}

TEST(FileEntryTable, RunsOfSpecialBytesAreEscapedOneByOne) {
  RandomText random(1);
  std::vector<Fields> entries;
  for (std::size_t size = 1; size <= kTwoGroups; ++size) {
    entries.push_back(Filled(std::string(size, '/')));
    entries.push_back(Filled(std::string(size, '\x1f')));
    entries.push_back(random.Entry(size));
  }
  ExpectTheBytesOfATree(entries);
}

TEST(FileEntryTable, FieldsMayHaveAnyLength) {
  std::vector<Fields> entries;
  for (std::size_t size = 1; size <= kTwoGroups; ++size) {
    entries.push_back(Filled(std::string(size, 'a')));
    for (std::size_t position = 0; position < FileEntryTable::kFieldCount; ++position) {
      Fields fields = Filled("b");
      fields[position] = std::string(size, 'c');
      entries.push_back(fields);
    }
  }
  ExpectTheBytesOfATree(entries);
}

TEST(FileEntryTable, EntriesMayFillManyChunks) {
  RandomText random(7);
  ExpectTheBytesOfATree(random.Entries(3000, 150));  // more than 2 MB, in chunks of 1 MiB
}

/// An entry that leaves `room` bytes of `chunk_size`.
Fields Leaving(std::size_t room, std::size_t chunk_size) {
  Fields fields = Filled("x");
  fields[9].assign(chunk_size - 21 - room, 'p');  // the other fields, the tabs and the newline
  return fields;
}

// Behind an entry there is room for a group. A further entry of one byte a field takes 22.

TEST(FileEntryTable, TheFirstChunkHolds64Kibibytes) {
  for (std::size_t room = 0; room <= 64 + 3 * 22; ++room) {
    ExpectTheBytesOfATree({Leaving(room, 65536), Filled("y"), Filled("/"), Filled("z")});
  }
}

TEST(FileEntryTable, TheNextChunksHoldAMebibyte) {
  for (std::size_t room = 50; room <= 64 + 3 * 22; room += 5) {
    ExpectTheBytesOfATree({Leaving(0, 65536), Leaving(room, 1048576), Filled("y"), Filled("/")});
  }
}

TEST(FileEntryTable, FieldsMayHaveMegabytes) {
  RandomText random(42);
  Fields large = random.Entry(20);
  large[0] = std::string(1048576, 'a');
  large[9] = std::string(3000000, '/');
  Fields larger = random.Entry(20);
  larger[10] = std::string(4000000, 'b') + "\"";
  ExpectTheBytesOfATree({random.Entry(20), large, random.Entry(20), random.Entry(20), larger,
                         larger, random.Entry(20)});
}

TEST(FileEntryTable, OutputPiecesMayEndAnywhere) {
  // Written in pieces of half a mebibyte and a little: each part of the text stands at the end of
  // one in its turn.
  const std::string start =
      "[\n"
      "        {\n"
      "            \"filenum\": \"";
  const std::string end =
      "\\/\",\n"
      "            \"length\": \"x\",\n"
      "            \"plength\": \"x\",\n"
      "            \"dlength\": \"x\",\n"
      "            \"blknum\": \"x\",\n"
      "            \"in_image\": \"x\",\n"
      "            \"raw_partition_sz\": \"x\",\n"
      "            \"gigabytes\": \"x\",\n"
      "            \"device_num\": \"x\",\n"
      "            \"path\": \"x\",\n"
      "            \"data\": \"x\"\n"
      "        }\n"
      "    ]";
  for (std::size_t size = 524288 - start.size() - end.size(); size <= 524288 + 64; size += 3) {
    Fields fields = Filled("x");
    fields[0].assign(size, 'a').append(1, '/');
    std::string expected = start;
    expected.append(size, 'a').append(end);
    ExpectSameBytes(ArrayText(TableOf({fields})), expected);
  }
}

TEST(FileEntryTable, AFullPieceHasRoomForTheGroupThatGrowsMost) {
  // The output is written when a group begins and more than half a mebibyte is there. Here it is
  // exactly that, and a group of fields of one byte each, with most of the text between them, comes
  // on top. A sanitizer sees if it does not fit.
  constexpr std::size_t kPieceSize = 524288;
  const std::string two = ArrayText(TableOf({Filled("x"), Filled("y")}));
  const std::size_t left = kPieceSize - (two.rfind("\"filenum\"") + 12);
  const std::size_t slashes = left % 64;  // whole groups; a slash takes a byte more than it had
  Fields second = Filled("x");
  second[0].assign(left - 2 * slashes, 'a').append(slashes, '/');
  // The second one does not fit into the first chunk and stands at the start of its own.
  std::vector<Fields> entries = {Filled("x"), second};
  entries.resize(10, Filled("x"));
  ExpectTheBytesOfATree(entries);
}

TEST(FileEntryTable, RunsOfTabsSeparateOnce) {
  RandomText random(3);
  std::vector<Fields> entries;
  FileEntryTable table;
  for (int i = 0; i < 3000; ++i) {
    const Fields fields = random.Entry(20);
    std::string line(random.Number(0, 2), '\t');
    for (const std::string& field : fields) {
      line += field + std::string(random.Number(1, 3), '\t');
    }
    if (random.Number(0, 1) == 0) {
      line.erase(line.find_last_not_of('\t') + 1);
    }
    ASSERT_TRUE(table.Append(line));
    entries.push_back(fields);
  }
  ExpectSameBytes(ArrayText(table), ArrayTextOfATree(entries));
}

TEST(FileEntryTable, ADoubledTabIsSeenAnywhere) {
  for (std::size_t place = 1; place <= kTwoGroups; ++place) {
    const std::string start = std::string(place, 'a') + "\t\t";
    FileEntryTable table;
    EXPECT_FALSE(table.Append(start + "3\t4\t5\t6\t7\t8\t9\t10\t11")) << place;
    EXPECT_TRUE(table.Append(start + "2\t3\t4\t5\t6\t7\t8\t9\t10\t11")) << place;
  }
}

TEST(FileEntryTable, AnyOtherFieldCountIsRefusedAndChangesNothing) {
  RandomText random(5);
  std::vector<Fields> entries;
  FileEntryTable table;
  for (std::size_t i = 0; i < 2000; ++i) {
    const Fields fields = random.Entry(40);
    const std::string line = LineOf(fields);
    EXPECT_FALSE(table.Append(line + "\tx"));
    EXPECT_FALSE(table.Append(line.substr(0, line.rfind('\t'))));
    EXPECT_FALSE(table.Append(line.substr(0, line.rfind('\t') + 1)));
    EXPECT_FALSE(table.Append(std::string(i % 50, '\t')));
    EXPECT_FALSE(table.Append(std::string(i % 50, 'x')));
    EXPECT_EQ(table.size(), i);
    ASSERT_TRUE(table.Append(line));
    entries.push_back(fields);
  }
  EXPECT_FALSE(table.Append(std::string(2000000, 'x')));
  ExpectSameBytes(ArrayText(table), ArrayTextOfATree(entries));
}

TEST(FileEntryTable, EachNumberOfFieldsIsToldFromEleven) {
  for (std::size_t size = 1; size <= kTwoGroups; ++size) {
    std::string line(size, 'a');
    for (std::size_t count = 1; count <= 40; ++count) {
      FileEntryTable table;
      EXPECT_EQ(table.Append(line), count == 11) << count << " fields of " << size;
      line += '\t' + std::string(size, 'a');
    }
  }
}

TEST(FileEntryTable, CountsItsEntries) {
  FileEntryTable table;
  EXPECT_FALSE(table.Append(""));
  EXPECT_EQ(table.size(), 0U);
  EXPECT_EQ(ArrayText(table), "\"\"");
  EXPECT_TRUE(table.Append(LineOf(Filled("x"))));
  EXPECT_EQ(table.size(), 1U);
}

TEST(FileEntryTable, PackedEntriesAreWrittenLikePlainOnes) {
  RandomText random(11);
  std::vector<Fields> entries = random.Entries(2000, 60);
  entries[500][9] = std::string(100000, 'p') + "/\"\\";
  entries[501][3] = std::string(70000, 'q');
  const std::string expected = ArrayTextOfATree(entries);
  using Packing = FileEntryTable::Packing;
  for (const Packing& packing : {Packing{0, 0}, Packing{0, 1000}, Packing{1, 65536},
                                 Packing{65536, 500}, Packing{300000, 100000}}) {
    SCOPED_TRACE(packing.from);
    const FileEntryTable table = TableOf(entries, packing);
    ExpectSameBytes(ArrayText(table), expected);
    ExpectSameBytes(ArrayText(table), expected);  // packed as before
  }
}

TEST(FileEntryTable, RefusedLinesLeavePackedEntriesAlone) {
  RandomText random(12);
  FileEntryTable table(FileEntryTable::Packing{0, 200});
  std::vector<Fields> entries;
  for (const Fields& fields : random.Entries(200, 30)) {
    EXPECT_FALSE(table.Append(std::string(random.Number(0, 400), 'x')));
    ASSERT_TRUE(table.Append(LineOf(fields)));
    entries.push_back(fields);
  }
  ExpectSameBytes(ArrayText(table), ArrayTextOfATree(entries));
}

TEST(FileEntryTable, WritingChangesNothing) {
  const FileEntryTable table = TableOf({Filled("x"), Filled("y")});
  const std::string once = ArrayText(table);
  EXPECT_EQ(ArrayText(table), once);
}

TEST(FileEntryTable, AFailureShowsInTheStream) {
  const FileEntryTable table = TableOf({Filled("x")});
  std::ostream out(nullptr);
  table.WriteArray(out);
  EXPECT_FALSE(out.good());
}

}  // namespace
