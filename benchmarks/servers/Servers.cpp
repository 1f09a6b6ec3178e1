#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <optional>

#include "benchmarks/Files.h"
#include "benchmarks/servers/Libraries.h"
#include "benchmarks/servers/Measuring.h"

// Whole servers side by side, in what a client and its user feel: the program, the floor, and a server of the same
// tool on the official TypeScript SDK where node and the SDK are there. And what the program's memory does.

namespace kelvane::benchmarks {
namespace {

namespace fs = std::filesystem;

constexpr double megabyte = 1e6;

struct Server {
  std::string name;
  std::vector<std::string> command;
  bool answersAll = true;  // else only pings
};

std::string initialize() {
  return request("initialize", {{"protocolVersion", "2025-06-18"},
                                {"capabilities", JSON::Object()},
                                {"clientInfo", JSON::Object{{"name", "benchmark"}, {"version", "1"}}}});
}

std::string readingOf(const char* script) {
  return toolCall("read_script", {{"id", script}});
}

/// The median in seconds of that many requests, each sent when the reply before has come.
double closedLoop(Process& server, const std::string& line, std::size_t requests) {
  std::vector<double> times;
  for (std::size_t each = 0; each < requests; ++each) times.push_back(secondsOf([&] { server.askForSize(line); }));
  return median(times);
}

void measure(const Run& run, const Server& what) {
  const Placement placement = run.placements.front();
  std::vector<double> starts;
  for (int time = 0; time < 15; ++time) {
    std::optional<Process> started;
    starts.push_back(secondsOf([&] {
      started.emplace(what.command, placement);
      started->askForSize(ping);
    }));
  }
  Process server(what.command, placement);
  if (what.answersAll) server.askForSize(initialize());
  server.askForSize(ping);
  const auto memoryAtStart = static_cast<double>(server.memory());
  JSON::Object figure{
      {"part", "servers"}, {"server", what.name}, {"start", median(starts)}, {"memoryAtStart", memoryAtStart}};
  std::printf("%-16s start %8.2f ms, memory %6.1f MB", what.name.c_str(), median(starts) * 1e3,
              memoryAtStart / megabyte);

  closedLoop(server, ping, 2000);  // a just-in-time compiler has its chance
  figure.set("ping", closedLoop(server, ping, 10'000));
  constexpr std::size_t count = 200'000;
  std::string lines;
  for (std::size_t line = 0; line < count; ++line) lines += ping;
  figure.set("rate", count / secondsOf([&] { server.exchange(lines, count); }));
  std::printf(", ping %7.1f us, %9.0f pings a second", *figure.find("ping")->number() * 1e6,
              *figure.find("rate")->number());
  if (what.answersAll) {
    closedLoop(server, readingOf("Talk.md"), 2000);
    figure.set("read", closedLoop(server, readingOf("Talk.md"), 5000));
    const auto memoryNow = [&] {
      server.askForSize(ping);  // what a request took goes back once its reply has left
      return static_cast<double>(server.memory());
    };
    const double afterLoad = memoryNow();
    figure.set("readLarge", closedLoop(server, readingOf("Large.md"), 3));
    const double afterLarge = memoryNow();
    figure.set("memoryAfterLoad", afterLoad);
    figure.set("memoryAfterLarge", afterLarge);
    std::printf(", read %7.1f us, 50 MB %7.1f ms, memory after load %6.1f MB, after 50 MB %6.1f MB",
                *figure.find("read")->number() * 1e6, *figure.find("readLarge")->number() * 1e3, afterLoad / megabyte,
                afterLarge / megabyte);
  }
  std::printf("\n");
  std::fflush(stdout);
  run.figures.add(figure);
}

/// What a large reply takes at its most, and what of it is still there afterwards.
void memoryOf(const Run& run, const std::string& what, const fs::path& library, const std::string& line,
              std::size_t size, double most) {
  if (!run.figures.wants(what)) return;
  Process server(run.serve(library), run.placements.front());
  server.askForSize(ping);
  const auto before = static_cast<double>(server.memory());
  const std::size_t replySize = server.askForSize(line);
  const auto peak = static_cast<double>(server.peakMemory());
  server.askForSize(ping);
  run.figures.add(what + ": peak memory over " + (size == 0 ? "the reply's bytes" : "the text's bytes"), "times",
                  peak / static_cast<double>(size == 0 ? replySize : size), most);
  run.figures.add(what + ": memory kept, above that at the start", "MB",
                  (static_cast<double>(server.memory()) - before) / megabyte, 1);
}

}  // namespace

void measureServers(const Run& run) {
  const Folder library;
  const fs::path& root = library.path();
  put(root / "Talk.md", prose(4096));
  put(root / "Large.md", prose(50'000'000));
  if (run.figures.wants("servers")) {
    std::printf("Whole servers, client and server on one CPU\n");
    measure(run, {"floor", {run.floor("serve"), "ping"}, false});
    measure(run, {"kelvane", run.serve(root)});
    const fs::path source = KELVANE_SOURCE_DIR;
    const bool hasNode = std::system("command -v node >/dev/null 2>&1") == 0;
    if (hasNode && fs::exists(source / "tests/clients/node_modules/@modelcontextprotocol/sdk"))
      measure(run, {"TypeScript SDK", {"/usr/bin/env", "node", source / "benchmarks/servers/sdk.mjs", root}});
    else
      std::printf("Node.js or the SDK is not here, so there is no server on it.\n");
  }
  memoryOf(run, "memory of read_script of 50 MB", root, readingOf("Large.md"), 50'000'000, 2.1);
  const Folder large;
  addLibrary(large.path(), run.figures.wants("memory of list_scripts of 100,000") ? 100'000 : 0);
  memoryOf(run, "memory of list_scripts of 100,000", large.path(), toolCall("list_scripts", {}), 0, 2.5);
}

}  // namespace kelvane::benchmarks
