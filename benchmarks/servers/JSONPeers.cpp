#include <cstdio>
#include <filesystem>
#include <memory>
#include <sstream>
#include <stdexcept>

#include "benchmarks/servers/Measuring.h"

// The JSON libraries, which another program compares: it prints a line for each figure, its fields separated by tabs.

namespace kelvane::benchmarks {
namespace {

/// What the peer's time over ours must not be below; 0 demands nothing. Requests are what a server reads and writes all
/// day, so there no peer may be ahead.
double leastRatio(const std::string& task, const std::string& text, const std::string& peer) {
  if (task == "decode" && peer == "rapidjson") return 2;
  return task == "encode" || text == "calls" || text == "updates" ? 1 : 0;
}

}  // namespace

void measureJSON(const Run& run) {
  const std::string program = run.build + "/benchmarks/json_peers";
  if (!run.figures.wants("json")) return;
  if (!std::filesystem::exists(program)) {
    std::printf("%s is not built, so no JSON library is compared.\n", program.c_str());
    return;
  }
  const std::unique_ptr<FILE, int (*)(FILE*)> output(popen(("'" + program + "'").c_str(), "r"), pclose);
  if (!output) throw std::runtime_error(program + " cannot be started.");
  char line[512];
  while (std::fgets(line, sizeof line, output.get()) != nullptr) {
    std::printf("%s", line);
    std::istringstream fields(line);
    std::string part, task, text, peer;
    double value = 0;
    if (!(fields >> part >> task >> text >> peer >> value))
      throw std::runtime_error("This is no figure: " + std::string(line));
    const double least = part == "json" ? leastRatio(task, text, peer) : 0;
    run.figures.add({{"part", part},
                     {"task", task},
                     {"text", text},
                     {"peer", peer},
                     {"value", value},
                     {"must", least},
                     {"isMissed", value < least}});
  }
}

}  // namespace kelvane::benchmarks
