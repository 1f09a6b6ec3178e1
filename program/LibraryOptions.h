#pragma once

#include <CLI/App.hpp>
#include <filesystem>
#include <memory>
#include <string>
#include <string_view>

#include "program/OwnSettings.h"
#include "quorvel/history/History.h"
#include "quorvel/library/FolderLibrary.h"
#include "scripttools/ScriptTools.h"

namespace kelvane {

/// A folder of scripts with its history. Nothing in it is opened before it is used.
struct OpenedLibrary {
  std::shared_ptr<quorvel::FolderLibrary> library;
  std::shared_ptr<quorvel::History> history;

  ScriptTools tools() const { return {library, history}; }
};

/// Throws an error with complete sentences when the folder is not there, cannot be read or is the whole disk;
/// `howToGiveIt` is how a person gives another, as the end of a sentence.
OpenedLibrary openLibrary(const std::filesystem::path& folder, std::string_view howToGiveIt);

/// The library that the settings name. Throws an error with complete sentences, as above or when they name none.
OpenedLibrary openLibraryOf(const OwnSettings& settings);

/// Which library a command works on, and whether it may change it.
struct LibraryOptions {
  std::string folder;  ///< As typed; empty when it was not.
  bool allowsWrites = false;

  /// Adds "--library", bound to this value, which must outlive the parsing.
  void addLibraryTo(CLI::App& command);

  /// Adds "--library" and "--allow-writes" in the same way.
  void addTo(CLI::App& command);

  /// That library, or the one of the settings when none was typed. Throws an error with a complete sentence when no
  /// folder is known, or the folder is not there or cannot be read.
  OpenedLibrary open() const;
};

}  // namespace kelvane
