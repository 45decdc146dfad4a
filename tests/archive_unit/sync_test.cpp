#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "product.h"
#include "terminal.h"

using Sync = ArchiveTest;

namespace {

const std::string kSummary =
    "1 exported, 0 failed, 0 expired, 0 warnings; sets: 1 written, 0 removed, 0 waiting for "
    "images\n";

/// The last line of `text`.
std::string LastLine(const std::string& text) {
  return text.substr(text.rfind('\n', text.size() - 2) + 1);
}

/// The ids of the lines that say what would be exported, in their order.
std::vector<std::string> Planned(const Outcome& outcome) {
  std::vector<std::string> ids;
  std::istringstream lines(outcome.out);
  for (std::string line; std::getline(lines, line);) {
    const std::size_t end = line.find(": would be exported");
    if (end != std::string::npos) {
      ids.push_back(line.substr(0, end));
    }
  }
  return ids;
}

}  // namespace

TEST_F(Sync, ExportsAnImageOnce) {
  Lists(Row("alpha_1600000000", 1));
  ASSERT_EQ(Run({"init", "ARCHIVE", "--server", "s"}).status, 0);
  EXPECT_EQ(Run({"sync", "ARCHIVE"}),
            (Outcome{0,
                     "alpha_1600000000: 1 entries, " + std::to_string(kDocument.size()) +
                         " bytes\n" + kSummary,
                     ""}));
  const std::map<std::string, std::string> files = Files("images");
  ASSERT_EQ(files.size(), 4U);
  EXPECT_TRUE(files.contains("images/alpha/alpha_1600000000/paths.filter"));
  const std::string image = "images/alpha/alpha_1600000000";
  EXPECT_EQ(files.at(image + "/alpha_1600000000.json"), kDocument);
  EXPECT_EQ(
      std::system(("cd " + PathOf(image) + " && sha256sum --check --quiet SHA256SUMS").c_str()), 0);
  EXPECT_EQ(Run({"sync", "ARCHIVE"}),
            (Outcome{0,
                     "0 exported, 0 failed, 0 expired, 0 warnings; sets: 0 written, 0 removed, 0 "
                     "waiting for images\n",
                     ""}));
  EXPECT_EQ(Files("images"), files);
  EXPECT_TRUE(std::filesystem::is_empty(PathOf(".staging")));
}

TEST_F(Sync, OnATerminalALineIsRedrawn) {
  Lists(Row("alpha_1600000000", 1));
  ASSERT_EQ(Run({"init", "ARCHIVE", "--server", "s"}).status, 0);
  const std::string shown = Terminal().With({STDOUT_FILENO}, [&] {
    EXPECT_EQ(RunAsItIs({"sync", "ARCHIVE"}), 0);
  });
  EXPECT_THAT(shown, testing::StartsWith("\r\x1B[K"));
  EXPECT_THAT(shown, testing::Not(testing::HasSubstr("alpha_")));
  EXPECT_THAT(shown, testing::EndsWith("\r\x1B[K" + kSummary));
}

TEST_F(Sync, AManifestSaysAllThatIsKnown) {
  const std::int64_t before = std::time(nullptr);
  Keep(Row("alpha_1600000000", 1, "Files", "Daily", "3.5M"));
  const Manifest manifest = ManifestOf("images/alpha/alpha_1600000000/manifest.json");
  EXPECT_EQ(manifest.program, kProgram);
  EXPECT_EQ(manifest.server, "s");
  EXPECT_EQ(manifest.client, "alpha");
  EXPECT_EQ(manifest.policy, "Files");
  EXPECT_EQ(manifest.schedule, "Daily");
  EXPECT_EQ(manifest.backup_id, "alpha_1600000000");
  EXPECT_EQ(manifest.backup_time, 1600000000);
  EXPECT_EQ(manifest.size, "3.5M");
  EXPECT_EQ(manifest.size_bytes, 3670016U);
  EXPECT_EQ(manifest.files, 1);
  EXPECT_GE(manifest.exported, before);
  EXPECT_LE(manifest.exported, std::time(nullptr));
  EXPECT_LT(manifest.export_seconds, 600);
  EXPECT_EQ(manifest.document.file, "alpha_1600000000.json");
  EXPECT_EQ(manifest.document.bytes, kDocument.size());
  EXPECT_EQ(manifest.document.stored_bytes, kDocument.size());
  EXPECT_EQ(manifest.entries, 1U);
  ASSERT_EQ(manifest.commands.size(), 3U);
  EXPECT_EQ(manifest.commands[0].command, "qvmeta");
  EXPECT_EQ(manifest.commands[1].command, "qvroll");
  EXPECT_EQ(manifest.commands[2].command, "rec_unfold");
  for (const CommandRun& run : manifest.commands) {
    EXPECT_EQ(run.status, 0);
    EXPECT_TRUE(run.complaints.empty());
  }
}

