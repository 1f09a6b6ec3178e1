#pragma once

#include <filesystem>
#include <memory>
#include <string_view>

#include "program/CommandLine.h"
#include "program/OwnSettings.h"
#include "quorvel/history/History.h"
#include "quorvel/library/FolderLibrary.h"
#include "scripttools/ScriptTools.h"

namespace kelvane {

/// The option of every command that works on a folder of scripts.
inline constexpr Option libraryOption = {
    "--library", "The folder that holds the scripts. Default: the one in the settings.", "DIR", "a folder"};

/// The options of a command that takes no other.
inline constexpr Option onlyLibraryOption[] = {libraryOption};

/// A folder of scripts with its history. Nothing in it is opened before it is used.
struct OpenedLibrary {
  std::shared_ptr<quorvel::FolderLibrary> library;
  std::shared_ptr<quorvel::History> history;

  ScriptTools tools() const { return {library, history}; }
};

/// Throws an error with complete sentences if the folder does not exist, cannot be read or is the whole disk;
/// `howToGiveIt` is what a person types to give another: "--library DIR".
OpenedLibrary openLibrary(const std::filesystem::path& folder, std::string_view howToGiveIt);

/// The library that the settings name. Throws an error with complete sentences, as above or if they name none.
OpenedLibrary openLibraryOf(const OwnSettings& settings);

/// The library that was typed, else the one of the settings. Throws an error with complete sentences, as both above.
OpenedLibrary openLibraryOf(const Arguments& arguments);

}  // namespace kelvane
