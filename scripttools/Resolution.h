#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

#include "platform/QuorvelLibrary.h"

/// From the identifiers that clients send to places inside the library.
///
/// An identifier is an item's path relative to the library's root, its pieces joined by "/"; a script's ends in the
/// library's file extension, and the empty one names the root. Identifiers are compared byte for byte, and made by
/// `ScriptLibrary::identifier` only. Every identifier that a tool is given goes through here, so that no tool reaches a
/// file outside the library.
///
/// All of these throw RPCError::invalidParams, with the identifier quoted as it was sent, and change nothing on disk.
namespace kelvane {

/// The path of the place that the identifier names, every symbolic link followed; nothing need be there, and what a
/// long identifier names may be longer than any path of the system. Throws when it is not the root or below it: for an
/// absolute path, a piece "..", a link that leads out of the library. Time and memory are linear in the identifier.
std::string locate(std::string_view identifier, const quorvel::ScriptLibrary& library);

/// The script or folder there, without children. Throws when nothing is there, or a file that is no script.
quorvel::ScriptItem itemAt(std::string_view identifier, const quorvel::ScriptLibrary& library);

/// The script there; a folder is a failure.
quorvel::ScriptItem scriptAt(std::string_view identifier, const quorvel::ScriptLibrary& library);

/// The identifier that the library gives to the folder there; a script is a failure. No identifier means the top level
/// and gives nothing, without a look at the disk.
std::optional<std::string> folderAt(const std::optional<std::string_view>& identifier,
                                    const quorvel::ScriptLibrary& library);

/// The root joined with the identifier of an item as it stands: under this path a script's versions are kept. Checks
/// nothing.
std::filesystem::path pathOf(std::string_view identifier, const quorvel::ScriptLibrary& library);

}  // namespace kelvane
