#include "benchmarks/performance/Record.h"

#include <cstdio>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace kelvane::benchmarks {

const JSON& Figure::at(std::string_view key) const {
  const JSON* member = members_.find(key);
  if (member == nullptr) throw std::runtime_error("A figure has no \"" + std::string(key) + "\".");
  return *member;
}

double Figure::number(std::string_view key) const {
  const auto number = at(key).number();
  if (!number) throw std::runtime_error("\"" + std::string(key) + "\" is not a number.");
  return *number;
}

std::string Figure::string(std::string_view key) const {
  const auto string = at(key).string();
  if (!string) throw std::runtime_error("\"" + std::string(key) + "\" is not a string.");
  return std::string(*string);
}

bool Figure::flag(std::string_view key) const {
  return at(key) == JSON(true);
}

std::vector<double> Figure::numbers(std::string_view key) const {
  const JSON::Array* items = at(key).items();
  if (items == nullptr) throw std::runtime_error("\"" + std::string(key) + "\" is not an array.");
  std::vector<double> numbers;
  for (const JSON& item : *items) numbers.push_back(item.number().value_or(0));
  return numbers;
}

Record::Record(const std::string& file) {
  std::ifstream stream(file, std::ios::binary);
  const std::string text(std::istreambuf_iterator<char>(stream), {});
  const auto value = JSON::decoded(text);
  if (!value || value->items() == nullptr) throw std::runtime_error(file + " holds no figures. Run ./run bench first.");
  for (const JSON& figure : *value->items()) {
    if (figure.object() != nullptr) figures_.push_back(*figure.object());
  }
}

std::vector<Figure> Record::part(std::string_view name) const {
  std::vector<Figure> found;
  for (const JSON::Object& figure : figures_) {
    const JSON* part = figure.find("part");
    if (part != nullptr && part->string() == name) found.emplace_back(figure);
  }
  return found;
}

std::string decimal(double value, int digits) {
  char text[64];
  std::snprintf(text, sizeof text, "%.*f", digits, value);
  return text;
}

std::string duration(double seconds) {
  const char* unit = " s";
  if (seconds < 0.9995) seconds *= 1000, unit = " ms";
  if (seconds < 0.9995) seconds *= 1000, unit = " µs";
  if (seconds < 0.9995) seconds *= 1000, unit = " ns";
  return decimal(seconds, seconds < 9.95 ? 1 : 0) + unit;
}

std::string grouped(double value) {
  std::string text = decimal(value, 0);
  for (std::size_t at = text.size(); at > 3; at -= 3) text.insert(at - 3, 1, ',');
  return text;
}

}  // namespace kelvane::benchmarks
