#include "quorvel/files/Beneath.h"

#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <climits>

namespace quorvel {

std::string joined(std::string_view folder, std::string_view name, std::string_view suffix) {
  std::string identifier;
  identifier.reserve(folder.size() + 1 + name.size() + suffix.size());
  if (!folder.empty()) identifier.append(folder).push_back('/');
  identifier.append(name).append(suffix);
  return identifier;
}

std::vector<std::string_view> pieces(std::string_view identifier) {
  std::vector<std::string_view> found;
  for (std::size_t begin = 0; begin < identifier.size();) {
    const std::size_t end = std::min(identifier.find('/', begin), identifier.size());
    const std::string_view piece = identifier.substr(begin, end - begin);
    if (!piece.empty() && piece != ".") found.push_back(piece);
    begin = end + 1;
  }
  return found;
}

bool staysBeneath(std::string_view identifier) noexcept {
  if (identifier.starts_with('/') || identifier.find('\0') != std::string_view::npos) return false;
  for (std::size_t begin = 0; begin < identifier.size();) {
    const std::size_t end = std::min(identifier.find('/', begin), identifier.size());
    if (identifier.substr(begin, end - begin) == "..") return false;
    begin = end + 1;
  }
  return true;
}

int passingFlags() noexcept {
#if defined(O_PATH) && !defined(KELVANE_PORTABLE)
  return O_PATH | O_DIRECTORY;
#else
  return O_RDONLY | O_DIRECTORY;
#endif
}

Expected<Descriptor> openBeneath(const SystemCalls& calls, int folder, std::string_view identifier, int flags) {
  if (!staysBeneath(identifier)) return std::make_error_code(std::errc::invalid_argument);
  // Also where each piece by itself would do, so that both ways agree.
  if (identifier.size() >= PATH_MAX) return std::make_error_code(std::errc::filename_too_long);
  const std::string path = identifier.empty() ? "." : std::string(identifier);
  const int opened = calls.openBeneath(folder, path.c_str(), flags | O_NOFOLLOW | O_CLOEXEC);
  if (opened >= 0) return Descriptor(opened);
  // An old kernel, a sandbox's filter, or a folder renamed while the kernel looked (EAGAIN). A genuine EPERM comes
  // back from the other way too.
  const std::error_code error = lastError();
  switch (error.value()) {
    case ENOSYS:
    case EPERM:
    case EINVAL:
    case E2BIG:
    case EAGAIN:
      return openPieceByPiece(folder, identifier, flags);
    default:
      return error;
  }
}

Expected<Descriptor> openPieceByPiece(int folder, std::string_view identifier, int flags) {
  if (!staysBeneath(identifier)) return std::make_error_code(std::errc::invalid_argument);
  std::vector<std::string_view> way = pieces(identifier);
  if (way.empty()) way.emplace_back(".");
  Descriptor reached;
  int from = folder;
  for (std::size_t index = 0; index < way.size(); ++index) {
    const bool last = index + 1 == way.size();
    Descriptor next(
        ::openat(from, std::string(way[index]).c_str(), (last ? flags : passingFlags()) | O_NOFOLLOW | O_CLOEXEC));
    if (!next) return lastError();
    reached = std::move(next);
    from = reached.get();
  }
  return reached;
}

}  // namespace quorvel
