#include "platform/FileSystem.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <filesystem>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

#if defined(__linux__) && !defined(KELVANE_PORTABLE)
#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/syscall.h>
#endif

/// How symbolic links are followed. On Linux one system call says whether the path exists and has no link on it, which
/// is nearly always so. Otherwise the pieces are looked up one after the other, as the system would: a link's target is
/// put in front of the pieces that are left, on a stack rather than by recursion. A piece that cannot be looked up
/// stays as it is, and so do those after it, until a ".." leads back above it.
namespace kelvane::filesystem {

namespace {

// As many links as Linux follows. They are counted for each piece of the given path separately, so a path that this
// does not follow to its end is one that the system does not follow either.
constexpr int mostLinks = 40;

// The next piece from offset `at` on that is neither empty nor "."; empty at the end. Moves `at` past it.
std::string_view nextPiece(std::string_view path, std::size_t& at) {
  while (at < path.size()) {
    const std::size_t end = std::min(path.find('/', at), path.size());
    const std::string_view piece = path.substr(at, end - at);
    at = end + 1;
    if (!piece.empty() && piece != ".") return piece;
  }
  return {};
}

// Appends the piece, or removes the last one for "..". `path` is absolute without "." and "..", and empty for the root.
void enter(std::string_view piece, std::string& path) {
  if (piece == "..") {
    path.resize(path.empty() ? 0 : path.rfind('/'));
  } else {
    path.append("/").append(piece);
  }
}

struct LinkLookUp {
  enum class Answer { link, noLink, cannotTell } answer;
  std::string target;
};

LinkLookUp lookUp(const std::string& path) {
  if (path.find('\0') != std::string::npos) return {LinkLookUp::Answer::cannotTell, {}};
  for (std::string target(256, '\0');; target.resize(target.size() * 4)) {
    const ssize_t size = ::readlink(path.c_str(), target.data(), target.size());
    if (size < 0) return {errno == EINVAL ? LinkLookUp::Answer::noLink : LinkLookUp::Answer::cannotTell, {}};
    if (static_cast<std::size_t>(size) == target.size()) continue;
    target.resize(static_cast<std::size_t>(size));
    return {LinkLookUp::Answer::link, std::move(target)};
  }
}

// What the system opens at the path in one call if no link is on the path, and the path does not lead to one. -1 if
// nothing is there, or if the system does not say. It is not opened for reading, so no right to read it is needed.
int openedWithoutLinks([[maybe_unused]] const std::string& path) {
#if defined(__linux__) && !defined(KELVANE_PORTABLE) && defined(SYS_openat2)
  if (path.find('\0') != std::string::npos) return -1;
  open_how how{};
  how.flags = O_PATH | O_CLOEXEC;
  how.resolve = RESOLVE_NO_SYMLINKS;
  return static_cast<int>(::syscall(SYS_openat2, AT_FDCWD, path.c_str(), &how, sizeof how));
#else
  return -1;
#endif
}

bool hasNoLinks(const std::string& path) {
  const int opened = openedWithoutLinks(path);
  return opened >= 0 && ::close(opened) == 0;
}

EntryKind kindOf(const struct stat& status) {
  return S_ISDIR(status.st_mode) ? EntryKind::directory : EntryKind::file;
}

// Whether a path is what `standardized` makes of it. Most are, and this takes a tenth of the time.
bool isStandardized(std::string_view path) {
  if (!path.starts_with('/')) return false;
  for (std::size_t at = 0; at < path.size();) {
    const std::size_t end = std::min(path.find('/', at + 1), path.size());
    const std::string_view piece = path.substr(at + 1, end - at - 1);
    if (piece.empty() || piece == "." || piece == "..") return false;
    at = end;
  }
  return true;
}

std::string orRoot(std::string path) {
  if (path.empty()) path.push_back('/');
  return path;
}

}  // namespace

std::optional<EntryKind> entry(const std::string& path) {
  struct stat status {};
  if (path.find('\0') != std::string::npos) return std::nullopt;
  if (::stat(path.c_str(), &status) == 0) return kindOf(status);
  switch (errno) {
    case ENOENT:
    case ENOTDIR:
    case ELOOP:
    case ENAMETOOLONG:
    case EACCES:
    case EPERM:
    case ESTALE:
      return std::nullopt;
    default:
      throw std::system_error(errno, std::generic_category());
  }
}

std::optional<EntryKind> entryWithoutLinks(const std::string& path) {
  const int opened = openedWithoutLinks(path);
  if (opened < 0) return std::nullopt;
  struct stat status {};
  const bool isKnown = ::fstat(opened, &status) == 0;
  ::close(opened);
  return isKnown ? std::optional(kindOf(status)) : std::nullopt;
}

std::string standardized(const std::string& path) {
  if (isStandardized(path)) return path;
  std::string result;
  const auto enterAll = [&result](std::string_view pieces) {
    result.reserve(result.size() + 1 + pieces.size());
    std::size_t at = 0;
    for (std::string_view piece; !(piece = nextPiece(pieces, at)).empty();) enter(piece, result);
  };
  if (!path.starts_with('/')) {
    std::error_code error;
    const std::filesystem::path folder = std::filesystem::current_path(error);
    // If the current folder was removed, it has no path. This one leads to it or to nothing, but never elsewhere.
    enterAll(error ? std::string_view("/proc/self/cwd") : std::string_view(folder.native()));
  }
  enterAll(path);
  return orRoot(std::move(result));
}

std::string resolvingSymbolicLinks(const std::string& path) {
  struct Way {
    std::string path;
    std::size_t at = 0;
  };
  std::vector<Way> ways;  // the given path, and above it the targets of the links that are being followed
  ways.push_back({standardized(path)});
  if (hasNoLinks(ways.front().path)) return std::move(ways.front().path);
  std::string result;
  result.reserve(ways.front().path.size());
  // The path up to the given path's own piece that is being looked up: the result if the links there loop.
  std::string unfollowed;
  int links = 0;
  // The size of the result before the piece that could not be looked up. A ".." that leads back there ends that state.
  constexpr std::size_t following = std::string::npos;
  std::size_t stuck = following;
  while (!ways.empty()) {
    const std::string_view piece = nextPiece(ways.back().path, ways.back().at);
    if (piece.empty()) {
      ways.pop_back();
      continue;
    }
    const bool isUp = piece == "..";
    const std::size_t parent = result.size();
    enter(piece, result);
    if (isUp && result.size() <= stuck) stuck = following;
    if (isUp || stuck != following) continue;
    LinkLookUp found = lookUp(result);
    if (found.answer == LinkLookUp::Answer::cannotTell) stuck = parent;
    if (found.answer != LinkLookUp::Answer::link) continue;
    if (ways.size() == 1) {
      unfollowed = result;
      links = 0;
    }
    if (++links > mostLinks) {
      result = unfollowed;
      ways.erase(ways.begin() + 1, ways.end());
      stuck = 0;
      continue;
    }
    result.resize(found.target.starts_with('/') ? 0 : parent);
    ways.push_back({std::move(found.target)});
  }
  return orRoot(std::move(result));
}

}  // namespace kelvane::filesystem
