#include <errno.h>
#include <unistd.h>

#include <filesystem>
#include <string>

#include <gtest/gtest.h>

#include "failing_calls.h"
#include "product.h"

namespace {

const std::string kHeader =
    "server\tclient\tpolicy\tschedule\ttime\tbackup_id\tfilenum\tlength\tplength\tdlength\tblknum\t"
    "in_image\traw_partition_sz\tgigabytes\tdevice_num\tpath\tdata\n";

class Entries : public ArchiveTest {
 protected:
  Entries() {
    Does("rec_unfold",
         "case \"$2\" in\n"
         "  */b/*) printf '1\\t2\\t3\\t4\\t5\\t6\\t7\\t8\\t9\\t%b\\t%b\\n' "
         "'/\\0351' 'a\\0001\\r' ;;\n"
         "  */c/*) ;;\n"
         "  *) printf '1\\t2\\t3\\t4\\t5\\t6\\t7\\t8\\t9\\t%s\\td\\n' /x 'C:\\y\"' ;;\n"
         "esac\n");
    Lists(Row("a_1600000000", 2) + Row("b_1600000001", 1, "Mail\\", "Weekly") +
          Row("c_1500000000", 1));
    EXPECT_EQ(Run({"init", "ARCHIVE", "--server", "s"}), (Outcome{0, "", ""}));
    EXPECT_EQ(Run({"sync", "ARCHIVE", "--quiet"}),
              (Outcome{0, "", "c_1500000000: 0 entries, but 1 files listed\n"}));
  }

  [[nodiscard]] std::string Document() const {
    return ReadFile(PathOf("images/a/a_1600000000/a_1600000000.json"));
  }

  std::string WriteDocument(const std::string& text) const {
    WriteFile(directory_.PathOf("document"), text);
    return directory_.PathOf("document");
  }
};

/// Standard input is a pipe with `text` in it, of at most 64 KiB, as long as this lives.
class PipedInput {
 public:
  explicit PipedInput(const std::string& text) : former_(dup(STDIN_FILENO)) {
    int ends[2] = {};
    EXPECT_EQ(pipe(ends), 0);
    EXPECT_EQ(write(ends[1], text.data(), text.size()), static_cast<ssize_t>(text.size()));
    close(ends[1]);
    dup2(ends[0], STDIN_FILENO);
    close(ends[0]);
  }
  ~PipedInput() {
    dup2(former_, STDIN_FILENO);
    close(former_);
  }
  PipedInput(const PipedInput&) = delete;
  PipedInput& operator=(const PipedInput&) = delete;

 private:
  int former_;
};

}  // namespace

TEST_F(Entries, OfAnArchiveAreLinesTheNewestImageFirst) {
  EXPECT_EQ(
      Run({"entries", "ARCHIVE", "--header"}),
      (Outcome{0,
               kHeader +
                   "s\tb\tMail\\\\\tWeekly\t1600000001\tb_1600000001\t1\t2\t3\t4\t5\t6\t7\t8\t"
                   "9\t/\xE9\ta\x01\\r\n"
                   "s\ta\tFiles\tDaily\t1600000000\ta_1600000000\t1\t2\t3\t4\t5\t6\t7\t8\t9\t"
                   "/x\td\n"
                   "s\ta\tFiles\tDaily\t1600000000\ta_1600000000\t1\t2\t3\t4\t5\t6\t7\t8\t9\t"
                   "C:\\\\y\"\td\n",
               ""}));
}

TEST_F(Entries, OfADocumentHaveNoImage) {
  const std::string line = "\t\t\t\t\t\t1\t2\t3\t4\t5\t6\t7\t8\t9\t";
  const Outcome expected = {0, line + "/x\td\n" + line + "C:\\\\y\"\td\n", ""};
  EXPECT_EQ(Run({"entries", "ARCHIVE/images/a/a_1600000000/a_1600000000.json"}), expected);
  EXPECT_EQ(Run({"entries", WriteDocument(Document())}), expected);
  EXPECT_EQ(Run({"entries", "ARCHIVE/images/c/c_1500000000/c_1500000000.json"}),
            (Outcome{0, "", ""}));
}

