#include "archive/table.h"

#include <sstream>

#include <gtest/gtest.h>

namespace {

Table ATable() {
  return Table(
      {{"NAME", Table::Align::kLeft}, {"N", Table::Align::kRight}, {"LAST", Table::Align::kLeft}});
}

}  // namespace

TEST(Table, ColumnsAreAsWideAsTheirTexts) {
  Table table = ATable();
  table.Add({"\xC3\xA4", "100", "x"});
  table.Add({"longer", "7", ""});
  table.Add({"\n", "7", "y"});
  std::ostringstream out;
  table.Write(&out);
  EXPECT_EQ(out.str(),
            "NAME      N  LAST\n"
            "\xC3\xA4       100  x\n"
            "longer    7\n"
            "\\x0A      7  y\n");
}

TEST(Table, WithoutRowsIsNothing) {
  std::ostringstream out;
  ATable().Write(&out);
  EXPECT_EQ(out.str(), "");
}
