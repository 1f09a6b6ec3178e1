#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <string_view>

#include "program/LibraryOptions.h"
#include "quorvel/library/VersionNumber.h"

/// What the commands for the history at hand share: which script and which version a person means, and how moments and
/// texts are shown.
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

/// A moment in the person's time zone: "2026-11-21 20:13:05".
std::string shown(std::chrono::system_clock::time_point moment);

/// A text on one line of a terminal: each character that would steer it (control characters, separators of lines, marks
/// of direction), and what is no UTF-8, as U+FFFD.
std::string onOneLine(std::string_view text);

/// "1 version", "2 versions".
std::string counted(std::int64_t count, std::string_view noun);

}  // namespace kelvane
