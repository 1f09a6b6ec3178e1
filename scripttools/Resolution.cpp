#include "scripttools/Resolution.h"

#include <algorithm>
#include <cstddef>
#include <optional>
#include <stdexcept>
#include <string>
#include <system_error>
#include <utility>

#include "platform/FileSystem.h"
#include "protocol/RPCError.h"

/// How an identifier is resolved, and why it cannot lead out of the library:
///
/// 1. The string is checked before the disk is touched. An absolute path is refused, and so is a piece ".." even if it
///    would stay inside: behind a symbolic link, ".." means the parent of the link's target.
///    A path that is longer than the system permits names nothing, whatever links are on it.
/// 2. The root, and the root joined with the identifier, are both resolved to paths without symbolic links. Links may
///    lead anywhere inside the library. Both sides are resolved alike, so a root that is reached through a link works.
/// 3. The two are compared as bytes: the path must be the root or start with the root and "/". The slash keeps out a
///    sibling folder such as "Scripts-old" beside "Scripts".
/// 4. Only then the disk is asked what is there, by the resolved path, so that what was checked is what is looked at.
///
/// Nearly always no link is on the path, and the system says in one look what is there without following any. Then the
/// path is resolved as it is, and steps 2 to 4 are done.
///
/// Other programs can swap a link in after step 2. So this is a check of what a client asked for, and the library makes
/// its own: it opens the item beneath its root without following links.
///
/// Paths are strings here. A client may send megabytes of slashes, and a std::filesystem::path holds an object for
/// every piece.
namespace kelvane {

using quorvel::ScriptItem;
using quorvel::ScriptLibrary;

namespace {

// The sentence with the identifier in quotes in it, as it was sent: it may have megabytes, so it is copied once.
RPCError failure(std::string_view before, std::string_view identifier, std::string_view after) {
  std::string sentence;
  sentence.reserve(before.size() + identifier.size() + after.size() + 2);
  sentence.append(before).append("\"").append(identifier).append("\"").append(after);
  return RPCError::invalidParams(std::move(sentence));
}

RPCError notInside(std::string_view identifier) {
  return failure("", identifier, " is not inside the library");
}

RPCError nothingAt(std::string_view identifier) {
  return failure("Nothing at ", identifier, "");
}

// As filesystem::entry. A disk that fails is not the client's fault, so that is another kind of error.
std::optional<filesystem::EntryKind> entryAt(const std::string& path, std::string_view identifier) try {
  return filesystem::entry(path);
} catch (const std::system_error& error) {
  std::string sentence("\"");
  sentence.append(identifier).append("\" could not be looked up, because the system says: ");
  throw std::runtime_error(sentence.append(error.code().message()).append(". Check the disk and try again."));
}

// Whether a piece is "..". A piece such as "..." or "..a" is an ordinary name.
bool hasPieceThatClimbs(std::string_view identifier) {
  if (identifier.find("..") == std::string_view::npos) return false;
  while (true) {
    const std::size_t slash = identifier.find('/');
    if (identifier.substr(0, slash) == "..") return true;
    if (slash == std::string_view::npos) return false;
    identifier.remove_prefix(slash + 1);
  }
}

// Whether the root joined with the identifier is longer than any path that the system opens, without empty pieces and
// ".". Reads no further than it must.
bool isTooLong(std::string_view identifier, const std::string& root) {
  std::size_t size = root.size();
  for (std::size_t at = 0; at < identifier.size();) {
    const std::size_t end = std::min(identifier.find('/', at), identifier.size());
    const std::string_view piece = identifier.substr(at, end - at);
    if (!piece.empty() && piece != ".") size += 1 + piece.size();
    if (size > filesystem::longestPath) return true;
    at = end + 1;
  }
  return false;
}

bool isInside(const std::string& path, const std::string& root) {
  return path == root || (path.size() > root.size() && path.starts_with(root) && path[root.size()] == '/');
}

// Where the dot of the extension is in a file's name. A name such as ".md" has no extension: it is hidden, and not a
// script. npos if there is none.
std::size_t extensionDot(std::string_view name) {
  const std::size_t dot = name.rfind('.');
  return dot == 0 ? std::string_view::npos : dot;
}

// The root joined with the identifier, not yet resolved. Throws if the strings alone say that it leads out of the
// library or names nothing.
std::string joined(std::string_view identifier, const ScriptLibrary& library) {
  if (leadsOut(identifier)) throw notInside(identifier);
  const std::string& root = library.root().native();
  if (isTooLong(identifier, filesystem::standardized(root))) throw nothingAt(identifier);
  std::string path;
  path.reserve(root.size() + 1 + identifier.size());
  path.append(root).append("/").append(identifier);
  return filesystem::standardized(path);
}

// The path with every symbolic link followed. Throws if it leads out of the library.
std::string resolved(const std::string& path, std::string_view identifier, const ScriptLibrary& library) {
  std::string root = filesystem::standardized(library.root());
  std::string candidate = filesystem::resolvingSymbolicLinks(path);
  // A path that stays as it is has no link in it, and so neither has the root, which is its beginning.
  if (candidate != path) root = filesystem::resolvingSymbolicLinks(root);
  if (!isInside(candidate, root)) throw notInside(identifier);
  return candidate;
}

}  // namespace

bool leadsOut(std::string_view identifier) {
  return identifier.starts_with('/') || hasPieceThatClimbs(identifier);
}

std::filesystem::path pathOf(std::string_view identifier, const ScriptLibrary& library) {
  return identifier.empty() ? library.root() : library.root() / identifier;
}

std::string locate(std::string_view identifier, const ScriptLibrary& library) {
  return resolved(joined(identifier, library), identifier, library);
}

ScriptItem itemAt(std::string_view identifier, const ScriptLibrary& library) {
  std::string path = joined(identifier, library);
  auto kind = filesystem::entryWithoutLinks(path);
  if (!kind) {
    path = resolved(path, identifier, library);
    kind = entryAt(path, identifier);
  }
  if (!kind) throw nothingAt(identifier);
  const std::string_view name = std::string_view(path).substr(path.rfind('/') + 1);
  if (*kind == filesystem::EntryKind::directory) {
    return {library.identifier(path), std::string(name), ScriptItem::Kind::folder, std::nullopt};
  }
  const std::size_t dot = extensionDot(name);
  if (dot == std::string_view::npos || name.substr(dot + 1) != library.fileExtension()) {
    throw failure("", identifier, " is not a script");
  }
  return {library.identifier(path), std::string(name.substr(0, dot)), ScriptItem::Kind::script, std::nullopt};
}

ScriptItem scriptAt(std::string_view identifier, const ScriptLibrary& library) {
  auto item = itemAt(identifier, library);
  if (item.kind != ScriptItem::Kind::script) {
    throw failure("", identifier, " is a folder, not a script");
  }
  return item;
}

std::optional<std::string> folderAt(const std::optional<std::string_view>& identifier, const ScriptLibrary& library) {
  if (!identifier) return std::nullopt;
  auto item = itemAt(*identifier, library);
  if (item.kind != ScriptItem::Kind::folder) {
    throw failure("", *identifier, " is a script, not a folder");
  }
  return std::move(item.identifier);
}

}  // namespace kelvane
