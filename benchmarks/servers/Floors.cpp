#include <filesystem>
#include <functional>
#include <iostream>
#include <optional>
#include <stdexcept>

#include "benchmarks/Files.h"
#include "benchmarks/servers/Libraries.h"
#include "benchmarks/servers/Measuring.h"

// The program beside its floors: small C programs that read and write the same bytes and do nothing else.

namespace kelvane::benchmarks {
namespace {

namespace fs = std::filesystem;
using Command = std::vector<std::string>;

/// A start: seconds on the clock from just before the program is started until its first reply is there, and the
/// seconds of processor time that the program has taken by then.
struct Start {
  double onClock = 0;
  double ofProcessor = 0;
};

Start startOf(const Command& command, Placement placement) {
  std::optional<Process> server;
  const double onClock = secondsOf([&] {
    server.emplace(command, placement);
    server->askForSize(ping);
  });
  return {onClock, server->processorTime()};
}

void start(const Run& run, const std::string& library) {
  const struct {
    std::string what;
    double Start::*seconds;
  } rows[] = {{"start to the first reply", &Start::onClock},
              {"start to the first reply, processor time", &Start::ofProcessor}};
  const Placement one = run.placements.front();
  for (const auto& [what, seconds] : rows) {
    if (!run.figures.wants(what)) continue;
    const auto secondsOfStart = [one, part = seconds](const Command& command) { return startOf(command, one).*part; };
    run.figures.add(what, 1,
                    inPairs(
                        301, [&] { return secondsOfStart(run.serve(library)); },
                        [&] { return secondsOfStart({run.floor("start")}); }),
                    1.05);
  }
}

/// A request that is answered again and again by both, each time when the reply before has come.
struct ClosedLoop {
  std::string what;
  std::string line;
  Command floor;
  double most = 0;
  std::size_t pairs = 0;
  std::size_t requests = 0;     // of each half of a pair, which is measured by the median of these
  bool isSameReply = true;      // else the floor's reply is another one
  bool isOnlyOfOneCPU = false;  // what `most` is about
};

/// What was measured on one CPU; nothing if it is not wanted.
std::optional<Pairs> measure(const Run& run, const Command& ours, const ClosedLoop& loop) {
  if (!run.figures.wants(loop.what)) return std::nullopt;
  std::optional<Pairs> onOne;
  for (const Placement placement : run.placements) {
    Process server(ours, placement), floor(loop.floor, placement);
    const std::string_view line = std::string_view(loop.line).substr(0, loop.line.size() - 1);
    if (loop.isSameReply && server.ask(line) != floor.ask(line))
      throw std::runtime_error("\"" + loop.what + "\" is not answered with the same bytes by its floor.");
    const auto timesOf = [&](Process& process) {
      std::vector<double> times;
      for (std::size_t request = 0; request < loop.requests; ++request)
        times.push_back(secondsOf([&] { process.askForSize(loop.line); }));
      return median(times);
    };
    const Pairs pairs = inPairs(
        loop.pairs, [&] { return timesOf(server); }, [&] { return timesOf(floor); });
    run.figures.add(loop.what, placement.cpus(), pairs, loop.isOnlyOfOneCPU && placement.cpus() > 1 ? 0 : loop.most);
    if (placement.cpus() == 1) onOne = pairs;
  }
  return onOne;
}

std::string lineOf(std::size_t size, const std::string& piece) {
  std::string text;
  while (text.size() < size) text += piece;
  return text;
}

void smallRequests(const Run& run, const fs::path& library) {
  const std::string deep = "Talks/2026/Autumn/Talk.md";
  fs::create_directories((library / deep).parent_path());
  put(library / "Talk.md", prose(4096));
  put(library / deep, prose(4096));
  const Command serve = run.serve(library);
  measure(run, serve, {"ping", ping, {run.floor("serve"), "ping"}, 1.10, 201, 100, true, true});
  for (const std::string& script : {std::string("Talk.md"), deep}) {
    const bool isDeep = script == deep;
    measure(run, serve,
            {isDeep ? "read_script of 4 KB, three folders down" : "read_script of 4 KB",
             toolCall("read_script", {{"id", script}}),
             {run.floor("serve"), library, script},
             1.35,
             201,
             50});
  }
}

void withoutWaiting(const Run& run, const std::string& library) {
  constexpr std::size_t count = 100'000;
  std::string lines;
  for (std::size_t line = 0; line < count; ++line) lines += ping;
  for (const std::string how : {"ping", "gathered"}) {
    const std::string what =
        how == "gathered" ? "pings without waiting, the floor's replies in one write a read" : "pings without waiting";
    if (!run.figures.wants(what)) continue;
    for (const Placement placement : run.placements) {
      Process server(run.serve(library), placement), floor({run.floor("serve"), how}, placement);
      const auto each = [&](Process& process) {
        return secondsOf([&] { process.exchange(lines, count); }) / static_cast<double>(count);
      };
      run.figures.add(what, placement.cpus(),
                      inPairs(
                          31, [&] { return each(server); }, [&] { return each(floor); }),
                      how == "gathered" ? 0 : 0.7, true);
    }
  }
}

void listing(const Run& run) {
  const std::string what = "list_scripts of 100,000 scripts in 5,000 folders";
  if (!run.figures.wants(what)) return;
  const Folder library;
  addLibrary(library.path(), 100'000);
  measure(run, run.serve(library.path()),
          {what, toolCall("list_scripts", {}), {run.floor("list"), library.path()}, 1.9, 15, 1, false});
}

void largeRead(const Run& run) {
  const std::string what = "read_script of 50 MB";
  if (!run.figures.wants(what)) return;
  const Folder library;
  put(library.path() / "Talk.md", prose(50'000'000));
  measure(run, run.serve(library.path()),
          {what,
           toolCall("read_script", {{"id", "Talk.md"}}),
           {run.floor("read"), library.path() / "Talk.md"},
           1.1,
           15,
           1});
}

/// Long arguments that the server refuses with a sentence that quotes them, beside a program that echoes the line.
void refusals(const Run& run, const std::string& library) {
  const struct {
    std::string what;
    std::string line;
  } rows[] = {
      {"an identifier of 10 MB of \"a/\", refused", toolCall("read_script", {{"id", lineOf(10'000'000, "a/")}})},
      {"a tool's name of 10 MB of combining marks, refused", toolCall(lineOf(10'000'000, "\xCC\x81"), {})},
  };
  for (const auto& [what, line] : rows) {
    const auto times = measure(run, run.serve(library), {what, line, {run.floor("echo")}, 0, 15, 1, false});
    if (times) run.figures.add(what + ": the time", "ms", times->ours * 1000, 10);
  }
}

/// `update_script` of a script of 200 KB, each time with another text, beside a program that keeps the old text in a
/// file and replaces the script.
class Updating {
 public:
  Updating(const Command& command, Placement placement, std::vector<std::string> environment = {})
      : server_(command, placement, std::move(environment)) {}
  double operator()() {
    const std::string line =
        toolCall("update_script", {{"id", "Talk.md"}, {"text", text_ + std::to_string(round_++)}, {"note", "again"}});
    return secondsOf([&] { server_.askForSize(line); });
  }

 private:
  Process server_;
  std::string text_ = prose(200'000);
  int round_ = 0;
};

void updating(const Run& run) {
  const std::string text = prose(200'000);
  if (const std::string what = "update_script of 200 KB, files in memory"; run.figures.wants(what)) {
    if (!fs::exists(run.floor("update"))) {
      std::cout << what << ": this build has no such floor.\n";
    } else {
      for (const Placement placement : run.placements) {
        const Folder ours(memoryFolder()), floors(memoryFolder());
        put(ours.path() / "Talk.md", text);
        put(floors.path() / "Talk.md", text);
        Updating server(run.serve(ours.path()), placement);
        Updating floor({run.floor("update"), floors.path()}, placement);
        run.figures.add(what, placement.cpus(), inPairs(101, std::ref(server), std::ref(floor)), 1.8);
      }
    }
  }
  if (const std::string what = "update_script of 200 KB on the disk, beside itself without flushing";
      run.figures.wants(what)) {
    const Placement placement = run.placements.back();
    const Folder flushed, unflushed;
    put(flushed.path() / "Talk.md", text);
    put(unflushed.path() / "Talk.md", text);
    Updating with(run.serve(flushed.path()), placement);
    Updating without(run.serve(unflushed.path()), placement, {"LD_PRELOAD=" + run.floor("unflushed.so")});
    const Pairs pairs = inPairs(51, std::ref(with), std::ref(without));
    run.figures.add(what, placement.cpus(), pairs, 0);
    run.figures.add("the flushes' share of that", "%", 100 * (1 - 1 / pairs.ratio), 0);
  }
}

}  // namespace

void measureFloors(const Run& run) {
  std::printf("%-58s        %14s %14s  ours / floor, medians pair by pair (quartiles)\n", "Beside the floors", "ours",
              "floor");
  const Folder library;
  start(run, library.path());
  smallRequests(run, library.path());
  withoutWaiting(run, library.path());
  listing(run);
  largeRead(run);
  refusals(run, library.path());
  updating(run);
}

}  // namespace kelvane::benchmarks
