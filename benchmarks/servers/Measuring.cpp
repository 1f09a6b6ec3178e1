#include "benchmarks/servers/Measuring.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <stdexcept>

namespace kelvane::benchmarks {
namespace {

double quantile(std::vector<double> values, double share) {
  const auto at = values.begin() + static_cast<std::ptrdiff_t>(share * static_cast<double>(values.size() - 1));
  std::nth_element(values.begin(), at, values.end());
  return *at;
}

}  // namespace

double secondsOf(const std::function<void()>& work) {
  const auto start = std::chrono::steady_clock::now();
  work();
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

double median(std::vector<double> values) {
  return quantile(std::move(values), 0.5);
}

Pairs inPairs(std::size_t times, const std::function<double()>& ours, const std::function<double()>& floor) {
  std::vector<double> mine, least, ratios;
  static_cast<void>(ours());
  static_cast<void>(floor());
  for (std::size_t time = 0; time < times; ++time) {
    const double early = time % 2 == 0 ? ours() : floor();
    const double late = time % 2 == 0 ? floor() : ours();
    mine.push_back(time % 2 == 0 ? early : late);
    least.push_back(time % 2 == 0 ? late : early);
    ratios.push_back(mine.back() / least.back());
  }
  return {median(mine), median(least), median(ratios), quantile(ratios, 0.25), quantile(ratios, 0.75)};
}

bool Figures::wants(std::string_view name) const {
  return wanted_.empty() || std::any_of(wanted_.begin(), wanted_.end(), [name](const std::string& word) {
           return name.find(word) != std::string_view::npos;
         });
}

void Figures::add(const JSON::Object& figure) {
  figures_.append(figure);
  std::ofstream file(file_, std::ios::binary);
  file << "[";
  for (std::size_t at = 0; at < figures_.size(); ++at) file << (at == 0 ? "\n" : ",\n") << figures_[at].encoded();
  if (!(file << "\n]\n" << std::flush)) throw std::runtime_error(file_ + " cannot be written.");
}

void Figures::add(const std::string& what, int cpus, const Pairs& pairs, double most, bool isShare) {
  const double value = isShare ? 1 / pairs.ratio : pairs.ratio;
  const bool isMissed = most != 0 && (isShare ? value < most : value > most);
  std::printf("%-58s %d CPU  %11.1f us %11.1f us  ratio %6.3f (%.3f to %.3f)", what.c_str(), cpus, pairs.ours * 1e6,
              pairs.floor * 1e6, pairs.ratio, pairs.low, pairs.high);
  if (isShare) std::printf("  share %.2f", value);
  if (most != 0) std::printf("  %s %g%s", isShare ? "at least" : "at most", most, isMissed ? "  MISSED" : "");
  std::printf("\n");
  std::fflush(stdout);
  add({{"part", "floors"},
       {"what", what},
       {"cpus", cpus},
       {"ours", pairs.ours},
       {"floor", pairs.floor},
       {"ratio", pairs.ratio},
       {"low", pairs.low},
       {"high", pairs.high},
       {"isShare", isShare},
       {"must", most},
       {"isMissed", isMissed}});
}

void Figures::add(const std::string& what, const std::string& unit, double value, double most) {
  const bool isMissed = most != 0 && value > most;
  std::printf("%-58s %14.3f %s", what.c_str(), value, unit.c_str());
  if (most != 0) std::printf("  at most %g%s", most, isMissed ? "  MISSED" : "");
  std::printf("\n");
  std::fflush(stdout);
  add({{"part", "values"}, {"what", what}, {"unit", unit}, {"value", value}, {"must", most}, {"isMissed", isMissed}});
}

std::string request(const std::string& method, const JSON::Object& params) {
  return JSON(JSON::Object{{"jsonrpc", "2.0"}, {"id", 1}, {"method", method}, {"params", params}}).encoded() + "\n";
}

std::string toolCall(const std::string& tool, const JSON::Object& arguments) {
  return request("tools/call", {{"name", tool}, {"arguments", arguments}});
}

const std::string ping = "{\"jsonrpc\":\"2.0\",\"id\":1,\"method\":\"ping\"}\n";

}  // namespace kelvane::benchmarks
