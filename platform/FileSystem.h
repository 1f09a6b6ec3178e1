#pragma once

#include <optional>
#include <string>

/// Questions about paths and what is at them. Paths are bytes: nothing is folded, normalised or decoded.
///
/// A path is text here and may be of any length, longer than any that the system takes: an operation takes time and
/// memory in proportion to its bytes. (A `std::filesystem::path`, which converts to such a text, holds an object for
/// each of its pieces.)
namespace kelvane::filesystem {

enum class EntryKind { file, directory };

/// What is at the path, symbolic links followed: a directory, or anything else that exists ("file"). Nothing when
/// nothing is there or it cannot be told: a missing, dangling or looping path, one without permission, one too long for
/// the system, one holding a NUL (which no file's name can). Never fails for any path.
std::optional<EntryKind> entry(const std::string& path);

/// The path made absolute, without empty, "." and ".." pieces and without a slash at the end. Looks at no file.
std::string standardized(const std::string& path);

/// The standardized path with every symbolic link on it followed, the last piece's included. Pieces that do not exist
/// stay as they are, and so does the rest of the path behind a link that loops or cannot be read. Never fails for any
/// path.
std::string resolvingSymbolicLinks(const std::string& path);

}  // namespace kelvane::filesystem
