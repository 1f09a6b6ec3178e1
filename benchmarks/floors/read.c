// The floor of a large read_script: read the file as a whole, escape it into the reply, write that.
//
//     read FILE    answers each line feed in what it reads
#include <fcntl.h>
#include <sys/stat.h>

#include "benchmarks/floors/floor.h"

static void answer(const char* path) {
  const int file = open(path, O_RDONLY | O_CLOEXEC);
  struct stat status;
  mustBe(file >= 0 && fstat(file, &status) == 0, path);
  const size_t size = (size_t)status.st_size;
  char* const text = malloc(size + 1);
  // A page that nothing is written to costs nothing.
  char* const reply = malloc(sizeof beforeText + 6 * size + sizeof afterText);
  mustBe(text != NULL && reply != NULL, "malloc");
  for (size_t done = 0; done < size;) {
    const ssize_t count = read(file, text + done, size - done);
    mustBe(count > 0, path);
    done += (size_t)count;
  }
  mustBe(close(file) == 0, path);
  const char* const end = putReply(reply, text, size);
  writeAll(STDOUT_FILENO, reply, (size_t)(end - reply));
  free(reply);
  free(text);
}

int main(int count, char** arguments) {
  char input[4096];
  mustBe(count == 2, "read FILE");
  for (;;) {
    const ssize_t size = read(STDIN_FILENO, input, sizeof input);
    mustBe(size >= 0, "read");
    if (size == 0) return 0;
    const char* const end = input + size;
    for (const char* at = input; (at = memchr(at, '\n', (size_t)(end - at))) != NULL; ++at) answer(arguments[1]);
  }
}
