// The floor of update_script without flushing: unescape the request's text, append the script's old text to a record,
// write the new one into a file of its own, and rename that over the script.
//
//     update FOLDER    updates FOLDER/Talk.md for each line that it reads, and records in FOLDER/record
#define _GNU_SOURCE  // for memmem
#include <fcntl.h>
#include <sys/stat.h>

#include "benchmarks/floors/floor.h"

static const char reply[] =
    "{\"id\":1,\"jsonrpc\":\"2.0\",\"result\":{\"content\":[{\"text\":\"{\\\"id\\\":\\\"Talk.md\\\",\\\"name\\\":\\\""
    "Talk\\\",\\\"words\\\":33000}\",\"type\":\"text\"}],\"isError\":false}}\n";

// The value of the line's member "text", unescaped at the line's start. Knows the escapes of line feeds, quotes and
// backslashes.
static char* textOf(char* line, size_t length, size_t* size) {
  static const char name[] = "\"text\":\"";
  const char* in = memmem(line, length, name, sizeof name - 1);
  mustBe(in != NULL, "text");
  in += sizeof name - 1;
  char* const text = line;
  char* out = line;
  for (;;) {
    while (in + 8 <= line + length && !hasEscape(in)) {
      memmove(out, in, 8);
      out += 8;
      in += 8;
    }
    if (*in == '"') break;
    if (*in == '\\' && *++in == 'n')
      *out++ = '\n', ++in;
    else
      *out++ = *in++;
  }
  *size = (size_t)(out - text);
  return text;
}

static void update(const char* text, size_t size) {
  static char* old;
  struct stat status;
  int file = open("Talk.md", O_RDONLY | O_CLOEXEC);
  mustBe(file >= 0 && fstat(file, &status) == 0, "Talk.md");
  old = realloc(old, (size_t)status.st_size + 1);
  mustBe(old != NULL && read(file, old, (size_t)status.st_size) == status.st_size && close(file) == 0, "Talk.md");
  file = open("record", O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
  mustBe(file >= 0, "record");
  writeAll(file, old, (size_t)status.st_size);
  mustBe(close(file) == 0, "record");
  file = open("Talk.md.new", O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
  mustBe(file >= 0, "Talk.md.new");
  writeAll(file, text, size);
  mustBe(close(file) == 0 && rename("Talk.md.new", "Talk.md") == 0, "Talk.md.new");
}

int main(int count, char** arguments) {
  struct Lines lines = {0};
  size_t length, size;
  mustBe(count == 2 && chdir(arguments[1]) == 0, "update FOLDER");
  for (char* line; (line = nextLine(&lines, &length)) != NULL;) {
    const char* const text = textOf(line, length, &size);
    update(text, size);
    writeAll(STDOUT_FILENO, reply, sizeof reply - 1);
  }
}
