#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "program/LibraryOptions.h"
#include "quorvel/history/VersionNumber.h"

/// What the commands for the history at hand share: which script and which version a person means.
namespace kelvane {

/// A script that a person named.
struct NamedScript {
  std::string identifier;
  std::optional<quorvel::ScriptItem> item;  ///< Nothing when the script is gone, and only its history is there.
};

/// The script with that identifier, its ".md" optional. Throws an error with complete sentences when there is neither
/// such a script nor a history of one.
NamedScript scriptNamed(const std::string& typed, const OpenedLibrary& opened);

/// Whether a file is at that identifier.
bool isThere(const std::string& identifier, const OpenedLibrary& opened);

/// SCRIPT VERSION [--library DIR]
struct VersionOptions {
  std::string script;
  std::string version;
  LibraryOptions library;

  /// Adds them, bound to this value, which must outlive the parsing.
  void addTo(CLI::App& command);

  /// Throws UsageError when the script is missing, or the version is no version's number.
  quorvel::VersionNumber number() const;
};

/// The version's exact bytes. Throws an error with complete sentences when there is none of that number.
std::string textOf(quorvel::VersionNumber version, const NamedScript& script, const OpenedLibrary& opened);

}  // namespace kelvane
