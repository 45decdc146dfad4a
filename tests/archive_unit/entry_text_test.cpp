#include "archive/entry_text.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace {

/// What `value` stands for in `form`, or "-" for one that is wrong.
std::string Formed(const std::string& value, TextForm form) {
  std::string text = ">";
  return AppendValue(value, form, &text) ? text.substr(1) : "-";
}

struct Case {
  std::string value;
  std::string plain;
  std::string tsv;
  std::string json;
};

}  // namespace

TEST(EntryText, ValuesStandForTexts) {
  const std::vector<Case> kCases = {
      {"", "", "", ""},
      {"a b~\x7F\xE9", "a b~\x7F\xE9", "a b~\x7F\xE9", "a b~\x7F\xE9"},
      {R"(\/home\/x)", "/home/x", "/home/x", "/home/x"},
      {R"(\"a\")", "\"a\"", "\"a\"", R"(\"a\")"},
      {R"(C:\\x)", "C:\\x", R"(C:\\x)", R"(C:\\x)"},
      {R"(\b\f\n\r\t)", "\b\f\n\r\t", R"(\b\f\n\r\t)", R"(\b\f\n\r\t)"},
      {R"(\u0001\u000B\u001F)", "\x01\x0B\x1F", "\x01\x0B\x1F", R"(\u0001\u000b\u001f)"},
      {R"(0123456789abcdef\/0123456789abcdef)", "0123456789abcdef/0123456789abcdef",
       "0123456789abcdef/0123456789abcdef", "0123456789abcdef/0123456789abcdef"},
  };
  for (const Case& text : kCases) {
    EXPECT_EQ(Formed(text.value, TextForm::kPlain), text.plain);
    EXPECT_EQ(Formed(text.value, TextForm::kTsv), text.tsv);
    EXPECT_EQ(Formed(text.value, TextForm::kJson), text.json);
    EXPECT_EQ(ValueOf(text.plain), text.value);
    std::string tsv;
    AppendTsv(text.plain, &tsv);
    EXPECT_EQ(tsv, text.tsv);
  }
}

TEST(EntryText, EachTextHasOneValueOnly) {
  const std::vector<std::string> kWrong = {
      "\"",
      "a\"b",
      "/",
      "\n",
      "\x1F",
      "\\",
      "\\a",
      "\\u",
      "\\u00",
      "\\u000",
      "\\u0020",
      "\\u0041",
      "\\u0009",
      "\\u000a",
      "\\u000b",
      "\\u000g",
      "\\u00g0",
      "\\u0101",
      "\\u1001",
      "\\u002F",
      "\\u0008",
      "\\u000C",
      "\\u000D",
      "\\u000A",
      "0123456789abcdef/",
      std::string(1, '\0'),
      "0123456789abcde\n0123456789abcdef",
      "0123456789abcdef\"",
  };
  for (const std::string& value : kWrong) {
    for (const TextForm form : {TextForm::kPlain, TextForm::kTsv, TextForm::kJson}) {
      EXPECT_EQ(Formed(value, form), "-") << value;
    }
  }
}
