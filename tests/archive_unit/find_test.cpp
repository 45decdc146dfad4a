#include <errno.h>

#include <filesystem>
#include <string>

#include <gtest/gtest.h>

#include "archive/manifest.h"
#include "failing_calls.h"
#include "product.h"

namespace {

const std::string kOld = "2020-09-13T12:26:40Z\ta\tFiles\tDaily\ta_1600000000\t2\t";
const std::string kNew = "2023-11-14T22:13:20Z\ta\tFiles\tDaily\ta_1700000000\t2\t";
const std::string kOther = "2020-09-13T12:26:41Z\tb\tMail\tWeekly\tb_1600000001\t2\t";

class Find : public ArchiveTest {
 protected:
  Find() {
    Does("rec_unfold",
         "case \"$2\" in\n"
         "  */a/1700000000/*) printf '1\\t2\\t3\\t4\\t5\\t6\\t7\\t8\\t9\\t%s\\td\\n' "
         "/home/alice/x.txt '/home/a b\\c\"' /tmp/new ;;\n"
         "  */b/*) printf '1\\t2\\t3\\t4\\t5\\t6\\t7\\t8\\t9\\t%b\\td\\n' "
         "'/home/\\0351t\\0351' /HOME/ALICE/X.TXT ;;\n"
         "  *) printf '1\\t2\\t3\\t4\\t5\\t6\\t7\\t8\\t9\\t%s\\td\\n' /home/alice/x.txt "
         "/home/alice/y ;;\n"
         "esac\n");
    Keep(Row("a_1600000000", 2) + Row("a_1700000000", 3) +
         Row("b_1600000001", 2, "Mail", "Weekly"));
  }

  void ExpectFound(const std::vector<std::string>& arguments, const std::string& lines) {
    std::vector<std::string> all = {"find", "ARCHIVE"};
    all.insert(all.end(), arguments.begin(), arguments.end());
    EXPECT_EQ(Run(all), (Outcome{lines.empty() ? 1 : 0, lines, ""})) << arguments.front();
  }

  void RemoveFilters() const {
    for (const char* const image : {"a/a_1600000000", "a/a_1700000000", "b/b_1600000001"}) {
      ASSERT_TRUE(
          std::filesystem::remove(PathOf(std::string("images/") + image + "/paths.filter")));
    }
  }
};

}  // namespace

TEST_F(Find, PrintsImagesThatHoldAPathTheNewestFirst) {
  ExpectFound({"/home/alice/x.txt"}, kNew + "/home/alice/x.txt\n" + kOld + "/home/alice/x.txt\n");
  ExpectFound({"/home/alice/z"}, "");
  ExpectFound({"*alice*"}, kNew + "/home/alice/x.txt\n" + kOld + "/home/alice/x.txt\n" + kOld +
                               "/home/alice/y\n");
  ExpectFound({"/home/alice/y", "/tmp/*"}, kNew + "/tmp/new\n" + kOld + "/home/alice/y\n");
  ExpectFound({"/home/*", "*/alice/*", "/home/alice/x.txt"},
              kNew + "/home/alice/x.txt\n" + kNew + "/home/a b\\\\c\"\n" + kOther +
                  "/home/\xE9t\xE9\n" + kOld + "/home/alice/x.txt\n" + kOld + "/home/alice/y\n");
}

TEST_F(Find, FindsTheSameWithoutFilters) {
  const std::vector<std::vector<std::string>> kArguments = {
      {"/home/alice/x.txt"}, {"*alice*"}, {"*"},        {"/[ht]*/*", "*new"},
      {"nothing"},           {"*/new"},   {"*\\\\c\""}, {"X.TXT", "--substring"}};
  std::vector<Outcome> outcomes;
  for (std::vector<std::string> arguments : kArguments) {
    arguments.insert(arguments.begin(), {"find", "ARCHIVE"});
    outcomes.push_back(Run(arguments));
  }
  RemoveFilters();
  for (std::size_t i = 0; i < kArguments.size(); ++i) {
    std::vector<std::string> arguments = kArguments[i];
    arguments.insert(arguments.begin(), {"find", "ARCHIVE"});
    EXPECT_EQ(Run(arguments), outcomes[i]) << kArguments[i].front();
  }
}

TEST_F(Find, FindsTheSameInCompressedDocuments) {
  ASSERT_EQ(Run({"init", "ARCHIVE2", "--server", "s", "--compress", "3"}), (Outcome{0, "", ""}));
  ASSERT_EQ(Run({"sync", "ARCHIVE2", "--quiet"}), (Outcome{0, "", ""}));
  for (const char* const glob : {"/home/alice/x.txt", "*alice*", "*", "?home/*"}) {
    EXPECT_EQ(Run({"find", "ARCHIVE2", glob}), Run({"find", "ARCHIVE", glob})) << glob;
  }
}

