#include "archive/units.h"

#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

TEST(Units, AgesAreANumberAndAUnit) {
  const std::vector<std::pair<std::string, std::optional<std::int64_t>>> kCases = {
      {"0s", 0},
      {"90m", 5400},
      {"26h", 93600},
      {"30d", 2592000},
      {"2w", 1209600},
      {"1000000w", 604800000000},
      {"1000001w", std::nullopt},
      {"18446744073709551616s", std::nullopt},
      {"5", std::nullopt},
      {"h", std::nullopt},
      {"5hh", std::nullopt},
      {"5y", std::nullopt},
      {"-5h", std::nullopt},
      {"", std::nullopt},
  };
  for (const auto& [text, seconds] : kCases) {
    const std::optional<Age> age = ParseAge(text);
    EXPECT_EQ(age ? std::optional(age->duration.count()) : std::nullopt, seconds) << text;
    EXPECT_TRUE(!age || age->text == text);
  }
}

TEST(Units, FreeSpaceIsAPercentageOrBytes) {
  struct Case {
    std::string text;
    std::optional<std::uint64_t> amount;
    bool is_percentage;
  };
  const std::vector<Case> kCases = {
      {"5%", 5, true},
      {"100%", 100, true},
      {"101%", std::nullopt, false},
      {"7", 7, false},
      {"3K", 3072, false},
      {"2M", 2097152, false},
      {"10G", 10737418240, false},
      {"1T", 1099511627776, false},
      {"16777215T", 18446742974197923840U, false},
      {"16777216T", std::nullopt, false},
      {"1KB", std::nullopt, false},
      {"1k", std::nullopt, false},
      {"%", std::nullopt, false},
  };
  for (const Case& expected : kCases) {
    const std::optional<FreeSpace> space = ParseFreeSpace(expected.text);
    EXPECT_EQ(space ? std::optional(space->amount) : std::nullopt, expected.amount)
        << expected.text;
    EXPECT_EQ(space && space->is_percentage, expected.is_percentage) << expected.text;
  }
}

TEST(Units, CountsAreNumbersAlone) {
  EXPECT_EQ(ParseCount("12"), 12U);
  for (const char* const text : {"", "-1", "1.5", "x"}) {
    EXPECT_EQ(ParseCount(text), std::nullopt) << text;
  }
}

TEST(Units, TimesHaveAYearOfFourDigits) {
  const std::vector<std::pair<std::int64_t, std::optional<std::string>>> kCases = {
      {0, "1970-01-01T00:00:00Z"},
      {1600123456, "2020-09-14T22:44:16Z"},
      {-1, "1969-12-31T23:59:59Z"},
      {951782400, "2000-02-29T00:00:00Z"},
      {253402300799, "9999-12-31T23:59:59Z"},
      {253402300800, std::nullopt},
      {-62167219200, "0000-01-01T00:00:00Z"},
      {-62167219201, std::nullopt},
      {std::numeric_limits<std::int64_t>::max(), std::nullopt},
      {std::numeric_limits<std::int64_t>::min(), std::nullopt},
  };
  for (const auto& [seconds, text] : kCases) {
    EXPECT_EQ(Rfc3339(seconds), text) << seconds;
  }
}

TEST(Units, TimesAreSecondsDatesOrRfc3339) {
  const std::vector<std::pair<std::string, std::optional<std::int64_t>>> kCases = {
      {"0", 0},
      {"-1", -1},
      {"1600000000", 1600000000},
      {"1970-01-01", 0},
      {"2020-02-29", 1582934400},
      {"2020-09-13T12:26:40Z", 1600000000},
      {"2020-09-13t12:26:40z", 1600000000},
      {"2020-09-13T12:26:40.999Z", 1600000000},
      {"2020-09-13T14:26:40+02:00", 1600000000},
      {"2020-09-13T06:56:40-05:30", 1600000000},
      {"2016-12-31T23:59:60Z", 1483228800},
      {"0000-01-01", -62167219200},
      {"", std::nullopt},
      {"x", std::nullopt},
      {"1600000000s", std::nullopt},
      {"2019-02-29", std::nullopt},
      {"2020-13-01", std::nullopt},
      {"2020-1-01", std::nullopt},
      {"2020/01/01", std::nullopt},
      {"2020-01-01T", std::nullopt},
      {"2020-01-01 00:00:00Z", std::nullopt},
      {"2020-01-01T00:00:00", std::nullopt},
      {"2020-01-01T24:00:00Z", std::nullopt},
      {"2020-01-01T00:60:00Z", std::nullopt},
      {"2020-01-01T00:00:61Z", std::nullopt},
      {"2020-01-01T00:00Z", std::nullopt},
      {"2020-01-01T00:00:00.Z", std::nullopt},
      {"2020-01-01T00:00:00Zx", std::nullopt},
      {"2020-01-01T00:00:00+2:00", std::nullopt},
      {"2020-01-01T00:00:00+02:60", std::nullopt},
      {"2020-01-01T00:00:00+02:00x", std::nullopt},
      {"99999999999999999999", std::nullopt},
  };
  for (const auto& [text, seconds] : kCases) {
    EXPECT_EQ(ParseTime(text), seconds) << text;
  }
}

TEST(Units, BytesAreShownWithAtMostOneDecimal) {
  const std::vector<std::pair<std::uint64_t, std::string>> kCases = {
      {0, "0 B"},
      {999, "999 B"},
      {1000, "1.0 kB"},
      {3549, "3.5 kB"},
      {999949, "999.9 kB"},
      {999950, "1.0 MB"},
      {1000000000, "1.0 GB"},
      {18446744073709551615U, "18.4 EB"},
  };
  for (const auto& [bytes, text] : kCases) {
    EXPECT_EQ(BytesForPeople(bytes), text);
  }
}

TEST(Units, ControlCharactersAreShown) {
  EXPECT_EQ(Printable("a\tb\x1B[2J\n\x7F \xC3\xA4"), "a\\x09b\\x1B[2J\\x0A\\x7F \xC3\xA4");
}
