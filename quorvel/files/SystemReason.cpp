#include "quorvel/files/SystemReason.h"

#include <algorithm>
#include <cerrno>
#include <iterator>

namespace quorvel {
namespace {

struct Row {
  int error;
  std::string_view reason;
  std::string_view advice;
};

constexpr std::string_view notPermitted = "the system does not permit it";
constexpr std::string_view checkRights = "Check who may read and write there.";
constexpr std::string_view linkOrFile = "a link or a file has taken the place of it or of a folder above it";
constexpr std::string_view inUse = "another program is using it";
constexpr std::string_view closeIt = "Close it there and try again.";
constexpr std::string_view tooManyFiles = "too many files are open";
constexpr std::string_view closePrograms = "Close some programs and try again.";
constexpr std::string_view freeSpace = "Free some space and try again.";

constexpr Row table[] = {
    {ENOENT, "it is not there any more", ""},
    {ENOTDIR, linkOrFile, ""},
    {ELOOP, linkOrFile, ""},
    {EISDIR, "it is a folder now", ""},
    {EACCES, notPermitted, checkRights},
    {EPERM, notPermitted, checkRights},
    {EROFS, "the disk is read-only", "Make the disk writable and try again."},
    {ENOSPC, "the disk is full", freeSpace},
    {EDQUOT, "the disk quota is used up", freeSpace},
    {EFBIG, "it would be larger than the system allows", "Make it smaller, or raise the limit (ulimit -f)."},
    {ENAMETOOLONG, "its path is too long for the system", "Use shorter names or fewer nested folders."},
    {EMLINK, "the folder holds as many entries as the disk allows", "Use another folder."},
    {EIO, "the disk reports an error", "Check the disk."},
    {EMFILE, tooManyFiles, closePrograms},
    {ENFILE, tooManyFiles, closePrograms},
    {ENOMEM, "the system is out of memory", closePrograms},
    {ENOLCK, "the system has no more locks for files", closePrograms},
    {EBUSY, inUse, closeIt},
    {ETXTBSY, inUse, closeIt},
};

}  // namespace

std::string inQuotes(std::string_view name) {
  std::string shown(1, '"');
  for (const char byte : name) byte == '\0' ? shown.append("\xEF\xBF\xBD") : shown.append(1, byte);
  return shown.append(1, '"');
}

SystemReason SystemReason::of(const std::error_code& error) {
  const auto row =
      std::find_if(std::begin(table), std::end(table), [&](const Row& each) { return each.error == error.value(); });
  if (row != std::end(table)) return {std::string(row->reason), row->advice};
  return {"the system says: " + error.message(), "Check the disk and try again."};
}

std::string because(std::string_view happened, const std::error_code& error, std::string_view lookAgain) {
  const SystemReason why = SystemReason::of(error);
  std::string sentences(happened);
  sentences.append(", because ").append(why.reason).append(". ");
  return sentences.append(why.advice.empty() ? lookAgain : why.advice);
}

std::error_code systemError(int error) noexcept {
  return {error, std::generic_category()};
}

}  // namespace quorvel
