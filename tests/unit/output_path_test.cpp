#include "export/output_path.h"

#include <gtest/gtest.h>

namespace {

TEST(OutputPath, ASlashGoesBetween) {
  EXPECT_EQ(OutputPath("/out", "x.json"), "/out/x.json");
  EXPECT_EQ(OutputPath("out", "x.json"), "out/x.json");
  EXPECT_EQ(OutputPath(".", "x.json"), "./x.json");
}

TEST(OutputPath, ASlashAtTheEndIsEnough) {
  EXPECT_EQ(OutputPath("/out/", "x.json"), "/out/x.json");
  EXPECT_EQ(OutputPath("out/", "x.json"), "out/x.json");
  EXPECT_EQ(OutputPath("/", "x.json"), "/x.json");
}

TEST(OutputPath, NothingIsNormalised) {
  EXPECT_EQ(OutputPath("/out//", "x.json"), "/out//x.json");
  EXPECT_EQ(OutputPath("/a/../b", "x.json"), "/a/../b/x.json");
  EXPECT_EQ(OutputPath("/out\\", "../x.json"), "/out\\/../x.json");
  EXPECT_EQ(OutputPath(" ", " "), " / ");
}

}  // namespace
