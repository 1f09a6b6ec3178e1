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

/// The settings of one domain in a file: a JSON object with a member a setting, as in
///
///     {
///       "mcpEnabled": true,
///       "libraryFolder": "/home/ada/Scripts"
///     }
///
/// It may be edited by hand; what a change does not concern stays as it is written. A file that holds anything else is
/// damaged: it reads as no settings, and a change keeps a copy of it first. Reading makes no file.
class FileDefaults final : public kelvane::UserDefaults {
 public:
  /// The settings of the domain, in `.config/kelvane/DOMAIN.json` below the person's home folder (platform/HomeFolder.h
  /// says why nothing else has a say). Nothing where there is no home folder, or for a name that is empty, begins with
  /// a dot, or holds a slash or a NUL.
  static std::shared_ptr<FileDefaults> domain(std::string_view name);

  /// Reads the file; later changes by others are not seen. Does not fail: `problem` says what is wrong with the file.
  explicit FileDefaults(std::filesystem::path file);

  const std::filesystem::path& file() const noexcept { return file_; }

  /// Why the settings read as none though there is a file: complete sentences. Nothing when all is well.
  const std::optional<std::string>& problem() const noexcept { return problem_; }

  /// Bool-like are: true; a number that is not zero; a text in which, behind blanks, one sign and zeros, all optional,
  /// the next character is one of Y, y, T, t and 1 to 9. Everything else is false.
  bool boolForKey(std::string_view key) const override;

  /// The text under the key; nothing when there is none, or another value.
  std::optional<std::string> textForKey(std::string_view key) const;

  /// Changes one setting and returns when it is on the disk for good, the folders made where they are missing. What
  /// others changed in the file meanwhile stays. Returns which copy holds the text of a damaged file, if it was one.
  /// Throws FileError: the settings are as they were then.
  std::optional<std::filesystem::path> set(std::string_view key, std::same_as<bool> auto value) {
    return write(key, value ? "true" : "false");
  }
  std::optional<std::filesystem::path> set(std::string_view key, std::string_view text);

  /// The file with the copies of the damaged texts that it held: DOMAIN.json.damaged, then DOMAIN.json.damaged-2 and so
  /// on.
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
