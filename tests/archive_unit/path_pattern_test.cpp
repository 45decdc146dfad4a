#include "archive/path_pattern.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace {

struct MatchCase {
  std::string pattern;
  std::vector<std::string> matched;
  std::vector<std::string> others;
};

struct KnownCase {
  std::string pattern;
  std::string literal;
  std::string whole;
  std::vector<std::string> names;
};

}  // namespace

TEST(PathPattern, GlobsMatchWholePaths) {
  const std::vector<MatchCase> kCases = {
      {"/a", {"/a"}, {"/A", "/a/", "x/a", ""}},
      {"*.txt", {".txt", "/a/b.txt", "/.x.txt"}, {"/a.txt~", "/a.TXT"}},
      {"/home/*/x", {"/home/a/x", "/home/a/b/x", "/home//x"}, {"/home/x", "/home/a/xx"}},
      {"/a?", {"/ab", "/a/", "/a\xE9"}, {"/a", "/abc"}},
      {"/[a-c]", {"/a", "/c"}, {"/d", "/B"}},
      {"/[!a-c]", {"/d", "//"}, {"/b"}},
      {"/[]]", {"/]"}, {"/"}},
      {"/[", {"/["}, {"/"}},
      {R"(/\*)", {"/*"}, {"/a"}},
      {R"(C:\\x)", {R"(C:\x)"}, {"C:x"}},
      {"*\xE9*", {"/\xE9", "\xC3\xE9x"}, {"/\xC3\xA9"}},
      {"*", {"", "/", "/a\nb"}, {}},
  };
  for (const MatchCase& expected : kCases) {
    const PathPattern pattern(expected.pattern, false, false);
    for (const std::string& path : expected.matched) {
      EXPECT_TRUE(pattern.Matches(path)) << expected.pattern << ' ' << path;
    }
    for (const std::string& path : expected.others) {
      EXPECT_FALSE(pattern.Matches(path)) << expected.pattern << ' ' << path;
    }
  }
}

TEST(PathPattern, SubstringsHaveNoSigns) {
  const PathPattern pattern("*[\\", true, false);
  EXPECT_TRUE(pattern.Matches("/a*[\\b"));
  EXPECT_FALSE(pattern.Matches("/a[\\b"));
  EXPECT_EQ(pattern.literal(), "*[\\");
  EXPECT_EQ(pattern.whole(), "");
}

TEST(PathPattern, CaseOfAsciiLettersCanBeIgnored) {
  const PathPattern glob("/Home/*.TXT", false, true);
  EXPECT_TRUE(glob.Matches("/hOME/x.txt"));
  EXPECT_FALSE(glob.Matches("/hOME/x.txu"));
  EXPECT_EQ(glob.literal(), "");
  EXPECT_TRUE(glob.names().empty());
  const PathPattern substring("a\xC9", true, true);
  EXPECT_TRUE(substring.Matches("/A\xC9"));
  EXPECT_FALSE(substring.Matches("/A\xE9"));
}

TEST(PathPattern, KnowsWhatEachPathHasThatMatches) {
  const std::vector<KnownCase> kCases = {
      {"/home/a", "/home/a", "/home/a", {"home", "a"}},
      {"a", "a", "a", {"a"}},
      {"*", "", "", {}},
      {"*/b", "/b", "", {"b"}},
      {"*b", "b", "", {}},
      {"/a*/bcd/e?f/g", "/bcd/e", "", {"bcd", "g"}},
      {"/a/*", "/a/", "", {"a"}},
      {"/a//b", "/a//b", "/a//b", {"a", "b"}},
      {R"(/\*\a*)", "/*a", "", {}},
      {"/ab/[x]/cdef", "/ab/", "", {"ab"}},
      {"[/ab]", "", "", {}},
      {"/a[", "/a", "", {}},
      {"/a/\\", "/a/\\", "/a/\\", {"a", "\\"}},
  };
  for (const KnownCase& expected : kCases) {
    const PathPattern pattern(expected.pattern, false, false);
    EXPECT_EQ(pattern.literal(), expected.literal) << expected.pattern;
    EXPECT_EQ(pattern.whole(), expected.whole) << expected.pattern;
    EXPECT_EQ(pattern.names(), expected.names) << expected.pattern;
  }
}
