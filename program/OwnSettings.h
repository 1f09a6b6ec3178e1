#pragma once

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "host/Preferences.h"
#include "quorvel/settings/FileDefaults.h"

namespace kelvane {

/// The settings of this program: the two switches of `Preferences`, and the folder of scripts.
///
///     const OwnSettings settings;
///     if (settings.preferences().isEnabled()) serve(settings.libraryFolder());
///
/// The file is read once, by the constructor, so all values are of one moment; a later change is not seen. Damaged
/// settings, and those of a person without a home folder, count as empty. Operations do not touch the disk, and may be
/// called from several threads at once.
class OwnSettings {
 public:
  static constexpr std::string_view libraryFolderKey = "libraryFolder";

  /// What to say if the first switch is off.
  static constexpr const char* serverIsOff = "The server is switched off. Run: kelvane settings enable";

  /// Reads the settings. Throws only std::bad_alloc: `problem` says what is wrong with the file.
  OwnSettings();

  /// The two switches. Both are off if the settings are damaged or missing.
  Preferences preferences() const { return Preferences(store_.get()); }

  /// Stores a value for servers that start after this, and says on standard output where the old text of a damaged file
  /// went. This object keeps its own values. Throws an error with complete sentences if the value cannot be stored.
  void change(std::string_view key, bool value) const;
  void change(std::string_view key, std::string_view value) const;

  /// The file that stores them. Lives as long as this object. Throws an error with
  /// complete sentences if there is no home folder.
  const quorvel::FileDefaults& store() const;

  /// What is wrong with the file that stores them, as complete sentences; empty if nothing is.
  std::optional<std::string> problem() const;

  /// The folder of scripts, which need not exist; empty if none is set.
  std::optional<std::filesystem::path> namedLibraryFolder() const;

  /// The same. Throws an error that says how to set it if none is set, or it is not an absolute path.
  std::filesystem::path libraryFolder() const;

 private:
  std::shared_ptr<const quorvel::FileDefaults> store_;
};

}  // namespace kelvane
