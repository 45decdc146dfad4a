#include "layout/layout.h"

#include <algorithm>
#include <string>

#include <gtest/gtest.h>

namespace {

// Looked at before any test can have changed them.
const std::int32_t verbose_at_start = verbose;
const bool line_buf_is_zero_at_start =
    std::all_of(line_buf, line_buf + kLineBufSize, [](char c) { return c == '\0'; });

TEST(Layout, EveryPathStandsUnderTheInstallRoot) {
  EXPECT_EQ(path_vkx, "/usr/ostra/keelhaven");
  EXPECT_EQ(path_vkx_db_images, "/usr/ostra/keelhaven/db/images");
  EXPECT_EQ(path_vkx_bin, "/usr/ostra/keelhaven/bin");
  EXPECT_EQ(path_vkx_admincmd, "/usr/ostra/keelhaven/bin/admincmd");
  EXPECT_EQ(path_qvroll, "/usr/ostra/keelhaven/bin/admincmd/qvroll");
  EXPECT_EQ(path_qvmeta, "/usr/ostra/keelhaven/bin/admincmd/qvmeta");
  EXPECT_EQ(path_rec_unfold, "/usr/ostra/keelhaven/bin/rec_unfold");
}

TEST(Layout, ActionsHaveTheNamesThatUsersType) {
  EXPECT_EQ(ACTION_DUMP_BACKUP_SET_LIST, "dump_backup_set_list");
  EXPECT_EQ(ACTION_DUMP_BACKUP_SET, "dump_backup_set");
  EXPECT_EQ(ACTION_LIST_BACKUPS, "list_backups");
  EXPECT_EQ(ACTION_DUMP_BACKUP, "dump_backup");
}

TEST(Layout, TheProgramNameIsFixed) {
  EXPECT_STREQ(prog, "quillmere");
}

TEST(Layout, NothingIsTracedUntilALevelIsSet) {
  EXPECT_EQ(verbose_at_start, 0);
}

TEST(Layout, TheLineBufferHoldsFourMebibytesOfZeros) {
  EXPECT_EQ(kLineBufSize, 4194304U);
  EXPECT_EQ(sizeof(line_buf), 4194304U);
  EXPECT_TRUE(line_buf_is_zero_at_start);
}

}  // namespace
