#include "quorvel/files/Beneath.h"

#include <fcntl.h>

#include <cerrno>
#include <climits>
#include <string>
#include <utility>
#include <vector>

// The system does it in one call where it has openat2 (Linux 5.6). Elsewhere each piece is opened from the folder
// before it, and never followed if it is a link. Both refuse the same paths, so that it does not matter which is taken.

namespace quorvel {

int passingFlags() noexcept {
#if defined(O_PATH) && !defined(KELVANE_PORTABLE)
  return O_PATH | O_DIRECTORY;
#else
  return O_RDONLY | O_DIRECTORY;
#endif
}

Expected<Descriptor> openBeneath(const SystemCalls& calls, int folder, const PathBeneath& path, int flags) {
  // Also where each piece by itself would do, so that both ways agree.
  if (path.string().size() >= PATH_MAX) return std::make_error_code(std::errc::filename_too_long);
  const char* const name = path.isTheFolderItself() ? "." : path.string().c_str();
  const int opened = calls.openBeneath(folder, name, flags | O_NOFOLLOW | O_CLOEXEC);
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
      return openPieceByPiece(folder, path, flags);
    default:
      return error;
  }
}

Expected<Descriptor> openPieceByPiece(int folder, const PathBeneath& path, int flags) {
  std::vector<std::string_view> way = path.pieces();
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
