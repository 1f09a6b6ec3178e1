#include "quorvel/library/OwnFolder.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <string>
#include <system_error>

#include "quorvel/library/SystemCalls.h"

namespace quorvel {

namespace {

const std::string name(ownFolderName);

[[noreturn]] void fail(int error) {
  throw std::system_error(error, std::generic_category(), name);
}

Descriptor openFolder(int at, const char* path, int flags) {
  return Descriptor(::openat(at, path, O_RDONLY | O_DIRECTORY | O_CLOEXEC | flags));
}

Descriptor openInside(const Descriptor& root) {
  Descriptor folder = openFolder(root.get(), name.c_str(), O_NOFOLLOW);
  if (!folder && errno != ENOENT) fail(errno == ELOOP ? ENOTDIR : errno);
  return folder;
}

}  // namespace

Descriptor openOwnFolder(const std::filesystem::path& root) {
  const Descriptor rootFolder = openFolder(AT_FDCWD, root.c_str(), 0);
  if (rootFolder) return openInside(rootFolder);
  if (errno != ENOENT) fail(errno);
  return {};
}

Descriptor makeOwnFolder(const std::filesystem::path& root) {
  const Descriptor rootFolder = openFolder(AT_FDCWD, root.c_str(), 0);
  if (!rootFolder) fail(errno);
  if (Descriptor folder = openInside(rootFolder)) return folder;
  if (::mkdirat(rootFolder.get(), name.c_str(), 0700) != 0 && errno != EEXIST) fail(errno);
  flushFolder(rootFolder);
  Descriptor folder = openInside(rootFolder);
  if (!folder) fail(ENOENT);
  return folder;
}

void flushFolder(const Descriptor& folder) {
  if (SystemCalls::ofTheSystem().flushFolder(folder.get()) != 0) fail(errno);
}

}  // namespace quorvel