TEST_F(Find, SubstringsAndCase) {
  ExpectFound({"alice/x", "--substring"},
              kNew + "/home/alice/x.txt\n" + kOld + "/home/alice/x.txt\n");
  ExpectFound({"a*e", "--substring"}, "");
  ExpectFound(
      {"/home/alice/X.txt", "--ignore-case"},
      kNew + "/home/alice/x.txt\n" + kOther + "/HOME/ALICE/X.TXT\n" + kOld + "/home/alice/x.txt\n");
  ExpectFound({"\xE9T", "--substring", "--ignore-case"}, kOther + "/home/\xE9t\xE9\n");
}

TEST_F(Find, ChoosesImages) {
  const std::string old = kOld + "/home/alice/x.txt\n";
  const std::string newer = kNew + "/home/alice/x.txt\n";
  ExpectFound({"*x.txt", "--client", "b"}, "");
  ExpectFound({"*x.txt", "--client", "b", "--client", "a"}, newer + old);
  ExpectFound({"*é*", "--policy", "Mail"}, "");
  ExpectFound({"*\xE9*", "--policy", "Mail"}, kOther + "/home/\xE9t\xE9\n");
  ExpectFound({"*\xE9*", "--schedule", "Daily"}, "");
  ExpectFound({"*x.txt", "--before", "1700000000"}, old);
  ExpectFound({"*x.txt", "--before", "2023-11-14T22:13:21Z"}, newer + old);
  ExpectFound({"*x.txt", "--after", "2020-09-14"}, newer);
  ExpectFound({"*x.txt", "--after", "1599999999", "--before", "1600000001"}, old);
}

TEST_F(Find, OfEachClientAndPathTheNewestImage) {
  ExpectFound({"/home/alice/*", "--newest"},
              kNew + "/home/alice/x.txt\n" + kOld + "/home/alice/y\n");
}

TEST_F(Find, PrintsLinesOfJson) {
  ExpectFound({"/home/\xE9*", "/home/a b*", "--json"},
              R"({"time":1700000000,"time_utc":"2023-11-14T22:13:20Z","client":"a",)"
              R"("policy":"Files","schedule":"Daily","backup_id":"a_1700000000","length":"2",)"
              R"("path":"/home/a b\\c\""})"
              "\n"
              R"({"time":1600000001,"time_utc":"2020-09-13T12:26:41Z","client":"b",)"
              R"("policy":"Mail","schedule":"Weekly","backup_id":"b_1600000001","length":"2",)"
              "\"path\":\"/home/\xEF\xBF\xBDt\xEF\xBF\xBD\",\"path_base64\":\"L2hvbWUv6XTp\"}\n");
}

