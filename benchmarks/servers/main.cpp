#include <sys/utsname.h>

#include <cstdio>
#include <cstring>
#include <ctime>
#include <exception>
#include <fstream>
#include <iostream>
#include <memory>
#include <thread>

#include "benchmarks/servers/Measuring.h"

// Measures whole servers: the program from the build folder beside the least that a server can do, over growing sizes,
// at its limits, and beside a server on the official SDK.
//
//     kelvane_servers BUILD FIGURES [WORD…]    measures what has one of these words in its name, or everything; the
//                                              figures go into the file FIGURES

namespace {

using kelvane::JSON;

std::string processor() {
  std::ifstream lines("/proc/cpuinfo");
  for (std::string line; std::getline(lines, line);) {
    if (line.starts_with("model name")) return line.substr(line.find(':') + 2);
  }
  return "an unknown processor";
}

/// The versions of what the program is linked with and compared with, where the system's packages tell.
std::string versions() {
  const std::unique_ptr<FILE, int (*)(FILE*)> output(
      popen("dpkg-query -W -f '${Package} ${Version}, ' libsqlite3-0 libutf8proc2 libsimdjson-dev rapidjson-dev"
            " libboost-json1.81-dev nlohmann-json3-dev 2>/dev/null; echo Node.js \"$(node --version 2>/dev/null)\"",
            "r"),
      pclose);
  char line[1024] = "";
  if (!output || std::fgets(line, sizeof line, output.get()) == nullptr) return "unknown";
  return std::string(line).substr(0, std::strlen(line) - 1);
}

/// What the figures hold for. No name of a host or a person is among it.
JSON::Object machine() {
  utsname system{};
  uname(&system);
  const std::string kernel = std::string(system.sysname).append(" ").append(system.release);
  const std::time_t now = std::time(nullptr);
  char date[16];
  std::strftime(date, sizeof date, "%Y-%m-%d", std::gmtime(&now));
  return {
    {"part", "machine"}, {"date", date}, {"processor", processor()}, {"cores", std::thread::hardware_concurrency()},
        {"kernel", kernel.substr(0, kernel.find('-'))}, {"versions", versions()},
#if defined(__clang__)
        {"compiler", "Clang " __clang_version__}
#else
    {
      "compiler", "GCC " __VERSION__
    }
#endif
  };
}

}  // namespace

int main(int argc, char** argv) {
  using namespace kelvane::benchmarks;
  if (argc < 3) {
    std::cerr << "It takes: BUILD FIGURES [WORD...]\n";
    return 2;
  }
  try {
    Figures figures(argv[2], std::vector<std::string>(argv + 3, argv + argc));
    figures.add(machine());
    const Run run{argv[1], placements(), figures};
    measureServers(run);
    measureFloors(run);
    measureLimits(run);
    measureGrowth(run);
    measureJSON(run);
    return 0;
  } catch (const std::exception& error) {
    std::cerr << error.what() << '\n';
    return 1;
  }
}
