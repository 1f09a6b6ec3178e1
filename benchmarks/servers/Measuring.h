#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "benchmarks/servers/Process.h"
#include "protocol/JSON.h"

/// How whole servers are measured, and where the figures go.
namespace kelvane::benchmarks {

/// The seconds that `work` takes.
double secondsOf(const std::function<void()>& work);

/// The value in the middle. There is at least one.
double median(std::vector<double> values);

/// Two things measured in turn.
struct Pairs {
  double ours = 0;   // the median
  double floor = 0;  // the median
  double ratio = 0;  // the median of ours / floor, taken pair by pair
  double low = 0;    // a quarter of those ratios are below this
  double high = 0;   // a quarter are above this
};

/// Measures two things in turn, that many times, after once without looking. Each comes first every other time. What
/// disturbs the machine then disturbs both, and the ratio of a pair says more than the times.
Pairs inPairs(std::size_t times, const std::function<double()>& ours, const std::function<double()>& floor);

/// The figures of a run, as JSON objects in one file. Each has a "part" that says what it belongs to.
class Figures {
 public:
  Figures(std::string file, std::vector<std::string> wanted) : file_(std::move(file)), wanted_(std::move(wanted)) {}

  /// Whether the run is to measure this: its name contains one of the words that the user gave, if there were any.
  bool wants(std::string_view name) const;

  /// Adds a figure, and saves the file. The members of a figure are for the reader of the file.
  void add(const JSON::Object& figure);

  /// Adds pairs as a figure of the part "floors" and prints them. `most` is what the ratio must not exceed; where
  /// `isShare` is set, the share of the floor's rate must not be below it. 0 demands nothing.
  void add(const std::string& what, int cpus, const Pairs& pairs, double most, bool isShare = false);

  /// Adds a value that must not exceed `most`, where that is not 0, and prints it.
  void add(const std::string& what, const std::string& unit, double value, double most);

 private:
  std::string file_;
  std::vector<std::string> wanted_;
  JSON::Array figures_;
};

/// A request with the id 1, with its line feed.
std::string request(const std::string& method, const JSON::Object& params);
std::string toolCall(const std::string& tool, const JSON::Object& arguments);
extern const std::string ping;

/// What a run measures with.
struct Run {
  std::string build;  // the build folder
  std::vector<Placement> placements;
  Figures& figures;

  std::string program() const { return build + "/kelvane"; }
  std::string floor(const std::string& name) const { return build + "/benchmarks/floors/" + name; }
  std::vector<std::string> serve(const std::string& library) const {
    return {program(), "serve", "--allow-writes", "--library", library};
  }
};

// The parts of a run.
void measureServers(const Run& run);
void measureFloors(const Run& run);
void measureLimits(const Run& run);
void measureGrowth(const Run& run);
void measureJSON(const Run& run);

}  // namespace kelvane::benchmarks
