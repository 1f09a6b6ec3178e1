#pragma once

#include <concepts>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "platform/UserDefaults.h"
#include "platform/json/JSONDocument.h"
#include "quorvel/settings/FileCopies.h"

namespace quorvel {

/// The settings of one domain, in a file that is a JSON object with one member per setting:
///
///     {
///       "mcpEnabled": true,
///       "libraryFolder": "/home/ada/Scripts"
///     }
///
/// The user may edit the file. A change keeps the layout of everything else. A file with any other content is damaged:
/// all settings read as missing, and the next change first saves a copy of it. Reading creates no file.
///
/// The settings are read once, by the constructor and after each `set`. Reading a setting takes time linear in the
/// file. Operations that are const may be called from several threads at once.
class FileDefaults final : public kelvane::UserDefaults {
 public:
  /// The settings of a domain, in `.config/kelvane/DOMAIN.json` in the user's home folder (platform/HomeFolder.h says
  /// why no variable changes that). Null if there is no home folder, or if the name is empty, begins with a dot, or
  /// contains a slash or a NUL.
  static std::shared_ptr<FileDefaults> domain(std::string_view name);

  /// Reads the file. If that fails, all settings read as missing, and `problem` says why.
  explicit FileDefaults(std::filesystem::path file);

  const std::filesystem::path& file() const noexcept { return file_; }

  /// Why all settings read as missing although there is a file, in complete sentences. Empty if the file is right or
  /// missing.
  const std::optional<std::string>& problem() const noexcept { return problem_; }

  /// True for: true; a number that is not zero; a string in which, after white space, an optional sign and zeros, the
  /// next character is Y, y, T, t or one of 1 to 9. False for everything else.
  bool boolForKey(std::string_view key) const override;

  /// The string under the key. Empty if there is none, or the value is not a string.
  std::optional<std::string> textForKey(std::string_view key) const;

  /// Changes one setting, and returns when it is on the disk. Creates the file and its folders if they are missing. A
  /// setting that another program changed meanwhile keeps its new value. Returns the copy of the old text if the file
  /// was damaged. Throws FileError; the settings are then unchanged. A string must be UTF-8.
  std::optional<std::filesystem::path> set(std::string_view key, std::same_as<bool> auto value) {
    return write(key, value ? "true" : "false");
  }
  std::optional<std::filesystem::path> set(std::string_view key, std::string_view text);

  /// The file with the copies of damaged texts: DOMAIN.json.damaged, then DOMAIN.json.damaged-2 and so on.
  FileCopies copies() const;

 private:
  void read();
  std::optional<kelvane::JSONDocument::Value> find(std::string_view key) const;
  std::optional<std::filesystem::path> write(std::string_view key, std::string_view json);

  std::filesystem::path file_;
  std::optional<kelvane::JSONDocument> settings_;
  std::optional<std::string> problem_;
};

}  // namespace quorvel
