#include <errno.h>

#include <ctime>
#include <filesystem>
#include <string>

#include <gtest/gtest.h>

#include "failing_calls.h"
#include "product.h"

namespace {

const std::string kRows =
    Row("a_1600000000", 1) + Row("a_1600003600", 1) + Row("b_1600000000", 1, "Files", "Weekly") +
    Row("b_1600000001", 0, "Files", "Weekly") + Row("b_1600000002", 1, "Files", "Weekly") +
    Row("c_xxxx", 1) + Row("d_1600000000", 0) + Row("d_1600000001", 1);

class List : public ArchiveTest {
 protected:
  List() { Keep(kRows); }
};

}  // namespace

TEST_F(List, ShowsSeries) {
  // Each document has 381 bytes.
  EXPECT_EQ(
      Run({"list", "ARCHIVE"}),
      (Outcome{0,
               "CLIENT  POLICY  SCHEDULE  SETS  IMAGES  NEWEST                OLDEST          "
               "      ENTRIES  BYTES\n"
               "a       Files   Daily        2       2  2020-09-13T13:26:40Z  "
               "2020-09-13T12:26:40Z        2  762 B\n"
               "b       Files   Weekly       1       2  2020-09-13T12:26:41Z  "
               "2020-09-13T12:26:41Z        2  762 B\n"
               "c       Files   Daily        1       1  1970-01-01T00:00:00Z  "
               "1970-01-01T00:00:00Z        1  381 B\n"
               "d       Files   Daily        0       1  -                     -               "
               "            1  381 B\n",
               ""}));
  EXPECT_EQ(Run({"list", "ARCHIVE", "--json"}),
            (Outcome{0,
                     "[\n"
                     R"({"client":"a","policy":"Files","schedule":"Daily","sets":2,"images":2,)"
                     R"("newest":1600003600,"newest_utc":"2020-09-13T13:26:40Z",)"
                     R"("oldest":1600000000,"oldest_utc":"2020-09-13T12:26:40Z",)"
                     R"("entries":2,"document_bytes":762,"stored_bytes":762},)"
                     "\n"
                     R"({"client":"b","policy":"Files","schedule":"Weekly","sets":1,"images":2,)"
                     R"("newest":1600000001,"newest_utc":"2020-09-13T12:26:41Z",)"
                     R"("oldest":1600000001,"oldest_utc":"2020-09-13T12:26:41Z",)"
                     R"("entries":2,"document_bytes":762,"stored_bytes":762},)"
                     "\n"
                     R"({"client":"c","policy":"Files","schedule":"Daily","sets":1,"images":1,)"
                     R"("newest":0,"newest_utc":"1970-01-01T00:00:00Z",)"
                     R"("oldest":0,"oldest_utc":"1970-01-01T00:00:00Z",)"
                     R"("entries":1,"document_bytes":381,"stored_bytes":381},)"
                     "\n"
                     R"({"client":"d","policy":"Files","schedule":"Daily","sets":0,"images":1,)"
                     R"("newest":null,"newest_utc":null,"oldest":null,"oldest_utc":null,)"
                     R"("entries":1,"document_bytes":381,"stored_bytes":381})"
                     "\n]\n",
                     ""}));
}

TEST_F(List, ShowsSets) {
  EXPECT_EQ(
      Run({"list", "ARCHIVE", "--sets"}),
      (Outcome{0,
               "CLIENT  POLICY  SCHEDULE  TIME                  IMAGES    SIZE  BACKUP ID\n"
               "a       Files   Daily     2020-09-13T12:26:40Z       1  4.1 kB  a_1600000000\n"
               "a       Files   Daily     2020-09-13T13:26:40Z       1  4.1 kB  a_1600003600\n"
               "b       Files   Weekly    2020-09-13T12:26:41Z       1  2.0 kB  b_1600000001\n"
               "c       Files   Daily     1970-01-01T00:00:00Z       1  2.0 kB  c_xxxx\n",
               ""}));
  const Outcome json = Run({"list", "ARCHIVE", "--sets", "--json"});
  EXPECT_EQ(json.out.substr(0, json.out.find('\n', 2) + 1),
            "[\n"
            R"({"client":"a","policy":"Files","schedule":"Daily","backup_id":"a_1600000000",)"
            R"("create_time":1600000000,"create_time_utc":"2020-09-13T12:26:40Z",)"
            R"("size_bytes":4096,"images":1},)"
            "\n");
}

TEST_F(List, ShowsImages) {
  EXPECT_EQ(Run({"list", "ARCHIVE", "--images"}),
            (Outcome{0,
                     "BACKUP ID     POLICY  SCHEDULE  TIME                  ENTRIES  BYTES\n"
                     "a_1600000000  Files   Daily     2020-09-13T12:26:40Z        1  381 B\n"
                     "a_1600003600  Files   Daily     2020-09-13T13:26:40Z        1  381 B\n"
                     "b_1600000000  Files   Weekly    2020-09-13T12:26:40Z        1  381 B\n"
                     "b_1600000002  Files   Weekly    2020-09-13T12:26:42Z        1  381 B\n"
                     "c_xxxx        Files   Daily     1970-01-01T00:00:00Z        1  381 B\n"
                     "d_1600000001  Files   Daily     2020-09-13T12:26:41Z        1  381 B\n",
                     ""}));
  const std::string exported =
      std::to_string(ManifestOf("images/a/a_1600000000/manifest.json").exported);
  const Outcome json = Run({"list", "ARCHIVE", "--images", "--json"});
  EXPECT_EQ(json.out.find(
                R"([
{"client":"a","policy":"Files","schedule":"Daily","backup_id":"a_1600000000",)"
                R"("backup_time":1600000000,"backup_time_utc":"2020-09-13T12:26:40Z",)"
                R"("size_bytes":2048,"files":1,"exported":)" +
                exported + R"(,"exported_utc":")"),
            0U);
  EXPECT_NE(json.out.find(R"(Z","entries":1,"document_bytes":381,"stored_bytes":381},)"),
            std::string::npos);
}

