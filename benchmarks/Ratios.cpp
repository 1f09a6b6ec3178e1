#include "benchmarks/Ratios.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace kelvane::benchmarks {
namespace {

constexpr const char* ours = "kelvane";

/// Prints what the console reporter prints and remembers the times of every repetition.
class RatioReporter : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    ConsoleReporter::ReportRuns(runs);
    for (const Run& run : runs) {
      if (run.run_type != Run::RT_Iteration || run.error_occurred) continue;
      const std::string& name = run.run_name.function_name;
      const std::size_t slash = name.rfind('/');
      if (slash == std::string::npos) continue;
      const std::string task = name.substr(0, slash);
      if (!times_.contains(task)) tasks_.push_back(task);
      const bool isRealTime = run.run_name.time_type == "real_time";
      times_[task][name.substr(slash + 1)].push_back(isRealTime ? run.GetAdjustedRealTime() : run.GetAdjustedCPUTime());
    }
  }

  void printRatios() const {
    std::printf("\nTime relative to kelvane's in this run, by medians (above 1: the peer took longer)\n");
    for (const std::string& task : tasks_) {
      const auto& peers = times_.at(task);
      const auto mine = peers.find(ours);
      if (mine == peers.end() || peers.size() < 2) continue;
      std::printf("%-28s", task.c_str());
      for (const auto& [peer, times] : peers) {
        if (peer != ours) std::printf("  %s %.2f", peer.c_str(), median(times) / median(mine->second));
      }
      std::printf("\n");
    }
  }

  /// For tasks that are called "WHAT-of-SIZE".
  void printGrowth() const {
    std::printf("\nTime for that many times the size (the same number where time follows size)\n");
    std::map<std::string, std::string> smaller;  // the task of the size before
    for (const std::string& task : tasks_) {
      const std::size_t of = task.find("-of-");
      if (of == std::string::npos) continue;
      const auto sizeIn = [of](const std::string& name) { return std::strtod(name.c_str() + of + 4, nullptr); };
      const std::string before = std::exchange(smaller[task.substr(0, of)], task);
      if (before.empty()) continue;
      std::printf("%-28s  %g times:", task.c_str(), sizeIn(task) / sizeIn(before));
      for (const auto& [peer, times] : times_.at(task)) {
        const auto earlier = times_.at(before).find(peer);
        if (earlier == times_.at(before).end()) continue;
        std::printf("  %s %.2f", peer.c_str(), median(times) / median(earlier->second));
      }
      std::printf("\n");
    }
  }

 private:
  static double median(std::vector<double> times) {
    const auto middle = times.begin() + static_cast<std::ptrdiff_t>(times.size() / 2);
    std::nth_element(times.begin(), middle, times.end());
    return *middle;
  }

  std::vector<std::string> tasks_;  // in the order of the run
  std::map<std::string, std::map<std::string, std::vector<double>>> times_;
};

}  // namespace

int runWithRatios(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 2;
  RatioReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  reporter.printRatios();
  reporter.printGrowth();
  benchmark::Shutdown();
  return 0;
}

}  // namespace kelvane::benchmarks
