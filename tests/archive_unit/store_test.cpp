#include "archive/store.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <string>

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
