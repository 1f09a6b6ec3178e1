#include "tests/end-to-end/Folder.h"
#include "tests/support/Files.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <system_error>

namespace kelvane::tests {
namespace {

constexpr uid_t nobody = 65534;

struct stat statusOf(const std::filesystem::path& path) {
  struct stat status;
  if (::lstat(path.c_str(), &status) != 0) throw std::system_error(errno, std::generic_category(), path.native());
  return status;
}

}  // namespace

void Folder::put(std::string_view name, std::string_view bytes) const {
  writeFile(path() / name, bytes);
}

std::string Folder::bytes(std::string_view name) const {
  std::ifstream in(path() / name, std::ios::binary);
  if (!in) throw std::runtime_error("Could not read " + (path() / name).native());
  return {std::istreambuf_iterator<char>(in), {}};
}

std::map<std::string, std::string> Folder::census() const {
  std::map<std::string, std::string> census;
  const auto count = [&](const std::filesystem::path& path) {
    const struct stat status = statusOf(path);
    census[path.native()] = std::to_string(status.st_ino) + ' ' + std::to_string(status.st_mode) + ' ' +
                            std::to_string(status.st_size) + ' ' + std::to_string(status.st_ctim.tv_sec) + '.' +
                            std::to_string(status.st_ctim.tv_nsec);
  };
  count(path());
  for (const auto& entry : std::filesystem::recursive_directory_iterator(path())) count(entry.path());
  return census;
}

void Folder::giveToNobody() const {
  if (::geteuid() != 0) return;
  const auto give = [](const std::filesystem::path& path) {
    if (::lchown(path.c_str(), nobody, nobody) != 0) {
      throw std::system_error(errno, std::generic_category(), path.native());
    }
  };
  give(path());
  for (const auto& entry : std::filesystem::recursive_directory_iterator(path())) give(entry.path());
}

}  // namespace kelvane::tests
