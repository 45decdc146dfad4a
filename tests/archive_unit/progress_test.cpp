#include "archive/progress.h"

#include <chrono>
#include <functional>
#include <string>
#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

/// What `call` writes to standard output.
std::string Printed(const std::function<void()>& call) {
  testing::internal::CaptureStdout();
  call();
  return testing::internal::GetCapturedStdout();
}

}  // namespace

TEST(Progress, OnATerminalALineIsRedrawnInPlace) {
  Progress progress(false, true);
  EXPECT_THAT(Printed([&] {
                progress.Begin(20000, 400);
                std::this_thread::sleep_for(std::chrono::milliseconds(20));
                progress.Tick();
                progress.Tick();
              }),
              testing::MatchesRegex("\r\x1B\\[K0 of 20000 images, 0 entries/s, 0 B"));
  EXPECT_THAT(Printed([&] { progress.Say("alpha_1", "expired"); }), "\r\x1B[Kalpha_1: expired\n");
}

TEST(Progress, PaceIsThatOfTheEntriesAndTimeLeftThatOfTheFilesLeft) {
  struct Case {
    std::uint64_t files;
    std::string left;
  };
  // At least 20 ms for one file: so much is left at the least. Its entries, in at most 5 s, are a
  // number a second of six digits or more.
  for (const auto& [files, left] :
       {Case{2, "[0-9] s left"}, Case{40001, "([0-9]+ h )?[0-9]+ min left"},
        Case{400001, "[0-9]+ h [0-9]+ min left"}}) {
    Progress progress(false, true);
    EXPECT_THAT(Printed([&] {
                  progress.Begin(3, files);
                  std::this_thread::sleep_for(std::chrono::milliseconds(20));
                  progress.Exported("alpha_1", 1, 500000, 5000);
                  progress.Tick();
                }),
                testing::MatchesRegex(
                    "\r\x1B\\[K1 of 3 images, [1-9][0-9]{5,7} entries/s, 5.0 kB, " + left));
  }
}

TEST(Progress, QuietNothingIsPrinted) {
  Progress progress(true, true);
  EXPECT_EQ(Printed([&] {
              progress.Begin(1, 1);
              progress.Exported("alpha_1", 1, 1, 1);
              progress.Tick();
              progress.Finish({});
              progress.FinishDryRun(1);
            }),
            "");
}
