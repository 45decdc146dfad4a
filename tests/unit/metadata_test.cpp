#include "export/metadata.h"

#include <unistd.h>

#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <boost/property_tree/json_parser.hpp>
#include <boost/property_tree/ptree.hpp>

#include "fake_host.h"
#include "layout/layout.h"
#include "temporary_directory.h"

using namespace std::string_literals;

namespace {

using boost::property_tree::ptree;
using testing::ElementsAre;
using testing::IsEmpty;

const char* const kCommand = "/usr/ostra/keelhaven/bin/admincmd/qvmeta -json -backupid a_1";

/// A fetch, through the file a_1.tmp of a directory, of what the command prints.
struct Fetch {
  explicit Fetch(const std::string& output, int level = 0, int exit_status = 0) {
    FakeHost host;
    host.Prints(output, exit_status);
    verbose = level;
    outcome = host.Run([&] { return FetchMetadata("a_1", path, &tree); });
  }

  TemporaryDirectory directory;
  std::string path = directory.PathOf("a_1.tmp");
  ptree tree;
  Outcome outcome;
};

/// The value of the only member, "m", of the metadata that the command prints.
std::string ValueIn(const std::string& output) {
  const Fetch fetch(output);
  EXPECT_EQ(fetch.outcome.status, 0);
  EXPECT_EQ(fetch.tree.size(), 1U);
  return fetch.tree.get<std::string>("m", "no such member");
}

TEST(Metadata, TheIdIsPassedAsItIs) {
  const TemporaryDirectory directory;
  FakeHost host;
  host.Prints("{}");
  ptree tree;
  const Outcome outcome =
      host.Run([&] { return FetchMetadata("a_1; $(b) 'c'", directory.PathOf("x"), &tree); });
  EXPECT_THAT(
      outcome.commands,
      ElementsAre("/usr/ostra/keelhaven/bin/admincmd/qvmeta -json -backupid a_1; $(b) 'c'"));
}

TEST(Metadata, TheTextPassesThroughAFileThatIsGoneAfterwards) {
  const Fetch fetch("{\"b\": 1, \"a\": {\"c\": [true, null, \"x\"]}}\n");
  EXPECT_EQ(fetch.outcome.status, 0);
  EXPECT_EQ(fetch.outcome.out, "");
  EXPECT_EQ(fetch.outcome.err, "");
  EXPECT_THAT(fetch.outcome.steps,
              ElementsAre("fopen " + fetch.path + " wte", "popen "s + kCommand, "pclose qvmeta",
                          "fclose " + fetch.path, "unlink " + fetch.path));
  EXPECT_THAT(fetch.directory.FileNames(), IsEmpty());
  ptree expected;
  expected.push_back({"b", ptree("1")});
  ptree& array = expected.push_back({"a", ptree()})->second.push_back({"c", ptree()})->second;
  array.push_back({"", ptree("true")});
  array.push_back({"", ptree("null")});
  array.push_back({"", ptree("x")});
  EXPECT_TRUE(fetch.tree == expected);
}

TEST(Metadata, AnExistingFileIsReplaced) {
  const TemporaryDirectory directory;
  WriteFile(directory.PathOf("x"), std::string(1000, '{'));
  FakeHost host;
  host.Prints("{\"m\": 1}");
  ptree tree;
  const Outcome outcome =
      host.Run([&] { return FetchMetadata("a_1", directory.PathOf("x"), &tree); });
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(tree.get<std::string>("m"), "1");
}

TEST(Metadata, AFileThatCannotBeCreatedFails) {
  const TemporaryDirectory directory;
  for (const std::string& path : {directory.PathOf("missing/x"), directory.path()}) {
    FakeHost host;
    verbose = 3;
    ptree tree;
    const Outcome outcome = host.Run([&] { return FetchMetadata("a_1", path, &tree); });
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.out, "");
    EXPECT_EQ(outcome.err, "fopen() failed. can't create file " + path + "\n");
    EXPECT_THAT(outcome.commands, IsEmpty());
  }
}

TEST(Metadata, ARefusedCommandLeavesAnEmptyFile) {
  const TemporaryDirectory directory;
  const std::string path = directory.PathOf("x");
  WriteFile(path, "before");
  FakeHost host;
  host.Refuses();
  verbose = 1;
  ptree tree;
  const Outcome outcome = host.Run([&] { return FetchMetadata("a_1", path, &tree); });
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.out, "[cmd] "s + kCommand + "\n");
  EXPECT_THAT(outcome.steps, ElementsAre("fopen " + path + " wte", "popen "s + kCommand,
                                         "stderr run command qvmeta failed.\n", "fclose " + path));
  EXPECT_EQ(ReadFile(path), "");
}

