#include <fcntl.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <exception>
#include <filesystem>
#include <limits>
#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <tuple>
#include <vector>

#include "platform/HomeFolder.h"
#include "program/ChangeLabel.h"
#include "program/Moments.h"
#include "program/OpenedLibrary.h"
#include "program/Process.h"
#include "program/ReviewPage.h"
#include "program/ScriptVersion.h"
#include "program/ShellWords.h"
#include "program/Wording.h"
#include "program/commands/Commands.h"
#include "quorvel/files/Descriptor.h"
#include "quorvel/files/SystemReason.h"

extern char** environ;

namespace kelvane::commands {
namespace {

namespace fs = std::filesystem;

constexpr Option sinceOption = {"--since", "Only changes since then, such as \"2 hours\", yesterday or 2026-11-21.",
                                "WHEN", "a time"};
constexpr Option outputOption = {"--output", "Where to write the page. Default: ~/.cache/kelvane/review.html.", "FILE",
                                 "a file"};
constexpr Option openOption = {"--open", "Open the page in your browser."};
constexpr Option options[] = {sinceOption, outputOption, openOption, libraryOption};

/// The text that a script had after one of its versions: that of the next version, or the present one.
struct After {
  std::string text;
  bool isGone = false;
};

After present(const std::string& identifier, quorvel::VersionNumber version, const OpenedLibrary& opened) {
  if (version.earlier > 0 || !isFileAt(identifier, opened)) return {{}, true};
  const FoundScript script = findScript(identifier, opened);
  if (!script.item) return {{}, true};
  try {
    return {opened.library->read(*script.item), false};
  } catch (const std::exception& error) {  // the other scripts are shown all the same
    complain(error.what());
    return {{}, true};
  }
}

// Each script has one text in memory: that of its version above, until the next one has been compared with it.
std::string pageOf(std::chrono::system_clock::time_point since, const OpenedLibrary& opened) {
  ReviewPage page(opened.library->root().native(), std::chrono::system_clock::now());
  std::map<std::pair<std::string, std::int64_t>, After> after;
  constexpr std::size_t all = std::numeric_limits<std::size_t>::max();
  for (const auto& [identifier, entry, wordsBefore] : opened.history->timeLine(since, all)) {
    const auto [known, isNewest] = after.try_emplace({identifier, entry.version.earlier});
    if (isNewest) known->second = present(identifier, entry.version, opened);
    std::string old = opened.history->text(identifier, entry.version).value_or(std::string());
    const std::string_view change = readLabel(entry.label).change;
    page.add({identifier, restoreCommandFor(identifier, entry.version.text(), opened), entry.saved,
              change.empty() ? entry.label : std::string(change), old, known->second.text, known->second.isGone});
    known->second = {std::move(old), false};
  }
  return page.html();
}

fs::path defaultFile() {
  const auto home = homeFolder();
  if (!home) throw std::runtime_error("There is no home folder to write the page in. Say where: --output FILE.");
  return *home / ".cache/kelvane/review.html";
}

[[noreturn]] void refuse(const std::string& name, int error) {
  if (error == ENOENT) {
    throw std::runtime_error("The page could not be written into " + name +
                             ", because its folder does not exist. Create the folder and try again.");
  }
  throw std::runtime_error(quorvel::because("The page could not be written into " + name, quorvel::systemError(error)));
}

// The page holds scripts, so only its owner can read it. A file that is there is replaced only if it is such a page.
void write(const std::string& html, const fs::path& file) {
  const std::string name = quorvel::inQuotes(file.native());
  const quorvel::Descriptor opened(
      ::open(file.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC, 0600));
  if (!opened) refuse(name, errno);
  std::string beginning(ReviewPage::beginning.size(), '\0');
  const ssize_t count = ::read(opened.get(), beginning.data(), beginning.size());
  if (count < 0) refuse(name, errno);
  if (count > 0 && beginning != ReviewPage::beginning) {
    throw std::runtime_error(name + " is another file, not a page of this command, so it stays. Choose another name.");
  }
  if (::fchmod(opened.get(), S_IRUSR | S_IWUSR) != 0 || ::ftruncate(opened.get(), 0) != 0 ||
      ::lseek(opened.get(), 0, SEEK_SET) != 0)
    refuse(name, errno);
  for (std::string_view left = html; !left.empty();) {
    const ssize_t written = ::write(opened.get(), left.data(), left.size());
    if (written < 0 && errno == EINTR) continue;
    if (written < 0) refuse(name, errno);
    left.remove_prefix(static_cast<std::size_t>(written));
  }
}

// False if there is no program that opens files.
bool openInBrowser(const fs::path& file) {
  std::string program = "xdg-open";
  std::string argument = file.native();
  char* arguments[] = {program.data(), argument.data(), nullptr};
  // It gets the usual effect of the signals that this process ignores.
  sigset_t ignoredHere;
  ::sigemptyset(&ignoredHere);
  ::sigaddset(&ignoredHere, SIGPIPE);
  ::sigaddset(&ignoredHere, SIGXFSZ);
  posix_spawnattr_t how;
  if (::posix_spawnattr_init(&how) != 0) return false;
  ::posix_spawnattr_setsigdefault(&how, &ignoredHere);
  ::posix_spawnattr_setflags(&how, POSIX_SPAWN_SETSIGDEF);
  pid_t process = 0;
  const int error = ::posix_spawnp(&process, program.c_str(), nullptr, &how, arguments, environ);
  ::posix_spawnattr_destroy(&how);
  if (error != 0) return false;
  int status = 0;
  return ::waitpid(process, &status, 0) == process && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

int run(const Arguments& arguments) {
  std::chrono::system_clock::time_point since;
  if (arguments.has(sinceOption)) since = typedMoment(arguments.value(sinceOption), TimeZone::local);
  const OpenedLibrary opened = openLibraryOf(arguments);
  const bool isNamed = arguments.has(outputOption);
  const fs::path file = fs::absolute(isNamed ? fs::path(arguments.value(outputOption)) : defaultFile());
  const std::string html = pageOf(since, opened);
  std::error_code error;
  if (!isNamed) fs::create_directories(file.parent_path(), error);  // what is wrong with it is said below
  write(html, file);
  say("The page is in " + quorvel::inQuotes(file.native()) + ".");
  if (arguments.has(openOption) && !openInBrowser(file)) {
    complain("It could not be opened, because xdg-open did not do it. Open the file in your browser.");
    return failed;
  }
  return done;
}

}  // namespace

constinit const Command reviewCommand = {
    .name = "review",
    .summary = "Make a page that shows all changes.",
    .about =
        "Makes one HTML page that shows what changed in the library: the time line, each change with its words marked, "
        "and the command that puts the old text back.",
    .options = options,
    .notes =
        "The page loads nothing from elsewhere and can be opened without a network. It holds your texts, so only you "
        "can read the file. Another review replaces it.",
    .run = run,
};

}  // namespace kelvane::commands
