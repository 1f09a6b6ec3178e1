// The floor of a listing: a walk with getdents64 alone, each folder opened relative to the one above it. Nothing is
// sorted or kept, and no entry is looked at. The reply is the number of entries.
//
//     list FOLDER    answers each line feed in what it reads
#include <dirent.h>
#include <fcntl.h>
#include <sys/syscall.h>

#include "benchmarks/floors/floor.h"

// What the system writes for each entry.
struct Entry {
  uint64_t inode;
  int64_t offset;
  uint16_t length;
  uint8_t type;
  char name[];
};

static size_t walk(int parent, const char* name) {
  _Alignas(struct Entry) char buffer[32768];
  const int folder = openat(parent, name, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  mustBe(folder >= 0, name);
  size_t entries = 0;
  for (;;) {
    const long filled = syscall(SYS_getdents64, folder, buffer, sizeof buffer);
    mustBe(filled >= 0, name);
    if (filled == 0) break;
    for (long at = 0; at < filled;) {
      const struct Entry* const entry = (const struct Entry*)(const void*)(buffer + at);
      at += entry->length;
      if (entry->name[0] == '.') continue;
      ++entries;
      if (entry->type == DT_DIR) entries += walk(folder, entry->name);
    }
  }
  mustBe(close(folder) == 0, name);
  return entries;
}

int main(int count, char** arguments) {
  char input[4096], reply[32];
  mustBe(count == 2, "list FOLDER");
  for (;;) {
    const ssize_t size = read(STDIN_FILENO, input, sizeof input);
    mustBe(size >= 0, "read");
    if (size == 0) return 0;
    const char* const end = input + size;
    for (const char* at = input; (at = memchr(at, '\n', (size_t)(end - at))) != NULL; ++at) {
      const int length = snprintf(reply, sizeof reply, "%zu\n", walk(AT_FDCWD, arguments[1]));
      writeAll(STDOUT_FILENO, reply, (size_t)length);
    }
  }
}