TEST_F(Sync, WithALevelDocumentsAreCompressed) {
  Lists(Row("alpha_1600000000", 1));
  ASSERT_EQ(Run({"init", "ARCHIVE", "--compress", "19"}).status, 0);
  ASSERT_EQ(Run({"sync", "ARCHIVE", "--quiet"}), (Outcome{0, "", ""}));
  const Manifest manifest = ManifestOf("images/alpha/alpha_1600000000/manifest.json");
  EXPECT_EQ(manifest.document.file, "alpha_1600000000.json.zst");
  EXPECT_EQ(manifest.document.bytes, kDocument.size());
  EXPECT_EQ(manifest.document.stored_bytes,
            std::filesystem::file_size(
                PathOf("images/alpha/alpha_1600000000/alpha_1600000000.json.zst")));
  EXPECT_EQ(Run({"verify", "ARCHIVE"}).status, 0);
}

TEST_F(Sync, TakesTheNewestImagesFirst) {
  Lists(Row("a_5", 1) + Row("b_9", 1) + Row("c_x", 1) + Row("d_9", 1) + Row("parent_10", 0) +
        Row("b_9", 1));
  ASSERT_EQ(Run({"init", "ARCHIVE"}).status, 0);
  const std::vector<std::string> all = {"b_9", "d_9", "a_5", "c_x"};
  EXPECT_EQ(Planned(Run({"sync", "ARCHIVE", "--dry-run"})), all);
  EXPECT_EQ(Run({"sync", "ARCHIVE", "--dry-run", "--limit", "1"}),
            (Outcome{0, "b_9: would be exported\n1 to export\n", ""}));
  EXPECT_FALSE(std::filesystem::exists(PathOf("images")));
  EXPECT_FALSE(std::filesystem::exists(PathOf(".lock")));
}

TEST_F(Sync, FiltersChooseImages) {
  const std::string now = std::to_string(std::time(nullptr) - 3600);
  Lists(Row("a_5", 1, "P1", "S1") + Row("a_6", 1, "P2", "S2") + Row("b_" + now, 1, "P1", "S2") +
        Row("b_-7", 1, "P1", "S1"));
  ASSERT_EQ(Run({"init", "ARCHIVE"}).status, 0);
  struct Case {
    std::vector<std::string> options;
    std::vector<std::string> ids;
  };
  const std::vector<Case> kCases = {
      {{"--client", "a"}, {"a_6", "a_5"}},
      {{"--client", "a", "--client", "b"}, {"b_" + now, "a_6", "a_5", "b_-7"}},
      {{"--policy", "P1"}, {"b_" + now, "a_5", "b_-7"}},
      {{"--schedule", "S2", "--policy", "P1"}, {"b_" + now}},
      {{"--schedule", "S3"}, {}},
      {{"--skip", "a_5", "--skip", "b_-7"}, {"b_" + now, "a_6"}},
      {{"--newer-than", "2h"}, {"b_" + now, "b_-7"}},
      {{"--newer-than", "30m"}, {"b_-7"}},
      {{"--limit", "2"}, {"b_" + now, "a_6"}},
      {{"--limit", "0"}, {}},
  };
  for (const Case& filtered : kCases) {
    std::vector<std::string> arguments = {"sync", "ARCHIVE", "--dry-run"};
    arguments.insert(arguments.end(), filtered.options.begin(), filtered.options.end());
    EXPECT_EQ(Planned(Run(arguments)), filtered.ids) << testing::PrintToString(filtered.options);
  }
}