TEST_F(Entries, HaveTheColumnsThatAreNamed) {
  EXPECT_EQ(Run({"entries", "ARCHIVE/images/a/a_1600000000", "--columns", "path,client,path",
                 "--header"}),
            (Outcome{0, "path\tclient\tpath\n/x\ta\t/x\nC:\\\\y\"\ta\tC:\\\\y\"\n", ""}));
  EXPECT_EQ(Run({"entries", "ARCHIVE", "--columns", "path,"}).err,
            "--columns: path, is no LIST\nRun with --help for more information.\n");
}

TEST_F(Entries, AreLinesOfJson) {
  EXPECT_EQ(
      Run({"entries", "ARCHIVE", "--format", "ndjson", "--columns",
           "server,policy,time,length,path,data", "--client", "b"}),
      (Outcome{0,
               "{\"server\":\"s\",\"policy\":\"Mail\\\\\",\"time\":1600000001,\"length\":\"2\","
               "\"path\":\"/\xEF\xBF\xBD\",\"path_base64\":\"L+k=\",\"data\":\"a\\u0001\\r\"}\n",
               ""}));
  EXPECT_EQ(Run({"entries", WriteDocument(Document()), "--format", "ndjson", "--header",
                 "--columns", "client,time,path"}),
            (Outcome{0,
                     "{\"client\":null,\"time\":null,\"path\":\"/x\"}\n"
                     "{\"client\":null,\"time\":null,\"path\":\"C:\\\\y\\\"\"}\n",
                     ""}));
}

TEST_F(Entries, FiltersChooseImages) {
  EXPECT_EQ(Run({"entries", "ARCHIVE", "--columns", "path", "--client", "b"}),
            (Outcome{0, "/\xE9\n", ""}));
  EXPECT_EQ(Run({"entries", "ARCHIVE/images/a/a_1600000000", "--columns", "path", "--client", "b"}),
            (Outcome{0, "", ""}));
  const std::string document = WriteDocument(Document());
  for (const std::string filter :
       {"--client=b", "--policy=b", "--schedule=b", "--before=1", "--after=1"}) {
    EXPECT_EQ(
        Run({"entries", document, filter}),
        (Outcome{2, "", document + ": filters choose images, and this is a document alone\n"}))
        << filter;
  }
}

TEST_F(Entries, OfACutDocumentComeBeforeTheErrorThatSaysWhere) {
  const std::string document = Document();
  const std::size_t second = document.find("        {\n", document.find("\"data\""));
  const std::size_t end = document.find("    ]\n");
  for (std::size_t size = 0; size < document.size(); ++size) {
    const std::string path = WriteDocument(document.substr(0, size));
    const Outcome outcome = Run({"entries", path, "--columns", "length"});
    const std::size_t line = size == 0 ? 0 : document.rfind('\n', size - 1) + 1;
    const std::size_t wrong_at = size > 0 && document[size - 1] == '\n' ? size : line;
    EXPECT_EQ(outcome.status, 1) << size;
    EXPECT_EQ(outcome.err,
              path + ": no document: wrong at byte " + std::to_string(wrong_at) + "\n");
    EXPECT_EQ(outcome.out, size < second ? "" : size < end ? "2\n" : "2\n2\n");
  }
}

TEST_F(Entries, OfTwoFentriesTheLastCount) {
  const std::string document = Document();
  const std::string entries = document.substr(document.find("    \"fentries\": ["));
  const std::string first = entries.substr(0, entries.size() - 3) + ",\n";
  const std::string path = WriteDocument("{\n" + first + entries);
  EXPECT_EQ(Run({"entries", path, "--columns", "path"}), (Outcome{0, "/x\nC:\\\\y\"\n", ""}));
  EXPECT_EQ(Run({"entries", WriteDocument("{\n" + first + "    \"fentries\": \"\"\n}\n")}),
            (Outcome{0, "", ""}));
}

