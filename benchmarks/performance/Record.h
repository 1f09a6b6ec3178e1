#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "protocol/JSON.h"

/// The figures of a run as `kelvane_servers` wrote them, and the words for them.
namespace kelvane::benchmarks {

/// One figure: a JSON object. A member that is asked for must be there and of that kind; otherwise
/// `std::runtime_error` is thrown.
class Figure {
 public:
  explicit Figure(JSON::Object members) : members_(std::move(members)) {}
  bool has(std::string_view key) const { return members_.find(key) != nullptr; }
  double number(std::string_view key) const;
  std::string string(std::string_view key) const;
  bool flag(std::string_view key) const;
  std::vector<double> numbers(std::string_view key) const;

 private:
  const JSON& at(std::string_view key) const;
  JSON::Object members_;
};

class Record {
 public:
  /// Throws `std::runtime_error` if the file holds no figures.
  explicit Record(const std::string& file);

  /// The figures of that part, in the order in which they were measured.
  std::vector<Figure> part(std::string_view name) const;

 private:
  std::vector<JSON::Object> figures_;
};

/// "1.75": that many digits after the point.
std::string decimal(double value, int digits);

/// A duration in two or three digits, in the unit that fits: "70 ns", "16 µs", "1.9 ms", "2.4 s".
std::string duration(double seconds);

/// "10,000".
std::string grouped(double value);

}  // namespace kelvane::benchmarks
