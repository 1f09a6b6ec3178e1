#pragma once

#include <climits>
#include <cstddef>
#include <optional>
#include <string>

/// Questions about paths, and about what is at them. A client's identifier becomes a path, so every path is permitted
/// here: operations never fail because of a path.
///
///     standardized("/a//b/../c/.")      // "/a/c"
///     resolvingSymbolicLinks("/a/c")    // "/x/c" if "/a" is a link to "/x"
///
/// A path is a string of bytes; letter case, accents and encoding are not interpreted. It may be longer than the system
/// permits. It is not a std::filesystem::path, which holds an object per piece: a client may send megabytes of slashes.
///
/// Takes time and memory linear in the path and in the targets of the links on it. May throw std::bad_alloc. May be
/// called from several threads at once. Nothing is promised about later: another program may change the disk as soon as
/// an operation returns, so what was checked must still be opened without following links.
namespace kelvane::filesystem {

/// The size of the longest path that the system opens. A longer one names nothing.
inline constexpr std::size_t longestPath = PATH_MAX - 1;  // without the NUL at its end

enum class EntryKind { file, directory };

/// What is at the path, with symbolic links followed: a directory, or anything else that exists ("file"). std::nullopt
/// if nothing is there that we may look at: the path is missing, dangling, looping, too long or not permitted, or it
/// contains a NUL, which no file name can. Throws std::system_error if the system does not say, because the disk fails
/// for example: a path that is taken for one without anything would be a lie then.
std::optional<EntryKind> entry(const std::string& path);

/// The same in one look at the whole path, if there is no symbolic link on it and it does not lead to one. std::nullopt
/// also if there is one, or if the system cannot look so (before Linux 5.6): then ask `resolvingSymbolicLinks`.
std::optional<EntryKind> entryWithoutLinks(const std::string& path);

/// The path made absolute, without empty, "." and ".." pieces and without a slash at the end. A ".." removes the piece
/// before it; whether that piece is a link is not checked, because no file is looked at.
std::string standardized(const std::string& path);

/// The standardized path with every symbolic link on it followed, including one at its end. Pieces that do not exist
/// stay as they are. So does the rest of the path after a link that loops (more than 40 links, as on Linux) or that
/// cannot be read.
std::string resolvingSymbolicLinks(const std::string& path);

}  // namespace kelvane::filesystem
