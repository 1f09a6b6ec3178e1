#include "quorvel/files/LibraryError.h"

#include <cerrno>

#include "quorvel/files/WholeFile.h"

namespace quorvel {
namespace {

struct Explanation {
  std::string reason;
  std::string_view advice;
};

Explanation explanation(const std::error_code& error) {
  constexpr std::string_view lookAgain = "List the library again to see what is there now.";
  switch (error.value()) {
    case ENOENT:
      return {"it is not there any more", lookAgain};
    case ENOTDIR:
    case ELOOP:
      return {"a link or a file has taken the place of it or of a folder above it", lookAgain};
    case EISDIR:
      return {"it is a folder now", lookAgain};
    case EACCES:
    case EPERM:
      return {"the system does not permit it", "Check who may read and write there."};
    case EROFS:
      return {"the disk is read-only", "Make the disk writable and try again."};
    case ENOSPC:
      return {"the disk is full", "Free some space and try again."};
    case EDQUOT:
      return {"the disk quota is used up", "Free some space and try again."};
    case EFBIG:
      return {"it would be larger than the system allows", "Split the text into several scripts."};
    case ENAMETOOLONG:
      return {"its path is too long for the system", "Use shorter names or fewer nested folders."};
    case EMLINK:
      return {"the folder holds as many entries as the disk allows", "Use another folder."};
    case EIO:
      return {"the disk reports an error", "Check the disk."};
    case EMFILE:
    case ENFILE:
      return {"too many files are open", "Close some programs and try again."};
    case ENOMEM:
      return {"the system is out of memory", "Close some programs and try again."};
    case EBUSY:
    case ETXTBSY:
      return {"another program is using it", "Close it there and try again."};
    default:
      return {"the system says: " + error.message(), {}};
  }
}

}  // namespace

std::string quoted(std::string_view name) {
  std::string shown(1, '"');
  for (const char byte : name) byte == '\0' ? shown.append("\xEF\xBF\xBD") : shown.append(1, byte);
  return shown.append(1, '"');
}

std::string reason(const std::error_code& error) {
  return explanation(error).reason;
}

LibraryError failure(std::string_view happened, const std::error_code& error) {
  const Explanation why = explanation(error);
  std::string sentences = std::string(happened) + ", because " + why.reason + '.';
  if (!why.advice.empty()) sentences.append(" ").append(why.advice);
  return LibraryError(sentences);
}

LibraryError tooLarge(std::string_view happened, std::string_view what) {
  return LibraryError(std::string(happened) + ", because " + std::string(what) + " is larger than " +
                      largestTextInWords + ", the largest size of a script. Split it into several scripts.");
}

}  // namespace quorvel
