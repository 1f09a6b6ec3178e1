// The floor of small requests. A request is a line feed in what is read; nothing else of it is looked at. The replies
// are those of the server to requests with the id 1.
//
//     serve ping           answers a ping, each reply in a write of its own
//     serve gathered       answers a ping; the replies to one read leave in one write
//     serve ROOT SCRIPT    answers a read_script of a small script beneath the folder ROOT
#include <fcntl.h>

#include "benchmarks/floors/floor.h"

enum { readSize = 65536, largestScript = 8192 };

static const char pong[] = "{\"id\":1,\"jsonrpc\":\"2.0\",\"result\":{}}\n";

static char* putPong(char* out) {
  return put(out, pong, sizeof pong - 1);
}

static char* putScript(char* out, int root, const char* script) {
  char text[largestScript];
  const int file = openat(root, script, O_RDONLY | O_CLOEXEC);
  mustBe(file >= 0, script);
  const ssize_t size = read(file, text, sizeof text);
  mustBe(size >= 0 && close(file) == 0, script);
  return putReply(out, text, (size_t)size);
}

int main(int count, char** arguments) {
  static char input[readSize];
  static char replies[readSize * (sizeof pong - 1)];  // room for as many as one read can ask for
  static char reply[sizeof beforeText + 6 * largestScript + sizeof afterText];
  mustBe(count == 2 || count == 3, "serve ping, serve gathered, or serve ROOT SCRIPT");
  const int gathers = strcmp(arguments[1], "gathered") == 0;
  const int root = count == 3 ? open(arguments[1], O_RDONLY | O_DIRECTORY | O_CLOEXEC) : -1;
  mustBe(count == 2 || root >= 0, arguments[1]);
  for (;;) {
    const ssize_t size = read(STDIN_FILENO, input, sizeof input);
    mustBe(size >= 0, "read");
    if (size == 0) return 0;
    char* out = replies;
    const char* const end = input + size;
    for (const char* at = input; (at = memchr(at, '\n', (size_t)(end - at))) != NULL; ++at) {
      if (gathers) {
        out = putPong(out);
      } else {
        const char* const after = root < 0 ? putPong(reply) : putScript(reply, root, arguments[2]);
        writeAll(STDOUT_FILENO, reply, (size_t)(after - reply));
      }
    }
    writeAll(STDOUT_FILENO, replies, (size_t)(out - replies));
  }
}
