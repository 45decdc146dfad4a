#include "product.h"

#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <ostream>

#include "archive/command_line.h"
#include "failing_calls.h"
#include "layout/layout.h"

// The layout of a root of this process alone, so that tests can run beside each other.
const std::string path_vkx = testing::TempDir() + "quillmere_product_" + std::to_string(getpid());
const std::string path_vkx_db_images = path_vkx + "/db/images";
const std::string path_vkx_bin = path_vkx + "/bin";
const std::string path_vkx_admincmd = path_vkx_bin + "/admincmd";
const std::string path_rec_unfold = path_vkx_bin + "/rec_unfold";
const std::string path_qvroll = path_vkx_admincmd + "/qvroll";
const std::string path_qvmeta = path_vkx_admincmd + "/qvmeta";
const std::string ACTION_DUMP_BACKUP_SET_LIST = "dump_backup_set_list";
const std::string ACTION_DUMP_BACKUP_SET = "dump_backup_set";
const std::string ACTION_LIST_BACKUPS = "list_backups";
const std::string ACTION_DUMP_BACKUP = "dump_backup";
const char* const prog = "quillmere";
std::int32_t verbose = 0;
char line_buf[kLineBufSize];

namespace {

std::string PathOfCommand(const std::string& command) {
  return command == "rec_unfold" ? path_rec_unfold : path_vkx_admincmd + '/' + command;
}

std::string Replaced(std::string text, const std::string& from, const std::string& to) {
  for (std::size_t at = text.find(from); at != std::string::npos;
       at = text.find(from, at + to.size())) {
    text.replace(at, from.size(), to);
  }
  return text;
}

}  // namespace

const std::string kDocument = R"({
    "kind": "x",
    "fentries": [
        {
            "filenum": "1",
            "length": "2",
            "plength": "3",
            "dlength": "4",
            "blknum": "5",
            "in_image": "6",
            "raw_partition_sz": "7",
            "gigabytes": "8",
            "device_num": "9",
            "path": "\/a",
            "data": "d"
        }
    ]
}
)";

void PrintTo(const Outcome& outcome, std::ostream* out) {
  *out << "status " << outcome.status << "\nstandard output:\n"
       << outcome.out << "standard error:\n"
       << outcome.err;
}

std::string Row(const std::string& id, int files, const std::string& policy,
                const std::string& schedule, const std::string& size) {
  return id + " Sun Sep 13 2020     " + std::to_string(files) + ' ' + size + ' ' + schedule + ' ' +
         policy + " /x\n";
}

std::string EntryLine(const std::string& path) {
  return "1\t2\t3\t4\t5\t6\t7\t8\t9\t" + path + "\td\n";
}

ArchiveTest::ArchiveTest() : archive_(directory_.PathOf("archive")), root_(path_vkx) {
  std::filesystem::create_directories(path_vkx_admincmd);
  Lists("");
  WriteFile(root_ + "/entries", EntryLine("/a"));
  for (const char* const command : {"qvroll", "qvmeta", "rec_unfold"}) {
    Does(command, Usual(command));
  }
}

ArchiveTest::~ArchiveTest() {
  FailNothing();
  std::error_code ignored;
  std::filesystem::remove_all(root_, ignored);
}

int ArchiveTest::RunAsItIs(const std::vector<std::string>& arguments) const {
  std::vector<std::string> texts = {"quillmere-archive"};
  for (const std::string& argument : arguments) {
    texts.push_back(Replaced(argument, "ARCHIVE", archive_));
  }
  std::vector<char*> argv;
  for (std::string& text : texts) {
    argv.push_back(text.data());
  }
  argv.push_back(nullptr);
  return RunCommandLine(static_cast<int>(texts.size()), argv.data());
}

Outcome ArchiveTest::Run(const std::vector<std::string>& arguments) {
  testing::internal::CaptureStdout();
  testing::internal::CaptureStderr();
  Outcome outcome;
  outcome.status = RunAsItIs(arguments);
  outcome.out = Replaced(testing::internal::GetCapturedStdout(), archive_, "ARCHIVE");
  outcome.err = Replaced(testing::internal::GetCapturedStderr(), archive_, "ARCHIVE");
  return outcome;
}

void ArchiveTest::Lists(const std::string& rows) const {
  WriteFile(root_ + "/listing", "\nBackupid x\n" + rows);
}

void ArchiveTest::Does(const std::string& command, const std::string& script) const {
  const std::string path = PathOfCommand(command);
  WriteFile(path, "#!/bin/sh\nROOT='" + root_ + "'\n" + script);
  chmod(path.c_str(), 0700);
}

std::string ArchiveTest::Usual(const std::string& command) {
  if (command == "qvmeta") {
    return "echo '{\"kind\": \"x\"}'\n";
  }
  return command == "rec_unfold"
             ? "cat \"$ROOT/entries\"\n"
             : "[ \"$1\" != -id ] && exec cat \"$ROOT/listing\"\nprintf '1\\n2\\n3 f\\n'\n";
}

void ArchiveTest::DoesFor(const std::string& command, const std::string& ids,
                          const std::string& script) const {
  // rec_unfold knows an image by the directory of its client.
  const std::string pattern = command == "rec_unfold" ? "*/" + ids + "/*" : ids;
  const std::string id = command == "qvmeta" ? "$3" : "$2";
  Does(command,
       "case \"" + id + "\" in " + pattern + ")\n" + script + ";; esac\n" + Usual(command));
}

void ArchiveTest::Keep(const std::string& rows) {
  Lists(rows);
  ASSERT_EQ(Run({"init", "ARCHIVE", "--server", "s"}), (Outcome{0, "", ""}));
  ASSERT_EQ(Run({"sync", "ARCHIVE", "--quiet"}), (Outcome{0, "", ""}));
}

std::map<std::string, std::string> ArchiveTest::Files(const std::string& name) const {
  std::map<std::string, std::string> files;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(PathOf(name))) {
    if (!entry.is_directory() && entry.path().filename() != ".lock") {
      files[std::filesystem::relative(entry.path(), archive_)] = ReadFile(entry.path());
    }
  }
  return files;
}

Manifest ArchiveTest::ManifestOf(const std::string& path) const {
  std::string error;
  const std::optional<Manifest> manifest = ReadManifest(ReadFile(PathOf(path)), &error);
  EXPECT_TRUE(manifest) << path << ": " << error;
  return manifest.value_or(Manifest());
}
