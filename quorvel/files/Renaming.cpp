#include "quorvel/files/Renaming.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "quorvel/files/FileIdentity.h"
#include "quorvel/files/TemporaryName.h"

namespace quorvel {
namespace {

RenameResult failed(const std::error_code& error) {
  return {NamesLeft::onlyOld, error};
}

bool isNoEmptyFolder(const std::error_code& error) {
  return error == std::errc::directory_not_empty || error == std::errc::not_a_directory;
}

// A file that is renamed in several steps, and the names that it may have meanwhile.
class RenameInSteps {
 public:
  RenameInSteps(const SystemCalls& calls, int folder, const std::string& from, const std::string& to)
      : calls_(calls),
        folder_(folder),
        from_(from),
        to_(to),
        aside_(TemporaryName::fresh(from).ofReplacedFile().text()) {}

  RenameResult run() {
    const auto file = identityOf(folder_, from_);
    if (!file) return failed(file.error());
    if (calls_.link(folder_, from_.c_str(), to_.c_str()) != 0) {
      // The system refuses a second name for another user's file before it looks whether the folder may be changed.
      if (!SystemCalls::isLacking(lastError())) return failed(lastError());
      const bool isWritable = ::faccessat(folder_, ".", W_OK | X_OK, AT_EACCESS) == 0;
      return failed(isWritable ? std::make_error_code(std::errc::operation_not_supported) : lastError());
    }
    // A disk over the network may have done what it says that it could not do, so what is there is looked at.
    const bool isMoved = calls_.rename(folder_, from_.c_str(), aside_.c_str()) == 0;
    std::error_code error = isMoved ? std::make_error_code(std::errc::device_or_resource_busy) : lastError();
    const auto setAside = identityOf(folder_, aside_);
    if (isMoved && !setAside) error = setAside.error();
    const auto added = identityOf(folder_, to_);
    if (isMoved && setAside == file && !added && added.error() != std::errc::no_such_file_or_directory)
      error = added.error();
    if (setAside == file && added == file) {
      if (calls_.unlink(folder_, aside_.c_str()) == 0) return {};
      return whatIsLeft(file, lastError());
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

  RenameResult whatIsLeft(const Expected<FileIdentity>& file, const std::error_code& error) const {
    bool isTold = true;
    const auto look = [&](const std::string& name) {
      auto found = identityOf(folder_, name);
      if (!found && found.error() != std::errc::no_such_file_or_directory) isTold = false;
      return found;
    };
    const auto first = look(from_);
    const auto second = look(to_);
    const auto hidden = look(aside_);
    // Another program may have saved the script anew before it got its second name: then that is the file.
    const bool isSecond = second && (second == file || second == first || second == hidden);
    if (!isTold || (!first && !isSecond && hidden)) return {NamesLeft::unknown, error};
    if (!isSecond) return failed(error);
    if (first && (first == second || !hidden)) return {NamesLeft::both, error};
    return hidden ? RenameResult{NamesLeft::newAndHidden, error} : RenameResult{};
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
  if (!SystemCalls::isLacking(lastError())) return failed(lastError());
  try {
    return RenameInSteps(calls, folder, from, to).run();
  } catch (const std::system_error& error) {  // there is no name to set the file aside, so nothing was done
    return failed(error.code());
  }
}

RenameResult renameFolder(const SystemCalls& calls, int folder, const std::string& from, const std::string& to) {
  if (calls.renameToFreeName(folder, from.c_str(), to.c_str()) == 0) return {};
  if (!SystemCalls::isLacking(lastError())) return failed(lastError());
  if (::mkdirat(folder, to.c_str(), 0700) != 0) return failed(lastError());
  // A folder replaces an empty folder and nothing else; this one is empty unless somebody has begun to use it.
  if (calls.rename(folder, from.c_str(), to.c_str()) == 0) return {};
  const std::error_code error = lastError();
  if (::unlinkat(folder, to.c_str(), AT_REMOVEDIR) == 0 || isNoEmptyFolder(lastError()) ||
      lastError() == std::errc::no_such_file_or_directory)
    return failed(isNoEmptyFolder(error) ? std::make_error_code(std::errc::file_exists) : error);
  return {NamesLeft::both, error};
}

}  // namespace quorvel
