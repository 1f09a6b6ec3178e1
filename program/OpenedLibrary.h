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
    "--library", "The folder that holds the scripts. Default: KELVANE_LIBRARY, or the one in the settings.", "DIR",
    "a folder", "KELVANE_LIBRARY"};

/// The options of a command that takes no other.
inline constexpr Option onlyLibraryOption[] = {libraryOption};

/// A folder of scripts with its history.
///
///     const OpenedLibrary opened = openLibraryOf(arguments);
///     for (const Tool& tool : opened.tools().tools(false)) …
///
/// The history's database is opened when it is first needed, and never by a command that only reads scripts. Both parts
/// may be used from several threads at once.
struct OpenedLibrary {
  std::shared_ptr<quorvel::FolderLibrary> library;
  std::shared_ptr<quorvel::History> history;

  /// The tools on this library. They share its parts, so they may outlive this value.
  ScriptTools tools() const { return {library, history}; }
};

/// The library in a folder. Creates nothing. Throws an error with complete sentences if the folder does not exist,
/// cannot be read or is the whole disk; they tell the person to type `howToGiveIt`, such as "--library DIR", with
/// another folder.
OpenedLibrary openLibrary(const std::filesystem::path& folder, std::string_view howToGiveIt);

/// The library that the settings name. Throws an error with complete sentences, as above or if they name none.
OpenedLibrary openLibraryOf(const OwnSettings& settings);

/// The library that was typed, else the one of the settings. Throws an error with complete sentences, as both above.
OpenedLibrary openLibraryOf(const Arguments& arguments);

}  // namespace kelvane
