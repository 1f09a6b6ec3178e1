#include "platform/FileSystem.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

namespace kelvane::filesystem {

namespace {

// As many links as Linux follows. Counted for each piece of the path that is asked for, so that what is left unfollowed
// is something that the system does not follow either.
constexpr int mostLinks = 40;

// The pieces of a path, the last one first.
void pushPieces(std::string_view path, std::vector<std::string>& pieces) {
  while (!path.empty()) {
    const std::size_t slash = path.rfind('/');
    const std::string_view piece = slash == std::string_view::npos ? path : path.substr(slash + 1);
    if (!piece.empty() && piece != ".") pieces.emplace_back(piece);
    path.remove_suffix(slash == std::string_view::npos ? path.size() : path.size() - slash);
  }
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

std::string orRoot(std::string path) {
  if (path.empty()) path.push_back('/');
  return path;
}

}  // namespace

std::optional<EntryKind> entry(const std::filesystem::path& path) {
  struct stat status {};
  if (path.native().find('\0') != std::string::npos || ::stat(path.c_str(), &status) != 0) return std::nullopt;
  return S_ISDIR(status.st_mode) ? EntryKind::directory : EntryKind::file;
}

std::filesystem::path standardized(const std::filesystem::path& path) {
  std::vector<std::string> pieces;
  pushPieces(path.native(), pieces);
  if (!path.native().starts_with('/')) {
    std::error_code error;
    const std::filesystem::path folder = std::filesystem::current_path(error);
    // Where the current folder is gone, this leads to it or to nothing, but never elsewhere.
    pushPieces(error ? "/proc/self/cwd" : folder.native(), pieces);
  }
  std::string result;
  for (; !pieces.empty(); pieces.pop_back()) enter(pieces.back(), result);
  return orRoot(std::move(result));
}

std::filesystem::path resolvingSymbolicLinks(const std::filesystem::path& path) {
  std::vector<std::string> left;  // the pieces to come, the next one last
  pushPieces(standardized(path).native(), left);
  std::string result;
  // Where the path's own piece is that is being looked at: what is made of a link that loops.
  std::string unfollowed;
  std::size_t behind = left.size();
  int links = 0;
  // How long the result was before the piece at which following ended; a ".." in a link may lead back up to it.
  constexpr std::size_t following = std::string::npos;
  std::size_t stuck = following;
  while (!left.empty()) {
    const std::string piece = std::move(left.back());
    left.pop_back();
    const std::size_t parent = result.size();
    enter(piece, result);
    if (piece == ".." && result.size() <= stuck) stuck = following;
    if (piece == ".." || stuck != following) continue;
    const LinkLookUp found = lookUp(result);
    if (found.answer == LinkLookUp::Answer::cannotTell) stuck = parent;
    if (found.answer != LinkLookUp::Answer::link) continue;
    if (left.size() < behind) {
      unfollowed = result;
      behind = left.size();
      links = 0;
    }
    if (++links > mostLinks) {
      result = unfollowed;
      left.resize(behind);
      stuck = 0;
      continue;
    }
    result.resize(found.target.starts_with('/') ? 0 : parent);
    pushPieces(found.target, left);
  }
  return orRoot(std::move(result));
}

}  // namespace kelvane::filesystem
