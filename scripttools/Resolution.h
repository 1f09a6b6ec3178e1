#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

#include "platform/QuorvelLibrary.h"

/// Resolves the identifiers that clients send to items inside the library.
///
/// An identifier is an item's path relative to the library's root, its pieces joined by "/". A script's ends in the
/// library's file extension; the empty identifier names the root. Identifiers are compared byte for byte, and only
/// `ScriptLibrary::identifier` makes them. Every identifier in a tool's arguments is resolved here, so that no tool
/// reaches a file outside the library.
///
/// A failure is RPCError::invalidParams, which quotes the identifier as it was sent. Nothing on disk is ever changed.
/// Time and memory are linear in the identifier and in the targets of the links on its path.
///
/// What is not promised: that the item is still there, or still the same, after the function returns. The library opens
/// it without following links, and writing tools resolve again while they hold the lock.
namespace kelvane {

/// Whether the string alone says that it leads out of the library: an absolute path, or one with a piece "..".
bool leadsOut(std::string_view identifier);

/// The path that the identifier names, with every symbolic link followed. Nothing need exist there. Throws if it leads
/// out of the library: for an absolute path, a piece "..", or a link to somewhere else. Also throws if the path is
/// longer than the system permits before links are followed: nothing can be there.
std::string locate(std::string_view identifier, const quorvel::ScriptLibrary& library);

/// The script or folder that the identifier names, without children. Also throws if nothing is there, or a file that is
/// not a script.
quorvel::ScriptItem itemAt(std::string_view identifier, const quorvel::ScriptLibrary& library);

/// The same, for a script. Also throws for a folder.
quorvel::ScriptItem scriptAt(std::string_view identifier, const quorvel::ScriptLibrary& library);

/// The library's own identifier of the folder that the identifier names. Also throws for a script. std::nullopt stands
/// for the top level and is returned without looking at the disk.
std::optional<std::string> folderAt(const std::optional<std::string_view>& identifier,
                                    const quorvel::ScriptLibrary& library);

/// The root joined with the identifier of an item: the path under which a script's versions are saved. Checks nothing,
/// so the identifier must come from an item.
std::filesystem::path pathOf(std::string_view identifier, const quorvel::ScriptLibrary& library);

}  // namespace kelvane
