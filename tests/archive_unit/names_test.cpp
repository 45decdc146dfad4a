#include "archive/names.h"

#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

TEST(Names, EscapeWhatIsNotPlain) {
  const std::vector<std::pair<std::string, std::string>> kCases = {
      {"alpha_1500000000", "alpha_1500000000"},
      {"AZaz09._-", "AZaz09._-"},
      {"@[`{/:", "%40%5B%60%7B%2F%3A"},
      {"", "%"},
      {"%", "%25"},
      {".", "%2E"},
      {"..", "%2E."},
      {".a.b", "%2Ea.b"},
      {"a/b", "a%2Fb"},
      {"a b\n", "a%20b%0A"},
      {"\xC3\xA4\xFF", "%C3%A4%FF"},
      {std::string("\0", 1), "%00"},
  };
  for (const auto& [name, file_name] : kCases) {
    EXPECT_EQ(FileNameOf(name), file_name);
  }
}

TEST(Names, OnesLongerThan200BytesKeep100AndTheirSha256) {
  EXPECT_EQ(FileNameOf(std::string(200, 'a')), std::string(200, 'a'));
  // printf %s aaa... | sha256sum
  EXPECT_EQ(
      FileNameOf(std::string(201, 'a')),
      std::string(100, 'a') + "%a92efd82109373e58f9a2056dee01e807e216ce6075f7051207c0a9f7d666e50");
  EXPECT_EQ(FileNameOf(std::string(67, '/')),
            std::string("%2F%2F%2F%2F%2F%2F%2F%2F%2F%2F%2F%2F%2F%2F%2F%2F%2F%2F%2F%2F%2F%2F%2F%2F"
                        "%2F%2F%2F%2F%2F%2F%2F%2F%2F") +
                "%%3eb1349aab9dc074e2028d6801ffe27e5de46b30e87a4e66e5fbb0b764f514e1");
}

TEST(Names, ABackupIdIsCutAtItsFirstUnderscore) {
  const std::vector<std::vector<std::string>> kCases = {
      {"alpha_15", "alpha", "15"},
      {"my_host_15", "my", "host_15"},
      {"_15", "", "15"},
      {"alpha_", "alpha", ""},
  };
  for (const std::vector<std::string>& texts : kCases) {
    EXPECT_EQ(ClientOf(texts[0]), texts[1]);
    EXPECT_EQ(TimeOf(texts[0]), texts[2]);
  }
}