TEST_F(Entries, ComeFromAPipeAsWell) {
  // Also from one that has a name.
  for (const std::string source : {"-", "/dev/stdin"}) {
    const PipedInput input(Document());
    EXPECT_EQ(Run({"entries", source, "--columns", "path"}), (Outcome{0, "/x\nC:\\\\y\"\n", ""}));
  }
  EXPECT_EQ(
      Run({"entries", "-", "--client", "b"}),
      (Outcome{2, "", "standard input: filters choose images, and this is a document alone\n"}));
}

TEST_F(Entries, OfTwoFentriesCantBeToldInAPipe) {
  const std::string document = Document();
  const std::string entries = document.substr(document.find("    \"fentries\": ["));
  const PipedInput input("{\n" + entries.substr(0, entries.size() - 3) + ",\n" + entries);
  EXPECT_EQ(Run({"entries", "-", "--columns", "path"}),
            (Outcome{1, "/x\nC:\\\\y\"\n",
                     "standard input: two \"fentries\", of which the last counts: can't tell in a "
                     "stream\n"}));
}

TEST_F(Entries, NeedNoFilter) {
  EXPECT_TRUE(std::filesystem::remove(PathOf("images/a/a_1600000000/paths.filter")));
  EXPECT_EQ(Run({"entries", "ARCHIVE/images/a/a_1600000000", "--columns", "path"}),
            (Outcome{0, "/x\nC:\\\\y\"\n", ""}));
}

TEST_F(Entries, MayBeMany) {
  const std::string document = Document();
  const std::size_t begin = document.find("        {\n");
  const std::string entry = document.substr(begin, document.find("        {\n", begin + 1) - begin);
  std::string text = document.substr(0, begin);
  std::string lines;
  for (int i = 0; i < 30'000; ++i) {
    text += entry;
    lines += "/x\td\n";
  }
  text += document.substr(begin + entry.size());
  EXPECT_EQ(Run({"entries", WriteDocument(text), "--columns", "path,data"}),
            (Outcome{0, lines + "C:\\\\y\"\td\n", ""}));
}

TEST_F(Entries, WrongValuesAreNoEntries) {
  std::string document = Document();
  document.replace(document.find("\\/x"), 3, "\\xx");
  const std::string path = WriteDocument(document);
  for (const std::string format : {"tsv", "ndjson"}) {
    EXPECT_EQ(Run({"entries", path, "--format", format}),
              (Outcome{1, "",
                       path + ": no document: wrong at byte " +
                           std::to_string(document.find("        {\n")) + "\n"}));
  }
}

TEST_F(Entries, OfOtherImagesComeWhenOneIsBroken) {
  WriteFile(PathOf("images/b/b_1600000001/manifest.json"), "x");
  EXPECT_EQ(
      Run({"entries", "ARCHIVE", "--columns", "path"}),
      (Outcome{4, "/x\nC:\\\\y\"\n", "ARCHIVE/images/b/b_1600000001/manifest.json: not JSON\n"}));
}

TEST_F(Entries, AreAsManyAsTheManifestSays) {
  const std::string name = "ARCHIVE/images/a/a_1600000000/";
  const std::string manifest = PathOf("images/a/a_1600000000/manifest.json");
  std::string text = ReadFile(manifest);
  WriteFile(manifest, text.replace(text.find("\"entries\": 2"), 12, "\"entries\": 3"));
  EXPECT_EQ(Run({"entries", name, "--columns", "path"}),
            (Outcome{1, "/x\nC:\\\\y\"\n",
                     name + "a_1600000000.json: 2 entries, but 3 in the manifest\n"}));
}

TEST_F(Entries, NeedSourcesThatCanBeRead) {
  const std::string path = directory_.PathOf("none");
  EXPECT_EQ(Run({"entries", path, "ARCHIVE/images", "ARCHIVE/images/c/c_1500000000"}),
            (Outcome{4, "",
                     "can't open " + path + ": No such file or directory\n" +
                         "ARCHIVE/images/manifest.json: no such file\n"}));
  FailOnce("lseek", EIO);
  const std::string document = WriteDocument(Document());
  EXPECT_EQ(Run({"entries", document}),
            (Outcome{4, "", "can't read " + document + ": Input/output error\n"}));
}
