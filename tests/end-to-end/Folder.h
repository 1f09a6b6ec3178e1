#pragma once

#include <filesystem>
#include <map>
#include <string>
#include <string_view>

#include "tests/support/TemporaryFolder.h"

namespace kelvane::tests {

/// A temporary folder with what tests of the program do to it and ask of it. Names are paths relative to it.
class Folder : public TemporaryFolder {
 public:
  std::filesystem::path operator/(std::string_view name) const { return path() / name; }
  std::string text() const { return path().native(); }  ///< The path, as an argument.

  /// Writes a file, with the folders above it.
  void put(std::string_view name, std::string_view bytes) const;

  /// The file's bytes.
  std::string bytes(std::string_view name) const;

  /// Everything below: kind, number, mode, size and moment of change of each entry.
  std::map<std::string, std::string> census() const;

  /// Gives it and everything below to the user "nobody", if the test has root's rights.
  void giveToNobody() const;
};

}  // namespace kelvane::tests
