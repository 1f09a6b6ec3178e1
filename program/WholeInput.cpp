#include "program/WholeInput.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <stdexcept>

#include "quorvel/files/Descriptor.h"
#include "quorvel/files/SystemReason.h"
#include "quorvel/files/WholeFile.h"

namespace kelvane {
namespace {

std::string readAll(int descriptor, const std::string& name) {
  std::string text;
  std::string buffer(std::size_t{64} << 10, '\0');
  while (true) {
    const ssize_t count = ::read(descriptor, buffer.data(), buffer.size());
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) throw std::runtime_error(quorvel::because(name + " could not be read", quorvel::systemError(errno)));
    if (count == 0) return text;
    text.append(buffer, 0, static_cast<std::size_t>(count));
    if (text.size() > quorvel::largestText) {
      throw std::runtime_error(name + " has more than " + quorvel::largestTextInWords +
                               ", which is more than a script can hold. Give a shorter text.");
    }
  }
}

}  // namespace

std::string contentsOf(const std::filesystem::path& file) {
  const std::string name = quorvel::inQuotes(file.native());
  const quorvel::Descriptor opened(::open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY));
  if (!opened && errno == ENOENT) throw std::runtime_error("There is no file " + name + ".");
  if (!opened) throw std::runtime_error(quorvel::because(name + " could not be read", quorvel::systemError(errno)));
  return readAll(opened.get(), name);
}

std::string standardInput() {
  return readAll(STDIN_FILENO, "Standard input");
}

}  // namespace kelvane
