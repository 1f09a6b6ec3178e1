#pragma once

#include <gtest/gtest.h>

#include <cctype>
#include <string>
#include <string_view>

namespace kelvane::tests {

/// A name of letters and digits for a description: "aLineThatIsEmpty" for "a line that is empty".
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

/// Names each row of a table after what the row prints; pass it as the last argument of INSTANTIATE_TEST_SUITE_P. A row
/// that is a structure needs a PrintTo function. GoogleTest refuses two rows with the same name.
struct RowName {
  template <class Row>
  std::string operator()(const testing::TestParamInfo<Row>& row) const {
    return nameMadeOf(testing::PrintToString(row.param));
  }
};

}  // namespace kelvane::tests
