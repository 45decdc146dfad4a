#include "archive/directory.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "failing_calls.h"
#include "temporary_directory.h"

namespace {

class DirectoryTest : public testing::Test {
 protected:
  ~DirectoryTest() override { FailNothing(); }

  /// The message of what `call` throws, with "DIR" for the path of the directory.
  std::string ErrorOf(const std::function<void()>& call) const {
    try {
      call();
    } catch (const ArchiveError& error) {
      std::string text = error.what();
      const std::size_t at = text.find(temporary_.path());
      return at == std::string::npos ? text : text.replace(at, temporary_.path().size(), "DIR");
    }
    return "nothing is thrown";
  }

  TemporaryDirectory temporary_;
  Directory directory_{temporary_.path()};
};

}  // namespace

TEST_F(DirectoryTest, ListsItsEntriesInByteOrderWithTheirKinds) {
  for (const bool are_hidden : {false, true}) {
    std::filesystem::create_directory(temporary_.PathOf("b"));
    WriteFile(temporary_.PathOf("a"), "");
    WriteFile(temporary_.PathOf(".c"), "");
    std::filesystem::remove(temporary_.PathOf("d"));
    std::filesystem::create_symlink("a", temporary_.PathOf("d"));
    if (are_hidden) {
      HideEntryTypes();
    }
    const std::vector<Directory::Entry> entries = directory_.List();
    ASSERT_EQ(entries.size(), 4U);
    EXPECT_EQ(entries[0].name, ".c");
    EXPECT_EQ(entries[1].name, "a");
    EXPECT_EQ(entries[1].kind, Directory::Kind::kFile);
    EXPECT_EQ(entries[2].name, "b");
    EXPECT_EQ(entries[2].kind, Directory::Kind::kDirectory);
    EXPECT_EQ(entries[3].name, "d");
    EXPECT_EQ(entries[3].kind, Directory::Kind::kOther);
  }
}

TEST_F(DirectoryTest, MakesWhatOnlyItsOwnerCanRead) {
  directory_.OpenOrMake("d").Write("f", "text");
  struct stat status {};
  stat(temporary_.PathOf("d").c_str(), &status);
  EXPECT_EQ(status.st_mode & 07777U, 0700U);
  stat(temporary_.PathOf("d/f").c_str(), &status);
  EXPECT_EQ(status.st_mode & 07777U, 0600U);
  EXPECT_EQ(directory_.Open("d").Read("f"), "text");
  EXPECT_EQ(directory_.OpenOrMake("d").Read("g"), std::nullopt);
  EXPECT_EQ(directory_.Open("d").path(), temporary_.PathOf("d"));
}

TEST_F(DirectoryTest, HasWhateverIsThere) {
  WriteFile(temporary_.PathOf("file"), "");
  std::filesystem::create_symlink("nowhere", temporary_.PathOf("link"));
  EXPECT_TRUE(directory_.Has("file"));
  EXPECT_TRUE(directory_.Has("link"));
  EXPECT_FALSE(directory_.Has("nowhere"));
  // What can't be known may be there.
  EXPECT_TRUE(directory_.Has("file/below"));
}

TEST_F(DirectoryTest, RemovesTreesAndNoMoreThanThem) {
  std::filesystem::create_directories(temporary_.PathOf("tree/a/b"));
  WriteFile(temporary_.PathOf("tree/a/f"), "");
  WriteFile(temporary_.PathOf("kept"), "text");
  std::filesystem::create_symlink("..", temporary_.PathOf("tree/a/up"));
  directory_.Remove("tree");
  directory_.Remove("not there");
  EXPECT_EQ(temporary_.FileNames(), std::vector<std::string>{"kept"});
}

