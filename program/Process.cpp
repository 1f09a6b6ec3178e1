#include "program/Process.h"

#include <fcntl.h>
#include <unistd.h>

#include <csignal>
#include <exception>
#include <new>
#include <stdexcept>
#include <string>
#include <system_error>

#if defined(__GLIBC__) && !defined(KELVANE_PORTABLE)
#include <malloc.h>
#endif

#include "platform/StandardIO.h"
#include "program/Wording.h"
#include "quorvel/files/SystemReason.h"

namespace kelvane {
namespace {

// Opens the lowest free number, which is `descriptor`: those below it are in use. It opens a pipe, because the null
// device is missing in some sandboxes and does not tell a writer that nobody reads.
void open(int descriptor) {
  int ends[2];
  if (::pipe(ends) != 0) return;
  const int kept = descriptor == STDIN_FILENO ? ends[0] : ends[1];
  const int given = descriptor == STDIN_FILENO ? ends[1] : ends[0];
  if (given != descriptor) ::close(given);
  if (kept != descriptor) {
    ::dup2(kept, descriptor);
    ::close(kept);
  }
}

}  // namespace

void prepareProcess() {
#if defined(__GLIBC__) && !defined(KELVANE_PORTABLE)
  // What a large request needed goes back to the system block by block, as soon as it is freed. Without this, the
  // allocator raises these sizes after the first large block and keeps the next ones.
  constexpr int largeBlock = 1 << 20;
  ::mallopt(M_MMAP_THRESHOLD, largeBlock);
  ::mallopt(M_TRIM_THRESHOLD, largeBlock);
#endif
  std::signal(SIGPIPE, SIG_IGN);
  std::signal(SIGXFSZ, SIG_IGN);
  for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    if (::fcntl(descriptor, F_GETFD) < 0) open(descriptor);
  }
}

std::filesystem::path ownExecutable() {
  std::error_code error;
  std::filesystem::path file = std::filesystem::read_symlink("/proc/self/exe", error);
  if (error) {
    throw std::runtime_error(quorvel::because("/proc/self/exe, which names this program's own file, could not be read",
                                              error, "Mount /proc and try again."));
  }
  if (std::filesystem::exists(file, error)) return file;
  throw std::runtime_error("This program was moved or replaced after it started. Run the command again.");
}

void print(std::string_view text) {
  writeAll(STDOUT_FILENO, text);
}

void say(std::string_view sentences) {
  print(onOneLine(sentences) + '\n');
}

void complain(std::string_view sentences) noexcept {
  try {
    printError(onOneLine(sentences) + '\n');
  } catch (const std::bad_alloc&) {
    // The exit status still tells it.
  }
}

void printError(std::string_view lines) noexcept {
  try {
    writeAll(STDERR_FILENO, lines);
  } catch (const std::exception&) {
    // The exit status still tells it.
  }
}

}  // namespace kelvane
