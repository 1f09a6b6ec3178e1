#include "quorvel/history/OwnFolder.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <string>
#include <system_error>

#include "quorvel/files/SystemCalls.h"

namespace quorvel {

namespace {

const std::string name(ownFolderName);

[[noreturn]] void fail(int error) {
  throw std::system_error(error, std::generic_category(), name);
}

}  // namespace

Descriptor openOwnFolder(const Descriptor& root) {
  Descriptor folder(::openat(root.get(), name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  if (!folder && errno != ENOENT) fail(errno == ELOOP ? ENOTDIR : errno);
  return folder;
}

Descriptor makeOwnFolder(const Descriptor& root) {
  if (Descriptor folder = openOwnFolder(root)) return folder;
  if (::mkdirat(root.get(), name.c_str(), 0700) != 0 && errno != EEXIST) fail(errno);
  flushRoot(root);
  Descriptor folder = openOwnFolder(root);
  if (!folder) fail(ENOENT);
  return folder;
}

void flushFolder(const Descriptor& folder) {
  if (SystemCalls::ofTheSystem().flushFolder(folder.get()) != 0) fail(errno);
}

void flushRoot(const Descriptor& root) {
  const Descriptor readable(::openat(root.get(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!readable) fail(errno);
  flushFolder(readable);
}

}  // namespace quorvel