TEST_F(DirectoryTest, SaysWhatIsInTheWay) {
  std::filesystem::create_symlink("/", temporary_.PathOf("link"));
  WriteFile(temporary_.PathOf("file"), "");
  std::filesystem::create_directory(temporary_.PathOf("directory"));
  mkfifo(temporary_.PathOf("pipe").c_str(), 0600);
  truncate(temporary_.PathOf("file").c_str(), 64 * 1024 * 1024 + 1);

  EXPECT_EQ(ErrorOf([] { Directory("/not/there"); }),
            "can't open /not/there: No such file or directory");
  EXPECT_EQ(ErrorOf([this] { (void)directory_.Open("link"); }), "DIR/link is a symbolic link");
  EXPECT_EQ(ErrorOf([this] { (void)directory_.Find("link"); }), "DIR/link is a symbolic link");
  EXPECT_EQ(ErrorOf([this] { (void)directory_.Open("none"); }),
            "can't open DIR/none: No such file or directory");
  EXPECT_EQ(ErrorOf([this] { (void)directory_.Find("file"); }),
            "can't open DIR/file: Not a directory");
  EXPECT_EQ(ErrorOf([this] { (void)directory_.Read("link"); }), "DIR/link is a symbolic link");
  EXPECT_EQ(ErrorOf([this] { (void)directory_.Read("pipe"); }), "DIR/pipe is no regular file");
  EXPECT_EQ(ErrorOf([this] { (void)directory_.Read("directory"); }),
            "DIR/directory is no regular file");
  EXPECT_EQ(ErrorOf([this] { (void)directory_.Read("file"); }), "DIR/file is too large");
  EXPECT_EQ(ErrorOf([this] { directory_.Write("file", ""); }), "can't write DIR/file: File exists");
}

TEST_F(DirectoryTest, SaysWhatTheSystemRefuses) {
  WriteFile(temporary_.PathOf("file"), "text");
  std::filesystem::create_directories(temporary_.PathOf("d/e"));
  struct Case {
    std::string function;
    int error;
    std::function<void()> call;
    std::string message;
  };
  const std::vector<Case> kCases = {
      {"openat", EMFILE, [this] { (void)directory_.List(); },
       "can't read DIR: Too many open files"},
      {"fdopendir", ENOMEM, [this] { (void)directory_.List(); },
       "can't read DIR: Cannot allocate memory"},
      {"readdir", EIO, [this] { (void)directory_.List(); }, "can't read DIR: Input/output error"},
      {"read", EIO, [this] { (void)directory_.Read("file"); },
       "can't read DIR/file: Input/output error"},
      {"write", ENOSPC, [this] { directory_.Write("a", "text"); },
       "can't write DIR/a: No space left on device"},
      {"fsync", EIO, [this] { directory_.Write("b", "text"); },
       "can't write DIR/b: Input/output error"},
      {"fsync", EIO, [this] { directory_.Sync(); }, "can't write DIR: Input/output error"},
      {"mkdirat", EROFS, [this] { directory_.Make("c"); },
       "can't make DIR/c: Read-only file system"},
      {"renameat", EXDEV, [this] { directory_.Move("file", directory_, "moved"); },
       "can't make DIR/moved: Invalid cross-device link"},
      {"unlinkat", EROFS, [this] { directory_.Remove("file"); },
       "can't remove DIR/file: Read-only file system"},
  };
  for (const Case& refused : kCases) {
    FailOnce(refused.function, refused.error);
    EXPECT_EQ(ErrorOf(refused.call), refused.message) << refused.function;
  }
  FailOnce("unlinkat", EBUSY, 1);
  EXPECT_EQ(ErrorOf([this] { directory_.Remove("d"); }),
            "can't remove DIR/d: Device or resource busy");
  std::filesystem::remove(temporary_.PathOf("d/e"));
  FailOnce("unlinkat", ENOTEMPTY, 1);
  EXPECT_EQ(ErrorOf([this] { directory_.Remove("d"); }), "can't remove DIR/d: Directory not empty");
}

TEST_F(DirectoryTest, InterruptedWritesAreFinished) {
  FailOnce("write", EINTR);
  directory_.Write("file", "text");
  EXPECT_EQ(ReadFile(temporary_.PathOf("file")), "text");
}

TEST_F(DirectoryTest, AFileThatShrinksMeanwhileEndsEarlier) {
  // Files of /proc claim to be of no size at all; their text can't be had this way.
  EXPECT_EQ(Directory("/proc/self").Read("status"), "");
}

TEST(Descriptor, ClosesWhatItHas) {
  Descriptor descriptor(dup(STDIN_FILENO));
  const int number = descriptor.get();
  descriptor = Descriptor();
  EXPECT_EQ(descriptor.get(), -1);
  EXPECT_EQ(fcntl(number, F_GETFD), -1);
}
