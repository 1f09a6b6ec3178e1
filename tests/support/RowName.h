#pragma once

#include <gtest/gtest.h>

#include <cctype>
#include <string>
#include <string_view>

namespace kelvane::tests {

/// A description as a name of letters and digits: "a line that is empty" is "aLineThatIsEmpty".
inline std::string nameMadeOf(std::string_view description) {
  std::string name;
  bool beginsWord = false;
  for (const char character : description) {
    const auto byte = static_cast<unsigned char>(character);
    if (byte >= 0x80 || std::isalnum(byte) == 0) {
      beginsWord = !name.empty();
      continue;
    }
    name.push_back(beginsWord ? static_cast<char>(std::toupper(byte)) : character);
    beginsWord = false;
  }
  return name;
}

/// Names each row of a table of cases after what the row prints: the last argument of INSTANTIATE_TEST_SUITE_P. Two
/// rows of one table that print the same are refused by GoogleTest. A row of a structure prints what its PrintTo says.
struct RowName {
  template <class Row>
  std::string operator()(const testing::TestParamInfo<Row>& row) const {
    return nameMadeOf(testing::PrintToString(row.param));
  }
};

}  // namespace kelvane::tests