TEST_F(List, ShowsStaleSeries) {
  const std::string now = std::to_string(std::time(nullptr) - 3600);
  Lists(Row("e_" + now, 1));
  ASSERT_EQ(Run({"sync", "ARCHIVE", "--quiet"}).status, 0);
  // The set at the time 0 has no age, and that of an hour ago is young enough.
  const Outcome stale = Run({"list", "ARCHIVE", "--stale", "26h", "--json"});
  EXPECT_EQ(stale.status, 1);
  for (const auto& [client, is_stale] : {std::pair<std::string, bool>{"a", true},
                                         {"b", true},
                                         {"c", false},
                                         {"d", true},
                                         {"e", false}}) {
    EXPECT_EQ(stale.out.find("{\"client\":\"" + client) != std::string::npos, is_stale) << client;
  }
  EXPECT_EQ(Run({"list", "ARCHIVE", "--stale", "1000000w"}), (Outcome{0, "", ""}));
  EXPECT_EQ(Run({"list", "ARCHIVE", "--stale", "1000000w", "--json"}), (Outcome{0, "[]\n", ""}));
}

TEST_F(List, SaysWhatCannotBeRead) {
  WriteFile(PathOf("images/a/a_1600000000/manifest.json"), "x");
  std::filesystem::remove(PathOf("images/a/a_1600003600/manifest.json"));
  std::filesystem::remove(PathOf("images/b/b_1600000000/manifest.json"));
  std::filesystem::create_symlink("x", PathOf("images/b/b_1600000000/manifest.json"));
  EXPECT_EQ(Run({"list", "ARCHIVE", "--images", "--json"}).status, 4);
  EXPECT_EQ(Run({"list", "ARCHIVE", "--images"}),
            (Outcome{4,
                     "BACKUP ID     POLICY  SCHEDULE  TIME                  ENTRIES  BYTES\n"
                     "b_1600000002  Files   Weekly    2020-09-13T12:26:42Z        1  381 B\n"
                     "c_xxxx        Files   Daily     1970-01-01T00:00:00Z        1  381 B\n"
                     "d_1600000001  Files   Daily     2020-09-13T12:26:41Z        1  381 B\n",
                     "ARCHIVE/images/a/a_1600000000/manifest.json: not JSON\n"
                     "ARCHIVE/images/a/a_1600003600/manifest.json: no such file\n"
                     "ARCHIVE/images/b/b_1600000000/manifest.json is a symbolic link\n"}));
  WriteFile(PathOf("sets/c/Files/Daily/x.json"), "{}");
  EXPECT_EQ(Run({"list", "ARCHIVE", "--sets"}).err,
            "ARCHIVE/sets/c/Files/Daily/x.json: not of quillmere-archive\n");
  WriteFile(PathOf("sets/stray"), "");
  std::filesystem::remove_all(PathOf("images"));
  EXPECT_EQ(Run({"list", "ARCHIVE", "--images"}), (Outcome{0, "", ""}));
}

TEST_F(List, SaysWhichSetCannotBeRead) {
  // The first one is of archive.json.
  FailOnce("read", EIO, 1);
  EXPECT_EQ(
      Run({"list", "ARCHIVE", "--sets"}),
      (Outcome{4,
               "CLIENT  POLICY  SCHEDULE  TIME                  IMAGES    SIZE  BACKUP ID\n"
               "a       Files   Daily     2020-09-13T13:26:40Z       1  4.1 kB  a_1600003600\n"
               "b       Files   Weekly    2020-09-13T12:26:41Z       1  2.0 kB  b_1600000001\n"
               "c       Files   Daily     1970-01-01T00:00:00Z       1  2.0 kB  c_xxxx\n",
               "can't read ARCHIVE/sets/a/Files/Daily/1600000000.json: Input/output error\n"}));
}

TEST_F(List, ATimeBeyondTheYear9999IsANumber) {
  Lists(Row("e_253402300800", 1));
  ASSERT_EQ(Run({"sync", "ARCHIVE", "--quiet"}), (Outcome{0, "", ""}));
  const std::string out = Run({"list", "ARCHIVE", "--images"}).out;
  EXPECT_EQ(out.substr(out.find("e_")),
            "e_253402300800  Files   Daily     253402300800                1  381 B\n");
}

TEST_F(List, SetsOfAllRowsCanFail) {
  std::filesystem::remove_all(PathOf("sets/a"));
  std::filesystem::create_directories(PathOf("sets/a/Files/Daily"));
  std::filesystem::create_symlink("x", PathOf("sets/a/Files/Daily/1.json"));
  EXPECT_EQ(Run({"list", "ARCHIVE", "--sets"}).status, 0);
  std::filesystem::remove_all(PathOf("sets"));
  EXPECT_EQ(Run({"list", "ARCHIVE", "--sets"}), (Outcome{0, "", ""}));
}
