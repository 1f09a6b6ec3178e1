#include "platform/FatalError.h"

#include <cstdio>
#include <cstdlib>

namespace kelvane {

void fatalError(std::string_view message) noexcept {
  std::fputs("Fatal error: ", stderr);
  std::fwrite(message.data(), 1, message.size(), stderr);
  std::fputc('\n', stderr);
  std::fflush(stderr);
  std::abort();
}

}  // namespace kelvane
