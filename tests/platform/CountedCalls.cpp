#include "tests/platform/CountedCalls.h"

#include <algorithm>

namespace kelvane::tests {
namespace {

thread_local CountedCalls* watching = nullptr;

}  // namespace

CountedCalls::CountedCalls() noexcept {
  watching = this;
}

CountedCalls::~CountedCalls() {
  watching = nullptr;
}

}  // namespace kelvane::tests

using kelvane::tests::watching;

// The linker redirects every call of these functions in this program to here (see tests/CMakeLists.txt).
extern "C" {

ssize_t __real_read(int file, void* bytes, std::size_t count);
ssize_t __real_write(int file, const void* bytes, std::size_t count);
int __real_poll(pollfd* files, nfds_t count, int limit);
void* __real_memchr(const void* bytes, int byte, std::size_t count);

ssize_t __wrap_read(int file, void* bytes, std::size_t count);
ssize_t __wrap_write(int file, const void* bytes, std::size_t count);
int __wrap_poll(pollfd* files, nfds_t count, int limit);
void* __wrap_memchr(const void* bytes, int byte, std::size_t count);

ssize_t __wrap_read(int file, void* bytes, std::size_t count) {
  if (watching == nullptr) return __real_read(file, bytes, count);
  ++watching->reads;
  if (watching->beforeEachTry) watching->beforeEachTry();
  return __real_read(file, bytes, std::min(count, watching->mostPerRead));
}

ssize_t __wrap_write(int file, const void* bytes, std::size_t count) {
  if (watching == nullptr) return __real_write(file, bytes, count);
  ++watching->writes;
  if (watching->beforeEachTry) watching->beforeEachTry();
  return __real_write(file, bytes, count);
}

int __wrap_poll(pollfd* files, nfds_t count, int limit) {
  if (watching == nullptr) return __real_poll(files, count, limit);
  ++watching->waits;
  if (watching->onEachWait && count == 1) watching->onEachWait(*files, limit);
  return __real_poll(files, count, limit);
}

void* __wrap_memchr(const void* bytes, int byte, std::size_t count) {
  if (watching != nullptr) watching->searched += count;
  return __real_memchr(bytes, byte, count);
}
}
