#pragma once

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "host/Preferences.h"
#include "quorvel/settings/FileDefaults.h"

namespace kelvane {

/// The settings of this program when this value was made: the two switches of `Preferences`, and the folder of scripts.
/// Damaged settings, and those of a person without a home folder, count as empty.
class OwnSettings {
 public:
  static constexpr std::string_view libraryFolderKey = "libraryFolder";

  /// What to say if the first switch is off.
  static constexpr const char* serverIsOff = "The server is switched off. Run: kelvane settings enable";

  OwnSettings();

  Preferences preferences() const { return Preferences(store_.get()); }

  /// The file that stores them. Throws an error with complete sentences if there is no home folder.
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
