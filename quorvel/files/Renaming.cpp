#include "quorvel/files/Renaming.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <optional>

#include "quorvel/files/FileIdentity.h"
#include "quorvel/files/TemporaryName.h"

namespace quorvel {
namespace {

RenameResult ended(NamesLeft names, int error) {
  return {names, std::error_code(error, std::generic_category())};
}

RenameResult failed(int error) {
  return ended(NamesLeft::onlyOld, error);
}

// A file that is renamed in several steps, and the names that it may have meanwhile.
class RenameInSteps {
 public:
  RenameInSteps(const SystemCalls& calls, int folder, const std::string& from, const std::string& to)
      : calls_(calls), folder_(folder), from_(from), to_(to), aside_(TemporaryName::fresh(from).ofTakenFile().text()) {}

  RenameResult run() {
    const auto file = identityOf(folder_, from_);
    if (!file) return failed(errno);
    if (calls_.link(folder_, from_.c_str(), to_.c_str()) != 0) {
      // The system refuses a second name for another user's file before it looks whether the folder may be changed.
      if (!SystemCalls::isLacking(errno)) return failed(errno);
      return failed(::faccessat(folder_, ".", W_OK | X_OK, AT_EACCESS) != 0 ? errno : EOPNOTSUPP);
    }
    // A disk over the network may have done what it says that it could not do, so what is there is looked at.
    const bool isMoved = calls_.rename(folder_, from_.c_str(), aside_.c_str()) == 0;
    int error = isMoved ? EBUSY : errno;
    const auto setAside = identityOf(folder_, aside_);
    if (isMoved && !setAside) error = errno;
    if (setAside == file && identityOf(folder_, to_) == file) {
      if (calls_.unlink(folder_, aside_.c_str()) == 0) return {};
      return whatIsLeft(file, errno);
    }
    if (isMoved || setAside == file) putBack();
    const auto second = identityOf(folder_, to_);
    if (second && (second == file || second == identityOf(folder_, from_))) calls_.unlink(folder_, to_.c_str());
    return whatIsLeft(file, error);
  }

 private:
  // Gives what is aside its name again. A file stays aside if the name is taken by now, where the next writer keeps its
  // text; a folder has no second name and is renamed.
  void putBack() const {
    if (calls_.link(folder_, aside_.c_str(), from_.c_str()) == 0) {
      calls_.unlink(folder_, aside_.c_str());
    } else {
      renameFolder(calls_, folder_, aside_, from_);
    }
  }

  RenameResult whatIsLeft(const std::optional<FileIdentity>& file, int error) const {
    bool isTold = true;
    const auto look = [&](const std::string& name) {
      const auto found = identityOf(folder_, name);
      if (!found && errno != ENOENT) isTold = false;
      return found;
    };
    const auto first = look(from_);
    const auto second = look(to_);
    const auto hidden = look(aside_);
    // Another program may have saved the script anew before it got its second name: then that is the file.
    const bool isSecond = second && (second == file || second == first || second == hidden);
    if (!isTold || (!first && !isSecond && hidden)) return ended(NamesLeft::unknown, error);
    if (!isSecond) return failed(error);
    if (first && (first == second || !hidden)) return ended(NamesLeft::both, error);
    return hidden ? ended(NamesLeft::newAndHidden, error) : RenameResult{};
  }

  const SystemCalls& calls_;
  const int folder_;
  const std::string& from_;
  const std::string& to_;
  const std::string aside_;
};

}  // namespace

RenameResult renameFile(const SystemCalls& calls, int folder, const std::string& from, const std::string& to) {
  if (calls.renameToFreeName(folder, from.c_str(), to.c_str()) == 0) return {};
  if (!SystemCalls::isLacking(errno)) return failed(errno);
  return RenameInSteps(calls, folder, from, to).run();
}

RenameResult renameFolder(const SystemCalls& calls, int folder, const std::string& from, const std::string& to) {
  if (calls.renameToFreeName(folder, from.c_str(), to.c_str()) == 0) return {};
  if (!SystemCalls::isLacking(errno)) return failed(errno);
  if (::mkdirat(folder, to.c_str(), 0700) != 0) return failed(errno);
  // A folder replaces an empty folder and nothing else; this one is empty unless somebody has begun to use it.
  if (calls.rename(folder, from.c_str(), to.c_str()) == 0) return {};
  const int error = errno;
  if (::unlinkat(folder, to.c_str(), AT_REMOVEDIR) == 0 || errno == ENOENT || errno == ENOTDIR || errno == ENOTEMPTY)
    return failed(error == ENOTEMPTY || error == ENOTDIR ? EEXIST : error);
  return ended(NamesLeft::both, error);
}

}  // namespace quorvel
