#include <errno.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <filesystem>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "failing_calls.h"
#include "product.h"

using Init = ArchiveTest;

TEST_F(Init, MakesAnArchiveThatOnlyItsOwnerCanRead) {
  EXPECT_EQ(Run({"init", "ARCHIVE", "--server", "b\xFF", "--compress", "3"}), (Outcome{0, "", ""}));
  EXPECT_THAT(ReadFile(PathOf("archive.json")),
              testing::MatchesRegex("\\{\n"
                                    "    \"format\": \"quillmere-archive\",\n"
                                    "    \"version\": 1,\n"
                                    "    \"program\": \"quillmere-archive [0-9.]+\",\n"
                                    "    \"server\": \"b\xEF\xBF\xBD\",\n"
                                    "    \"server_base64\": \"Yv8=\",\n"
                                    "    \"created\": [0-9]+,\n"
                                    "    \"created_utc\": \"[0-9T:-]+Z\",\n"
                                    "    \"compression_level\": 3\n"
                                    "\\}\n"));
  struct stat status {};
  stat(archive_.c_str(), &status);
  EXPECT_EQ(status.st_mode & 07777U, 0700U);
  stat(PathOf("archive.json").c_str(), &status);
  EXPECT_EQ(status.st_mode & 07777U, 0600U);
}

TEST_F(Init, TakesTheHostNameForTheServer) {
  EXPECT_EQ(Run({"init", "ARCHIVE"}), (Outcome{0, "", ""}));
  std::array<char, 256> name{};
  gethostname(name.data(), name.size());
  std::string error;
  EXPECT_EQ(ReadArchiveInfo(ReadFile(PathOf("archive.json")), &error).value().server, name.data());
}

TEST_F(Init, TakesAnEmptyDirectoryAndWhatAnInterruptedOneLeft) {
  std::filesystem::create_directories(PathOf("lost+found"));
  std::filesystem::create_directories(PathOf(".staging"));
  WriteFile(PathOf(".staging/file-0"), "half");
  EXPECT_EQ(Run({"init", "ARCHIVE"}), (Outcome{0, "", ""}));
}

TEST_F(Init, RefusesWhatIsNotEmptyOrNoDirectory) {
  WriteFile(archive_, "");
  EXPECT_EQ(Run({"init", "ARCHIVE"}), (Outcome{4, "", "can't open ARCHIVE: Not a directory\n"}));
  EXPECT_EQ(Run({"init", "ARCHIVE/x"}),
            (Outcome{4, "", "can't make ARCHIVE/x: Not a directory\n"}));
  std::filesystem::remove(archive_);
  std::filesystem::create_directory(archive_);
  WriteFile(PathOf("x"), "");
  EXPECT_EQ(Run({"init", "ARCHIVE"}), (Outcome{4, "", "ARCHIVE is not empty\n"}));
}

TEST_F(Init, SaysWhatCannotBeWritten) {
  FailOnce("write", ENOSPC);
  EXPECT_EQ(Run({"init", "ARCHIVE"}),
            (Outcome{4, "", "can't write ARCHIVE/.staging/file-0: No space left on device\n"}));
}