TEST_F(Find, LongEntriesAreLookedAtWhole) {
  Does("rec_unfold",
       "fields='1\\t2\\t3\\t4\\t5\\t6\\t7\\t8\\t9\\t'\n"
       "printf \"$fields/first\\td\\n$fields/\"\n"
       "head -c 700000 /dev/zero | tr '\\000' x\n"
       "printf \"/end\\td\\n$fields/last\\td\\n\"\n");
  Lists(Row("c_1700000000", 3));
  ASSERT_EQ(Run({"sync", "ARCHIVE", "--quiet"}).status, 0);
  const std::string found = "2023-11-14T22:13:20Z\tc\tFiles\tDaily\tc_1700000000\t2\t";
  const std::string path = '/' + std::string(700'000, 'x') + "/end\n";
  ExpectFound({"*x/end", "--client", "c"}, found + path);
  ExpectFound({"?last", "--client", "c"}, found + "/last\n");
  ExpectFound({"*[dt]", "--client", "c"}, found + "/first\n" + found + path + found + "/last\n");
}

TEST_F(Find, SaysWhatCannotBeReadAndGoesOn) {
  WriteFile(PathOf("images/b/b_1600000001/manifest.json"), "x");
  const std::string document = PathOf("images/a/a_1700000000/a_1700000000.json");
  const std::string text = ReadFile(document);
  WriteFile(document, text.substr(1));
  EXPECT_EQ(Run({"find", "ARCHIVE", "*/x.txt"}),
            (Outcome{4, kOld + "/home/alice/x.txt\n",
                     "ARCHIVE/images/b/b_1600000001/manifest.json: not JSON\n"
                     "ARCHIVE/images/a/a_1700000000/a_1700000000.json: size of the file is not "
                     "that of the manifest\n"}));
}

TEST_F(Find, SaysWhyADocumentCannotBeRead) {
  FailOnce("lseek", EIO);
  EXPECT_EQ(Run({"find", "ARCHIVE", "*/new"}),
            (Outcome{4, "",
                     "can't read ARCHIVE/images/a/a_1700000000/a_1700000000.json: Input/output "
                     "error\n"}));
}

TEST_F(Find, SaysWhereADocumentIsWrong) {
  const std::string name = "images/a/a_1700000000/a_1700000000.json";
  const std::string text = ReadFile(PathOf(name));
  const std::size_t second = text.find("        {\n", text.find("x.txt"));
  std::string broken = text;
  broken.replace(broken.find("\"blknum\"", second), 8, "\"blkNum\"");
  const std::string error =
      "ARCHIVE/" + name + ": no document: wrong at byte " + std::to_string(second) + "\n";
  WriteFile(PathOf(name), broken);
  // Found with what precedes it, not looked at for what is elsewhere.
  EXPECT_EQ(Run({"find", "ARCHIVE", "*b\\\\*", "--after", "1600000001"}), (Outcome{4, "", error}));
  EXPECT_EQ(Run({"find", "ARCHIVE", "?home*", "--after", "1600000001"}),
            (Outcome{4, kNew + "/home/alice/x.txt\n", error}));
  EXPECT_EQ(Run({"find", "ARCHIVE", "*x.txt", "--after", "1600000001"}),
            (Outcome{0, kNew + "/home/alice/x.txt\n", ""}));
  std::string unended = text;
  unended.replace(unended.find("        },"), 10, "        };");
  WriteFile(PathOf(name), unended);
  EXPECT_EQ(Run({"find", "ARCHIVE", "?home*", "--after", "1600000001"}),
            (Outcome{4, "",
                     "ARCHIVE/" + name + ": no document: wrong at byte " +
                         std::to_string(text.find("        {\n")) + "\n"}));
  WriteFile(PathOf(name), broken);
  RemoveFilters();
  EXPECT_EQ(Run({"find", "ARCHIVE", "*x.txt", "--after", "1600000001"}),
            (Outcome{4, kNew + "/home/alice/x.txt\n",
                     "ARCHIVE/" + name + ": no document: wrong at byte " +
                         std::to_string(broken.find("            \"blkNum\"")) + "\n"}));
  broken = text;
  broken.replace(broken.find("\\/tmp"), 2, "/\\");
  WriteFile(PathOf(name), broken);
  EXPECT_EQ(Run({"find", "ARCHIVE", "*mp*", "--after", "1600000001"}).err,
            "ARCHIVE/" + name + ": no document: wrong at byte " +
                std::to_string(broken.rfind("        {\n")) + "\n");
}

TEST_F(Find, ADocumentThatEndsTooEarlyIsWrongThere) {
  const std::string image = "images/a/a_1700000000/";
  std::filesystem::resize_file(PathOf(image + "a_1700000000.json"), 600);
  Manifest manifest = ManifestOf(image + "manifest.json");
  manifest.document.stored_bytes = 600;
  WriteFile(PathOf(image + "manifest.json"), TextOf(manifest));
  EXPECT_EQ(
      Run({"find", "ARCHIVE", "*/new"}),
      (Outcome{4, "", "ARCHIVE/" + image + "a_1700000000.json: no document: wrong at byte 600\n"}));
}

TEST_F(Find, AnEntryWithoutEndIsNone) {
  Does("rec_unfold",
       "for entry in 1 2 3 4 5 6 7 8 9; do\n"
       "  printf '1\\t2\\t3\\t4\\t5\\t6\\t7\\t8\\t9\\t/'\n"
       "  head -c 4000000 /dev/zero | tr '\\000' x\n"
       "  printf '\\td\\n'\n"
       "done\n");
  Lists(Row("c_1700000000", 9));
  ASSERT_EQ(Run({"sync", "ARCHIVE", "--quiet"}).status, 0);
  const std::string name = "images/c/c_1700000000/c_1700000000.json";
  std::string text = ReadFile(PathOf(name));
  const std::string end = "\n        },";
  for (std::size_t at = 0; (at = text.find(end, at)) != std::string::npos;) {
    text[at + end.size() - 1] = ';';
  }
  WriteFile(PathOf(name), text);
  EXPECT_EQ(Run({"find", "ARCHIVE", "?x*", "--client", "c"}),
            (Outcome{4, "",
                     "ARCHIVE/" + name + ": no document: wrong at byte " +
                         std::to_string(text.find("        {\n")) + "\n"}));
}

TEST_F(Find, ALengthThatIsWrongIsNoLength) {
  const std::string name = "images/a/a_1700000000/a_1700000000.json";
  std::string text = ReadFile(PathOf(name));
  text.replace(text.find("\"length\": \"2\""), 13, "\"length\": \"/\"");
  WriteFile(PathOf(name), text);
  EXPECT_EQ(Run({"find", "ARCHIVE", "*x.txt", "--after", "1600000001"}),
            (Outcome{4, "",
                     "ARCHIVE/" + name + ": no document: wrong at byte " +
                         std::to_string(text.find("        {\n")) + "\n"}));
}

TEST_F(Find, AForeignDocumentIsNotOpened) {
  const std::string name = PathOf("images/a/a_1700000000/manifest.json");
  std::string text = ReadFile(name);
  const std::string file = "\"a_1700000000.json\"";
  WriteFile(name, text.replace(text.find(file), file.size(), "\"../../b/b_1600000001/x.json\""));
  EXPECT_EQ(
      Run({"find", "ARCHIVE", "*/new"}),
      (Outcome{4, "", "ARCHIVE/images/a/a_1700000000/manifest.json: names another document\n"}));
}
