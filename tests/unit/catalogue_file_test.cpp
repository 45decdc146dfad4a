#include "export/catalogue_file.h"

#include <stdexcept>
#include <string>
#include <typeinfo>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "fake_host.h"
#include "layout/layout.h"

using namespace std::string_literals;

namespace {

using testing::ElementsAre;
using testing::StartsWith;

const char* const kCountMessage =
    "parse output of qvrolle failed. output lines is not the same as expected.\n";

/// A look-up of the image a_1 when the command prints `output`.
struct LookUp {
  explicit LookUp(const std::string& output, int level = 0) {
    FakeHost host;
    host.Prints(output);
    verbose = level;
    outcome = host.Run([&] { return FindCatalogueFile("a_1", &name); });
  }

  std::string name;
  Outcome outcome;
};

/// The name that a look-up finds without a word.
std::string NameIn(const std::string& output) {
  const LookUp look_up(output);
  EXPECT_EQ(look_up.outcome.status, 0);
  EXPECT_EQ(look_up.outcome.out, "");
  EXPECT_EQ(look_up.outcome.err, "");
  EXPECT_THAT(
      look_up.outcome.steps,
      ElementsAre("popen /usr/ostra/keelhaven/bin/admincmd/qvroll -id a_1", "pclose qvroll"));
  return look_up.name;
}

void ExpectCountMessage(const std::string& output) {
  const LookUp look_up(output);
  EXPECT_EQ(look_up.outcome.status, 1);
  EXPECT_EQ(look_up.outcome.out, "");
  EXPECT_EQ(look_up.outcome.err, kCountMessage);
  EXPECT_THAT(look_up.outcome.steps,
              ElementsAre("popen /usr/ostra/keelhaven/bin/admincmd/qvroll -id a_1", "pclose qvroll",
                          "stderr "s + kCountMessage));
}

TEST(CatalogueFile, TheIdIsPassedAsItIs) {
  FakeHost host;
  host.Prints("");
  std::string name;
  const Outcome outcome = host.Run([&] { return FindCatalogueFile("a_1; $(b) 'c'", &name); });
  EXPECT_THAT(outcome.commands,
              ElementsAre("/usr/ostra/keelhaven/bin/admincmd/qvroll -id a_1; $(b) 'c'"));
}

TEST(CatalogueFile, TheNameIsTheLastWordOfTheThirdLine) {
  EXPECT_EQ(NameIn("1\n2\nx y z\n"), "z");
  EXPECT_EQ(NameIn("\n\nx  a_1600000000_FULL.f\n"), "a_1600000000_FULL.f");
  EXPECT_EQ(NameIn("1\n2\n z\n"), "z");
}

TEST(CatalogueFile, OnlyTheSpaceCharacterSeparatesWords) {
  EXPECT_EQ(NameIn("1\n2\nx y\tz\n"), "y\tz");
  EXPECT_EQ(NameIn("1\n2\nx /y z\r\n"), "z\r");
}

TEST(CatalogueFile, TheOtherLinesMayHoldAnything) {
  EXPECT_EQ(NameIn("no-blank\n a b c \nx z\n"), "z");
}

// Consumers know the name that way.
TEST(CatalogueFile, MissingNewlineCostsTheLastCharacter) {
  EXPECT_EQ(NameIn("1\n2\nx name"), "nam");
  EXPECT_EQ(NameIn("1\n2\nx n"), "");
}

TEST(CatalogueFile, ABlankAtTheEndOfTheLineLeavesAnEmptyName) {
  EXPECT_EQ(NameIn("1\n2\nx y \n"), "");
}

TEST(CatalogueFile, ABlankAtTheEndOfTheOutputThrows) {
  for (const std::string& output : {"1\n2\nx y "s, "1\n2\n "s, "1\n2\nx \0z\n"s}) {
    const LookUp look_up(output);
    ASSERT_TRUE(look_up.outcome.thrown.has_value());
    EXPECT_TRUE(look_up.outcome.thrown->type == typeid(std::out_of_range));
    EXPECT_THAT(look_up.outcome.thrown->what, StartsWith("basic_string::erase"));
    EXPECT_EQ(look_up.outcome.err, "");
  }
}

TEST(CatalogueFile, AZeroByteEndsALine) {
  EXPECT_EQ(NameIn("1\n\0 2\nx name\0 rest\n"s), "nam");
}

// The stream is given up in the middle, and the message comes behind that.
TEST(CatalogueFile, ThirdLineWithoutABlankFails) {
  for (const std::string& third : {"xyz\n5 6\n"s, "\n5 6\n"s, "x\ty\n"s, "xyz"s, "\0 z\n"s}) {
    const LookUp look_up("1 2\n3 4\n" + third);
    EXPECT_EQ(look_up.outcome.status, 1);
    EXPECT_EQ(look_up.outcome.out, "");
    EXPECT_EQ(look_up.outcome.err, "parse output of qvroll failed.\n");
    EXPECT_THAT(look_up.outcome.steps,
                ElementsAre("popen /usr/ostra/keelhaven/bin/admincmd/qvroll -id a_1",
                            "fclose qvroll", "stderr parse output of qvroll failed.\n"));
  }
}

TEST(CatalogueFile, AnyOtherNumberOfLinesFails) {
  ExpectCountMessage("");
  ExpectCountMessage("x name\n");
  ExpectCountMessage("1\nx name\n");
  ExpectCountMessage("1\n2\nx name\n4\n");
  ExpectCountMessage("1\n2\nx name\n\n");
  ExpectCountMessage("1\n2\nx name\n4\n5\n6\n");
  // As many as are 3 in a count of 8 or of 16 bits.
  ExpectCountMessage("1\n2\nx name\n" + std::string(256, '\n'));
  ExpectCountMessage("1\n2\nx name\n" + std::string(65536, '\n'));
}

TEST(CatalogueFile, APieceOfALongLineCountsAsALine) {
  const std::string piece(4194303, 'x');
  EXPECT_EQ(NameIn(piece + "\nx name\n"), "name");
  ExpectCountMessage("1\n2\n " + piece + "\n");
}

TEST(CatalogueFile, ANameMayFillALine) {
  const std::string name(4194300, 'n');
  EXPECT_TRUE(NameIn("1\n2\nx " + name + "\n") == name);
}

TEST(CatalogueFile, ARefusedCommandFails) {
  FakeHost host;
  host.Refuses();
  verbose = 1;
  std::string name;
  const Outcome outcome = host.Run([&] { return FindCatalogueFile("a_1", &name); });
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.out, "[cmd] /usr/ostra/keelhaven/bin/admincmd/qvroll -id a_1\n");
  EXPECT_EQ(outcome.err, "run command qvroll failed.\n");
}

TEST(CatalogueFile, EveryLineIsTraced) {
  for (const int level : {1, 2, 3}) {
    const LookUp look_up("1\n2\nx name\n4", level);
    EXPECT_EQ(look_up.outcome.out,
              "[cmd] /usr/ostra/keelhaven/bin/admincmd/qvroll -id a_1\n1\n2\nx name\n4");
    EXPECT_EQ(look_up.outcome.err, kCountMessage);
  }
}

TEST(CatalogueFile, TheLineThatFailsIsTracedAndNoneBehindIt) {
  const LookUp look_up("1\n2\nname\n4\n", 1);
  EXPECT_EQ(look_up.outcome.out,
            "[cmd] /usr/ostra/keelhaven/bin/admincmd/qvroll -id a_1\n1\n2\nname\n");
}

}  // namespace
