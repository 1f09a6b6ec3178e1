#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// Unicode's own data and test files, as Debian's package unicode-data has them.
namespace kelvane::tests {

inline constexpr char32_t lastScalar = 0x10FFFF;

/// Why a test that needs those files is skipped if they are not installed.
inline constexpr const char* noUnicodeFiles = "Unicode's data files are not installed (Debian: unicode-data, bzip2).";

/// The lines of one file, by its path below the package's folder, without comments, surrounding spaces and empty lines.
/// A file that ends in .bz2 is unpacked. std::nullopt if the file cannot be read.
std::optional<std::vector<std::string>> unicodeFile(const std::string& name);

/// A line's fields, which semicolons separate, without surrounding spaces.
std::vector<std::string> fields(std::string_view line);

/// The scalars of a field such as "0041 030A".
std::u32string scalars(std::string_view field);

/// Calls a function with each scalar of a field such as "0041" or "0041..005A".
void forEachScalar(std::string_view field, const std::function<void(char32_t)>& take);

/// Whether a number is a scalar: anything but a surrogate.
inline bool isScalar(char32_t number) {
  return number <= lastScalar && (number < 0xD800 || number > 0xDFFF);
}

/// For each number up to U+10FFFF whether lines "scalars ; value" of the file give it that value.
std::optional<std::vector<bool>> scalarsWith(std::string_view value, const std::string& name);

/// A scalar as UTF-8, independent of the code under test.
std::string utf8(std::u32string_view scalars);
std::string utf8(char32_t scalar);

/// "U+0041 U+030A", for messages.
std::string spelled(std::u32string_view scalars);

}  // namespace kelvane::tests
