#include "archive/worker.h"

#include <signal.h>

#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "archive/record.h"

TEST(Worker, WordsOfTheShellAreQuoted) {
  EXPECT_EQ(ShellWord(""), "''");
  EXPECT_EQ(ShellWord("alpha_1"), "'alpha_1'");
  EXPECT_EQ(ShellWord("it's $(x)\n"), "'it'\\''s $(x)\n'");
}

TEST(Worker, AWaitStatusIsSaidInWords) {
  const std::vector<std::pair<int, std::string>> kCases = {
      {0, ""},
      {-1, ""},
      {1 << 8, "qvroll ended with status 1"},
      {127 << 8, "qvroll ended with status 127"},
      {SIGKILL, "qvroll was ended by signal 9"},
  };
  for (const auto& [status, text] : kCases) {
    EXPECT_EQ(FailureOf("qvroll", status), text);
  }
}

TEST(Worker, ResultsThatEndTooEarlyAreNone) {
  RecordWriter writer;
  for (const std::uint64_t number : {1, 0, 2, 0, 5, 6, 1, 0, 0, 1, 0}) {
    writer.Put(number);
  }
  // A command that started, without a name; then a result with one command that complained once.
  const std::string& results = writer.text();
  EXPECT_TRUE(ReadExportResult(results));
  for (std::size_t size = 0; size < results.size(); ++size) {
    EXPECT_FALSE(ReadExportResult(results.substr(0, size))) << size;
  }
}

TEST(Worker, WhatAWorkerDiedOfIsSaid) {
  RecordWriter writer;
  for (const std::string command : {"qvmeta", "qvroll"}) {
    writer.Put(std::uint64_t{1});
    writer.Put(command);
  }
  const ExportRequest request{.manifest = {}, .compression_level = 0, .timeout = {"5m", {}}};
  EXPECT_EQ(FailureOfWorker(request, writer.text(), SIGALRM), "qvroll printed nothing for 5m");
  EXPECT_EQ(FailureOfWorker(request, writer.text(), SIGKILL), "the worker was ended by signal 9");
  EXPECT_EQ(FailureOfWorker(request, writer.text() + "\2", 1 << 8),
            "the worker ended with status 1");
}
