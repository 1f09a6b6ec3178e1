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

namespace kelvane::filesystem {

namespace {

// As many links as Linux follows. Counted for each piece of the path that is asked for, so that what is left unfollowed
// is something that the system does not follow either.
constexpr int mostLinks = 40;

// The next piece of the path from there on that is neither empty nor "."; empty at the end.
std::string_view nextPiece(std::string_view path, std::size_t& at) {
  while (at < path.size()) {
    const std::size_t end = std::min(path.find('/', at), path.size());
    const std::string_view piece = path.substr(at, end - at);
    at = end + 1;
    if (!piece.empty() && piece != ".") return piece;
  }
  return {};
}

// An absolute path with neither "." nor "..", empty for the root.
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

// Whether the system tells in one step that something is there and that no link is on the way to it, nor is itself one.
// False also where it does not tell.
bool hasNoLinks([[maybe_unused]] const std::string& path) {
#if defined(__linux__) && !defined(KELVANE_PORTABLE) && defined(SYS_openat2)
  if (path.find('\0') != std::string::npos) return false;
  open_how how{};
  how.flags = O_PATH | O_CLOEXEC;
  how.resolve = RESOLVE_NO_SYMLINKS;
  const long opened = ::syscall(SYS_openat2, AT_FDCWD, path.c_str(), &how, sizeof how);
  return opened >= 0 && ::close(static_cast<int>(opened)) == 0;
#else
  return false;
#endif
}

std::string orRoot(std::string path) {
  if (path.empty()) path.push_back('/');
  return path;
}

}  // namespace

std::optional<EntryKind> entry(const std::string& path) {
  struct stat status {};
  if (path.find('\0') != std::string::npos || ::stat(path.c_str(), &status) != 0) return std::nullopt;
  return S_ISDIR(status.st_mode) ? EntryKind::directory : EntryKind::file;
}

std::string standardized(const std::string& path) {
  std::string result;
  const auto enterAll = [&result](std::string_view pieces) {
    result.reserve(result.size() + 1 + pieces.size());
    std::size_t at = 0;
    for (std::string_view piece; !(piece = nextPiece(pieces, at)).empty();) enter(piece, result);
  };
  if (!path.starts_with('/')) {
    std::error_code error;
    const std::filesystem::path folder = std::filesystem::current_path(error);
    // Where the current folder is gone, this leads to it or to nothing, but never elsewhere.
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
  std::vector<Way> ways;  // the path that was asked for, and on top of it the targets of links that are being followed
  ways.push_back({standardized(path)});
  if (hasNoLinks(ways.front().path)) return std::move(ways.front().path);
  std::string result;
  result.reserve(ways.front().path.size());
  // Where the path's own piece is that is being looked at: what is made of a link that loops.
  std::string unfollowed;
  int links = 0;
  // How long the result was before the piece at which following ended; a ".." in a link may lead back up to it.
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
