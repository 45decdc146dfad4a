#include "archive/store.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "failing_calls.h"
#include "temporary_directory.h"

namespace {

class StoreTest : public testing::Test {
 protected:
  StoreTest() {
    Store::Create(path_, {.program = "p", .server = "s", .created = 1, .compression_level = 0});
  }
  ~StoreTest() override { FailNothing(); }

  TemporaryDirectory temporary_;
  std::string path_ = temporary_.PathOf("archive");
};

/// The message of what `call` throws.
template <class Call>
std::string ErrorOf(Call call) {
  try {
    call();
  } catch (const ArchiveError& error) {
    return error.what();
  }
  return "nothing is thrown";
}

}  // namespace

TEST_F(StoreTest, IsLockedByOneProcess) {
  Store store(path_);
  EXPECT_TRUE(store.Lock());
  const pid_t other = fork();
  if (other == 0) {
    _exit(Store(path_).Lock() ? 1 : 0);
  }
  int status = -1;
  waitpid(other, &status, 0);
  EXPECT_EQ(status, 0);
}

TEST_F(StoreTest, ALockThatIsALinkIsRefused) {
  std::filesystem::create_symlink("/dev/null", path_ + "/.lock");
  EXPECT_EQ(ErrorOf([this] { Store(path_).Lock(); }),
            "can't lock " + path_ + "/.lock: Too many levels of symbolic links");
}

TEST_F(StoreTest, KnowsWhatIsFree) {
  const Store store(path_);
  EXPECT_TRUE(store.HasLessFreeThan({"", false, UINT64_MAX}));
  EXPECT_FALSE(store.HasLessFreeThan({"", false, 0}));
  EXPECT_TRUE(store.HasLessFreeThan({"", true, 100}));
  EXPECT_FALSE(store.HasLessFreeThan({"", true, 0}));
  FailOnce("fstatvfs", EIO);
  EXPECT_EQ(ErrorOf([&] { (void)store.HasLessFreeThan({}); }),
            "can't read " + path_ + ": Input/output error");
}

TEST_F(StoreTest, ClearsWhatInterruptedRunsLeft) {
  std::filesystem::create_directories(path_ + "/.staging/1-1/image");
  WriteFile(path_ + "/.staging/1-1/image/x", "");
  WriteFile(path_ + "/.staging/file", "");
  Store(path_).ClearStaging();
  EXPECT_TRUE(std::filesystem::is_empty(path_ + "/.staging"));
}

TEST_F(StoreTest, WhatGoesMeanwhileIsPassedOver) {
  for (const std::string file : {"images/a/a_1/manifest.json", "images/a/a_2/manifest.json",
                                 "sets/a/b/c/1.json", "sets/a/b/c/2.json"}) {
    std::filesystem::create_directories(std::filesystem::path(path_ + '/' + file).parent_path());
    WriteFile(path_ + '/' + file, "text");
  }
  const Store store(path_);
  std::vector<std::string> taken;
  const auto take = [&](const std::string& path, const std::string& /*text*/) {
    taken.push_back(path);
    std::filesystem::remove_all(path_ + "/images/a/a_2");
    std::filesystem::remove(path_ + "/sets/a/b/c/2.json");
  };
  const auto complain = [](const ArchiveError& error) { FAIL() << error.what(); };
  store.ForEachManifest(take, complain);
  WriteFile(path_ + "/sets/a/b/c/2.json", "text");
  store.ForEachSet(take, complain);
  EXPECT_EQ(taken, (std::vector<std::string>{"images/a/a_1/manifest.json", "sets/a/b/c/1.json"}));
}

TEST_F(StoreTest, PrunesNoImageWithoutAManifest) {
  std::filesystem::create_directories(path_ + "/images/a/a_1");
  EXPECT_EQ(ErrorOf([this] { Store(path_).PruneImage("a/a_1", 1); }),
            path_ + "/images/a/a_1/manifest.json: not JSON");
  EXPECT_TRUE(std::filesystem::exists(path_ + "/images/a/a_1"));
}
