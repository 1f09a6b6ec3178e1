#include "protocol/Transport.h"

#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <string>

#include "platform/FreeMemory.h"
#include "platform/StandardIO.h"
#include "platform/Unicode.h"

namespace kelvane {
namespace {

// After a larger request or reply, its memory goes back to the system. Memory for smaller ones is used again.
constexpr std::size_t keptSize = 1024 * 1024;

}  // namespace

void Transport::run(const Server& server) {
  run(server, STDIN_FILENO, STDOUT_FILENO);
}

void Transport::run(const Server& server, int input, int output) {
  LineReader lines(input);
  std::string reply;
  while (const auto line = lines.next()) {
    // Some clients send empty lines between messages. They get no reply, not even an error.
    if (!line->starts_with('{') && unicode::trimmingSpacesAndTabs(*line).empty()) continue;
    const std::size_t size = line->size();
    if (server.handle(*line, reply)) {
      reply.push_back('\n');  // so that the line leaves in one write
      writeAll(output, reply);
    }
    if (std::max(size, reply.capacity()) > keptSize) {
      std::string().swap(reply);
      lines.release();
      returnFreeMemory();
    }
  }
}

}  // namespace kelvane
