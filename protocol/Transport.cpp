#include "protocol/Transport.h"

#include <unistd.h>

#include "platform/StandardIO.h"
#include "platform/Unicode.h"

namespace kelvane {

void Transport::run(const Server& server) {
  run(server, STDIN_FILENO, STDOUT_FILENO);
}

void Transport::run(const Server& server, int input, int output) {
  LineReader lines(input);
  while (const auto line = lines.next()) {
    // Some clients send empty lines between messages. They get no reply, not even an error.
    if (unicode::trimmingSpacesAndTabs(*line).empty()) continue;
    std::optional<std::string> reply = server.handle(*line);
    if (!reply) continue;
    reply->push_back('\n');  // so that the line leaves in one write
    writeAll(output, *reply);
  }
}

}  // namespace kelvane