TEST(Metadata, TextThatIsNoJsonStaysInTheFile) {
  for (const std::string& output :
       {""s, "error: no such image\n"s, "{}\n{}"s, "{\n"s, "\n\n{,}\n"s}) {
    const Fetch fetch(output);
    const auto expected = WhatIsThrownBy([&] {
      ptree tree;
      boost::property_tree::read_json(fetch.path, tree);
    });
    ASSERT_TRUE(expected.has_value());
    EXPECT_EQ(fetch.outcome.thrown, expected);
    EXPECT_EQ(fetch.outcome.err, "");
    EXPECT_EQ(ReadFile(fetch.path), output);
    EXPECT_THAT(fetch.outcome.steps,
                ElementsAre("fopen " + fetch.path + " wte", "popen "s + kCommand, "pclose qvmeta",
                            "fclose " + fetch.path));
  }
}

TEST(Metadata, TheErrorNamesTheFileAndTheLine) {
  const Fetch fetch("{\n\"m\":\n}\n");
  ASSERT_TRUE(fetch.outcome.thrown.has_value());
  EXPECT_EQ(fetch.outcome.thrown->what, fetch.path + "(3): expected value");
}

TEST(Metadata, AFileThatIsGoneCannotBeRead) {
  const TemporaryDirectory directory;
  const std::string path = directory.PathOf("x");
  FakeHost host;
  host.Prints("{}").OnStart([&] { std::remove(path.c_str()); });
  ptree tree;
  const Outcome outcome = host.Run([&] { return FetchMetadata("a_1", path, &tree); });
  ASSERT_TRUE(outcome.thrown.has_value());
  EXPECT_EQ(outcome.thrown->what, path + ": cannot open file");
  EXPECT_EQ(outcome.err, "");
}

TEST(Metadata, AFileThatCannotBeRemovedIsNoFailure) {
  const TemporaryDirectory directory;
  FakeHost host;
  host.Prints("{}");
  host.RefuseUnlink();
  ptree tree;
  const Outcome outcome =
      host.Run([&] { return FetchMetadata("a_1", directory.PathOf("x"), &tree); });
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.err, "");
  EXPECT_EQ(ReadFile(directory.PathOf("x")), "{}");
}

TEST(Metadata, TheExitStatusOfTheCommandIsNotLookedAt) {
  const Fetch fetch("{}", 0, 1);
  EXPECT_EQ(fetch.outcome.status, 0);
  EXPECT_EQ(fetch.outcome.err, "");
}

TEST(Metadata, DoubledPercentSignsAreSingleInTheTree) {
  EXPECT_EQ(ValueIn("{\"m\":\n\"100%% of 5%%%%\"}\n"), "100% of 5%%");
  EXPECT_EQ(ValueIn("{\"m\": \"100% %s %n %5d %\"}\n"), "100% %s %n %5d %");
}

TEST(Metadata, EachLineIsUndoubledByItself) {
  // The newline between the two signs makes the text no JSON, which leaves the file to look at.
  const Fetch fetch("%%\n%\n%%%\n%");
  EXPECT_EQ(ReadFile(fetch.path), "%\n%\n%%\n%");
}

TEST(Metadata, APieceOfALongLineIsUndoubledByItself) {
  const std::string start = R"({"m":")";
  const std::string filling(4194303 - start.size() - 1, 'a');
  const std::string value = ValueIn(start + filling + R"(%%b%%"})");
  EXPECT_TRUE(value == filling + "%%b%");
}

TEST(Metadata, AZeroByteDropsTheRestOfItsLine) {
  EXPECT_EQ(ValueIn("{\"m\": \"kept\"\0dropped\n}\0dropped\n"s), "kept");
}

TEST(Metadata, EscapesAreRead) {
  EXPECT_EQ(ValueIn("{\"m\": \"\\\"\\\\\\/\\b\\f\\n\\r\\t\\u0001\\u00e4\"}\r\n"),
            "\"\\/\b\f\n\r\t\x01\xc3\xa4");
}

