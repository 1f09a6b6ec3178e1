#ifndef KELVANE_FLOOR_H
#define KELVANE_FLOOR_H

#include <errno.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

// What the floors share. A floor is the least that a server can do for a request: the same bytes come in, the same
// bytes go out, the same files are read or written, and nothing is checked. Whatever fails ends the program.

static inline void mustBe(int isTrue, const char* what) {
  if (isTrue) return;
  perror(what);
  exit(1);
}

static inline void writeAll(int descriptor, const char* bytes, size_t size) {
  while (size > 0) {
    const ssize_t count = write(descriptor, bytes, size);
    mustBe(count > 0, "write");
    bytes += count;
    size -= (size_t)count;
  }
}

static inline char* put(char* out, const char* bytes, size_t size) {
  memcpy(out, bytes, size);
  return out + size;
}

// Whether one of eight bytes must be escaped in a JSON string: a quote, a backslash or a control character.
static inline int hasEscape(const char* bytes) {
  const uint64_t ones = 0x0101010101010101U, high = 0x8080808080808080U;
  uint64_t word;
  memcpy(&word, bytes, sizeof word);
  const uint64_t quote = word ^ (ones * '"'), backslash = word ^ (ones * '\\');
  return (((word - ones * 0x20) & ~word) | ((quote - ones) & ~quote) | ((backslash - ones) & ~backslash)) & high ? 1
                                                                                                                 : 0;
}

// Writes a text as the inside of a JSON string. There is room for six bytes of `out` for each of the text.
static inline char* putEscaped(char* out, const char* text, size_t size) {
  const char* const end = text + size;
  while (text < end) {
    if (end - text >= 8 && !hasEscape(text)) {
      out = put(out, text, 8);
      text += 8;
      continue;
    }
    const char* const stop = end - text < 8 ? end : text + 8;
    for (; text < stop; ++text) {
      const unsigned char c = (unsigned char)*text;
      if (c == '"' || c == '\\') {
        *out++ = '\\';
        *out++ = *text;
      } else if (c == '\n') {
        out = put(out, "\\n", 2);
      } else if (c == '\t') {
        out = put(out, "\\t", 2);
      } else if (c == '\r') {
        out = put(out, "\\r", 2);
      } else if (c < 0x20) {
        out += sprintf(out, "\\u%04x", c);
      } else {
        *out++ = *text;
      }
    }
  }
  return out;
}

static const char beforeText[] = "{\"id\":1,\"jsonrpc\":\"2.0\",\"result\":{\"content\":[{\"text\":\"";
static const char afterText[] = "\",\"type\":\"text\"}],\"isError\":false}}\n";

// Writes the reply to a tool's call: the text that the tool returned, in its envelope.
static inline char* putReply(char* out, const char* text, size_t size) {
  out = put(out, beforeText, sizeof beforeText - 1);
  out = putEscaped(out, text, size);
  return put(out, afterText, sizeof afterText - 1);
}

// The lines of standard input. A line stays valid until the next one is asked for.
struct Lines {
  char* buffer;
  size_t size, begin, filled;
};

// The next line, without its line feed; null at the end of the input.
static inline char* nextLine(struct Lines* lines, size_t* length) {
  size_t searched = 0;
  for (;;) {
    char* const line = lines->buffer + lines->begin;
    const size_t unread = lines->filled - lines->begin;
    char* const lineFeed = unread > searched ? memchr(line + searched, '\n', unread - searched) : NULL;
    if (lineFeed != NULL) {
      *length = (size_t)(lineFeed - line);
      lines->begin += *length + 1;
      return line;
    }
    searched = unread;
    if (lines->begin > 0) {
      memmove(lines->buffer, line, unread);
      lines->begin = 0;
      lines->filled = unread;
    }
    if (lines->size - lines->filled < 65536) {
      lines->size = lines->size * 2 + 65536;
      lines->buffer = realloc(lines->buffer, lines->size);
      mustBe(lines->buffer != NULL, "realloc");
    }
    const ssize_t count = read(STDIN_FILENO, lines->buffer + lines->filled, lines->size - lines->filled);
    mustBe(count >= 0, "read");
    if (count == 0) return NULL;
    lines->filled += (size_t)count;
  }
}

#endif