TEST_F(Sync, NamesMayHoldWhateverTheProductAllows) {
  Does("qvmeta", "printf '%s\\n' \"$3\" >>\"$ROOT/ids\"\necho '{}'\n");
  Does("rec_unfold", "printf '%s\\n' \"$2\" >>\"$ROOT/paths\"\ncat \"$ROOT/entries\"\n");
  const std::vector<std::string> kClients = {
      "it's", "$(touch$IFS\"$ROOT\"/run)", "`id`", "a;b", "../..", "\xFF\t\"", "", "archive.json"};
  std::string rows;
  for (const std::string& client : kClients) {
    rows += Row(client + "_1600000000", 1, client.empty() ? "p" : client, "../\\");
  }
  Keep(rows);
  EXPECT_FALSE(std::filesystem::exists(root_ + "/run"));
  const std::string ids = ReadFile(root_ + "/ids");
  const std::string paths = ReadFile(root_ + "/paths");
  for (const std::string& client : kClients) {
    EXPECT_THAT(ids, testing::HasSubstr(client + "_1600000000\n"));
    EXPECT_THAT(paths, testing::HasSubstr("/db/images/" + client + "/1600000000/f\n"));
  }
  EXPECT_EQ(Run({"verify", "ARCHIVE"}).status, 0);
  const Manifest manifest = ManifestOf("images/%FF%09%22/%FF%09%22_1600000000/manifest.json");
  EXPECT_EQ(manifest.client, "\xFF\t\"");
  EXPECT_EQ(manifest.schedule, "../\\");
  EXPECT_TRUE(std::filesystem::exists(PathOf("images/%/_1600000000")));
  EXPECT_TRUE(std::filesystem::exists(PathOf("images/archive.json/archive.json_1600000000")));
  EXPECT_TRUE(std::filesystem::exists(PathOf("images/%2E.%2F..")));
}

TEST_F(Sync, ComplaintsArePassedOnAndKept) {
  DoesFor("qvmeta", "alpha_*", "echo 'licence expires' >&2; printf 'really' >&2");
  DoesFor("rec_unfold", "alpha", "head -c 100000 /dev/zero | tr '\\0' x >&2");
  Lists(Row("alpha_1600000000", 2));
  ASSERT_EQ(Run({"init", "ARCHIVE"}).status, 0);
  const Outcome outcome = Run({"sync", "ARCHIVE"});
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(LastLine(outcome.out),
            "1 exported, 0 failed, 0 expired, 4 warnings; sets: 1 written, 0 removed, 0 waiting "
            "for images\n");
  const Manifest manifest = ManifestOf("images/alpha/alpha_1600000000/manifest.json");
  EXPECT_EQ(manifest.commands[0].complaints,
            (std::vector<std::string>{"licence expires", "really"}));
  ASSERT_EQ(manifest.commands[2].complaints.size(), 1U);
  const std::string& kept = manifest.commands[2].complaints[0];
  EXPECT_LE(kept.size(), 65536U);
  EXPECT_EQ(kept, std::string(kept.size(), 'x'));
  EXPECT_EQ(outcome.err,
            "alpha_1600000000: licence expires\nalpha_1600000000: really\n"
            "alpha_1600000000: " +
                kept +
                "\n"
                "alpha_1600000000: 1 entries, but 2 files listed\n");
}

TEST_F(Sync, AnotherOneAtTheSameTimeIsRefused) {
  Lists(Row("alpha_1600000000", 1));
  ASSERT_EQ(Run({"init", "ARCHIVE"}).status, 0);
  const pid_t other = fork();
  if (other == 0) {
    Does("qvmeta", "touch \"$ROOT/started\"\nwhile [ ! -e \"$ROOT/go\" ]; do sleep 0.01; done\n" +
                       Usual("qvmeta"));
    Run({"sync", "ARCHIVE"});
    _exit(0);
  }
  while (!std::filesystem::exists(root_ + "/started")) {
    usleep(1000);
  }
  EXPECT_EQ(Run({"sync", "ARCHIVE"}),
            (Outcome{75, "", "another sync or prune works on ARCHIVE\n"}));
  EXPECT_EQ(Run({"sync", "ARCHIVE", "--dry-run"}),
            (Outcome{0, "alpha_1600000000: would be exported\n1 to export\n", ""}));
  WriteFile(root_ + "/go", "");
  waitpid(other, nullptr, 0);
  EXPECT_TRUE(std::filesystem::exists(PathOf("images/alpha/alpha_1600000000")));
}
