#include "platform/HomeFolder.h"

#include <pwd.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <string>

namespace kelvane {
namespace {

std::optional<std::filesystem::path> folderInUserDatabase() {
  // The system does not say how much memory an entry needs, so it grows until the entry fits.
  for (std::string memory(1024, '\0');; memory.resize(memory.size() * 4)) {
    struct passwd entry;
    struct passwd* found = nullptr;
    const int error = ::getpwuid_r(::getuid(), &entry, memory.data(), memory.size(), &found);
    if (error == ERANGE || error == EINTR) continue;
    if (found == nullptr || found->pw_dir == nullptr || *found->pw_dir != '/') return std::nullopt;
    return found->pw_dir;
  }
}

}  // namespace

std::optional<std::filesystem::path> homeFolder() {
  const char* home = std::getenv("HOME");
  // A relative path would mean another folder in each folder that a client starts the server in.
  if (home != nullptr && *home == '/') return home;
  return folderInUserDatabase();
}

}  // namespace kelvane