TEST(Metadata, LinesAreTracedAsTheyAreRead) {
  for (const int level : {1, 2, 3}) {
    const Fetch fetch("{\"m\":\n\"%%d\"}", level);
    EXPECT_EQ(fetch.outcome.out, "[cmd] "s + kCommand + "\n{\"m\":\n\"%%d\"}");
    EXPECT_EQ(fetch.outcome.err, "");
  }
}

/// Metadata whose member "m" is nested so many levels deep, its own object among them.
std::string Nested(std::size_t levels, const std::string& innermost = "") {
  return "{\"m\":\n" + std::string(levels - 1, '[') + innermost + std::string(levels - 1, ']') +
         "}\n";
}

TEST(Metadata, TenThousandLevelsAreRead) {
#ifdef __SANITIZE_ADDRESS__
  GTEST_SKIP() << "the frames of an instrumented reader are too large for the stack";
#endif
  const Fetch fetch(Nested(10000));
  EXPECT_EQ(fetch.outcome.thrown, std::nullopt);
  EXPECT_EQ(fetch.outcome.status, 0);
  EXPECT_THAT(fetch.directory.FileNames(), IsEmpty());
}

TEST(Metadata, MoreLevelsAreRefused) {
  for (const std::string& output : {Nested(10001), Nested(10000, "{}"), Nested(1000000),
                                    std::string(10001, '['), "[" + Nested(10000) + ",[]]"}) {
    const Fetch fetch(output);
    ASSERT_TRUE(fetch.outcome.thrown.has_value());
    EXPECT_EQ(fetch.outcome.thrown->what, fetch.path + ": nested too deeply");
    EXPECT_EQ(fetch.outcome.err, "");
    EXPECT_TRUE(ReadFile(fetch.path) == output);
    EXPECT_EQ(fetch.outcome.steps.back(), "fclose " + fetch.path);
  }
}

TEST(Metadata, LevelsAreRefusedAsTextThatIsNoJson) {
  const Fetch deep(Nested(10001));
  const Fetch invalid("error\n");
  ASSERT_TRUE(deep.outcome.thrown.has_value());
  ASSERT_TRUE(invalid.outcome.thrown.has_value());
  EXPECT_TRUE(deep.outcome.thrown->type == invalid.outcome.thrown->type);
}

TEST(Metadata, BracketsInsideTextAreNoLevels) {
  const std::string brackets(20000, '[');
  EXPECT_TRUE(ValueIn(R"({"m":")" + brackets + "\"}") == brackets);
  EXPECT_TRUE(ValueIn(R"({"m":"\")" + brackets + R"(\\"})") == '"' + brackets + '\\');
  EXPECT_TRUE(ValueIn(R"({"m":"\\\")" + brackets + "\"}") == "\\\"" + brackets);
}

TEST(Metadata, LevelsBesideEachOtherDoNotAddUp) {
  std::string output = "[{}";
  for (int i = 0; i < 20000; ++i) {
    output += ",[{}]";
  }
  const Fetch fetch(output + "]");
  EXPECT_EQ(fetch.outcome.status, 0);
  EXPECT_EQ(fetch.tree.size(), 20001U);
}

TEST(UndoublePercents, ADoubledSignBecomesOne) {
  EXPECT_EQ(UndoublePercents(""), "");
  EXPECT_EQ(UndoublePercents("plain"), "plain");
  EXPECT_EQ(UndoublePercents("%%"), "%");
  EXPECT_EQ(UndoublePercents("%%%%"), "%%");
  EXPECT_EQ(UndoublePercents("a%%b%%c\n"), "a%b%c\n");
  EXPECT_EQ(UndoublePercents("%%d%%s"), "%d%s");
}

TEST(UndoublePercents, ASingleSignStaysWithAllThatFollows) {
  EXPECT_EQ(UndoublePercents("%"), "%");
  EXPECT_EQ(UndoublePercents("%%%"), "%%");
  EXPECT_EQ(UndoublePercents("%d %5.3f %s %n %"), "%d %5.3f %s %n %");
  EXPECT_EQ(UndoublePercents("% %"), "% %");
  EXPECT_EQ(UndoublePercents("%1$s%%%-5%"), "%1$s%%-5%");
}

TEST(UndoublePercents, ManySignsTakeNoTime) {
  EXPECT_TRUE(UndoublePercents(std::string(400000, '%')) == std::string(200000, '%'));
}

}  // namespace
