#include <algorithm>
#include <cmath>
#include <cstdio>
#include <functional>

#include "benchmarks/Files.h"
#include "benchmarks/servers/Libraries.h"
#include "benchmarks/servers/Measuring.h"

// Requests of 10 and 100 MB of anything: served or refused in linear processor time, with at most 30 times their bytes
// of memory.

namespace kelvane::benchmarks {
namespace {

constexpr double mostMemory = 30;
constexpr double mostExponent = 1.1;  // of the last decade; 1 is linear

struct Input {
  std::string name;
  std::string before;
  std::string piece;  // repeated to the size
  std::string after;

  std::string ofSize(std::size_t size) const {
    std::string line = before;
    line.reserve(size + before.size() + piece.size() + after.size() + 1);
    while (line.size() < size) line += piece;
    return line.append(after).append("\n");
  }
};

/// A request whose argument has that in its text, as raw JSON.
Input argument(const std::string& name, const std::string& tool, const std::string& key, const std::string& piece) {
  return {name,
          R"({"jsonrpc":"2.0","id":1,"method":"tools/call","params":{"name":")" + tool +
              R"(","arguments":{"id":"Talk.md","chapter":"1","note":"n",")" + key + R"(":")",
          piece, "\"}}}"};
}

std::vector<Input> inputs() {
  const std::string call = R"({"jsonrpc":"2.0","id":1,"method":"ping","params":)";
  return {
      argument("a text, written", "update_script", "text", "words, "),
      argument("a text of escapes, written", "update_script", "text", "\\u00e9\\n"),
      argument("a chapter's text of headings, written", "update_chapter", "text", "# a\\n"),
      argument("an identifier", "read_script", "id", "a/"),
      argument("an identifier of combining marks", "read_script", "id", "\xCC\x81"),
      argument("an identifier of dots", "read_script", "id", "../"),
      argument("a folder's name", "create_folder", "name", "x"),
      argument("a note", "save_version", "note", "x"),
      argument("a chapter's number", "read_chapter", "chapter", "9"),
      {"a tool's name", R"({"jsonrpc":"2.0","id":1,"method":"tools/call","params":{"name":")", "\xCC\x81", "\"}}"},
      {"a method's name", R"({"jsonrpc":"2.0","id":1,"method":")", "x", "\"}"},
      {"an id", R"({"jsonrpc":"2.0","method":"ping","id":")", "x", "\"}"},
      {"numbers", call + "[0", ",1", "]}"},
      {"one number", call, "1", "}"},
      {"empty objects", call + "[{}", ",{}", "]}"},
      {"nested arrays", call, "[", ""},
      {"nested objects", call, "{\"a\":", ""},
      {"members of one name", call + "{\"a\":1", ",\"a\":1", "}}"},
      {"short strings", call + "[\"\"", ",\"abcdefghijklmnopq\"", "]}"},
      {"a batch of pings", "[1", R"(,{"jsonrpc":"2.0","id":1,"method":"ping"})", "]"},
      {"spaces", "", " ", "x"},
      {"no JSON", "", "x", ""},
      {"bytes that are not UTF-8", "", "\xFF", ""},
      {"quotes", "", "\"", ""},
      {"empty lines, and a ping", "", "\n", R"({"jsonrpc":"2.0","id":1,"method":"ping"})"},
  };
}

// Members of different names cannot be made of one piece.
std::string manyMembers(std::size_t size) {
  std::string line = R"({"jsonrpc":"2.0","id":1,"method":"ping","params":{"a":1)";
  for (std::size_t member = 0; line.size() < size; ++member)
    line.append(",\"").append(std::to_string(member * 7919 % 100'000'007)).append("\":1");
  return line.append("}}\n");
}

void measure(const Run& run, const std::string& name, const std::function<std::string(std::size_t)>& lineOfSize) {
  if (!run.figures.wants("100 MB of " + name)) return;
  const std::size_t sizes[] = {10'000'000, 100'000'000};
  double seconds[2] = {};
  double memory = 0;
  for (int at = 0; at < 2; ++at) {
    const std::string line = lineOfSize(sizes[at]);
    std::vector<double> times;
    double total = 0;
    while (times.size() < 3 && total < 5) {
      const Folder library(memoryFolder());
      put(library.path() / "Talk.md", chapters(2));
      Process server(run.serve(library.path()), run.placements.front());
      server.askForSize(ping);
      const double before = server.processorTime();
      server.askForSize(line);
      times.push_back(server.processorTime() - before);
      total += times.back();
      memory = static_cast<double>(server.peakMemory()) / static_cast<double>(line.size());
    }
    seconds[at] = median(times);
  }
  const double exponent = std::log10(seconds[1] / seconds[0]);
  const bool isMissed = exponent > mostExponent || memory > mostMemory;
  std::printf("100 MB of %-40s %9.1f ms, of 10 MB %8.1f ms, exponent %5.2f, memory %5.1f times%s\n", name.c_str(),
              seconds[1] * 1e3, seconds[0] * 1e3, exponent, memory, isMissed ? "  MISSED" : "");
  std::fflush(stdout);
  run.figures.add({{"part", "limits"},
                   {"what", name},
                   {"seconds10", seconds[0]},
                   {"seconds100", seconds[1]},
                   {"exponent", exponent},
                   {"memory", memory},
                   {"isMissed", isMissed}});
}

}  // namespace

void measureLimits(const Run& run) {
  for (const Input& input : inputs()) measure(run, input.name, [&](std::size_t size) { return input.ofSize(size); });
  measure(run, "members of many names", manyMembers);
}

}  // namespace kelvane::benchmarks
