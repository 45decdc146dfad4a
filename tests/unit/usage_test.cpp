#include "main/usage.h"

#include <gtest/gtest.h>

#include "fake_host.h"

namespace {

// The second action name runs into its first option: consumers compare the text as a whole.
TEST(Usage, WholeText) {
  FakeHost host;
  const Outcome outcome = host.Run([] { PrintUsage("./a b"); });
  EXPECT_EQ(outcome.out,
            "Usage:\n"
            "./a b --action dump_backup_set_list [--policy <policy>] [--client <client>] "
            "[--count <count>] [--output_dir <output_dir>]\n"
            "./a b --action dump_backup_set[--policy <policy>] [--client <client>] "
            "--time <time> --output_dir <output_dir>\n"
            "./a b --action list_backups [--policy <policy>] [--client <client>] "
            "[--schedule <schedule>]\n"
            "./a b --action dump_backup --backup_id <backup_id> "
            "[--output_dir <output_dir>]\n");
  EXPECT_EQ(outcome.err, "");
}

}  // namespace
