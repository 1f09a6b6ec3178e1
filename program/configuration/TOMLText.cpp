#include "program/configuration/TOMLText.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <map>
#include <type_traits>
#include <utility>
#include <vector>

#include "host/CodexConfig.h"
#include "program/configuration/TOMLParser.h"
#include "program/configuration/TOMLScan.h"

namespace kelvane {
namespace {

constexpr std::string_view serversKey = CodexConfig::serversKey;
constexpr std::string_view entryKey = CodexConfig::serverName;

ConfigRefused notTOML(const std::string& position, std::string_view reason) {
  return ConfigRefused("The file is not valid TOML at " + position + " (" + std::string(reason) +
                       "). The file is unchanged. Fix it there and try again.");
}

toml::table parsed(std::string_view text) {
  const TOMLScan scan = scanTOML(text);
  // The parser's tables are taken apart by recursion, a level for each part of a dotted key. It limits other nesting.
  if (scan.dotsInKeys > TooManyDots::most) {
    throw TooManyDots("The file has more than " + std::to_string(TooManyDots::most) +
                      " dots in its keys, too many to check safely. The file is unchanged. Edit it by hand.");
  }
  toml::parse_result result = toml::parse(text);
  if (!result) {
    const toml::source_position position = result.error().source().begin;
    throw notTOML("line " + std::to_string(position.line) + ", column " + std::to_string(position.column),
                  result.error().description());
  }
  if (scan.hexadecimalFraction) {
    throw notTOML(positionIn(text, *scan.hexadecimalFraction), "a hexadecimal number cannot have a fraction");
  }
  return std::move(result).table();
}

/// Whether two nodes that hold no others are equal.
bool sameValue(const toml::node& left, const toml::node& right) {
  if (const auto* number = left.as_floating_point()) {
    const double other = right.as_floating_point()->get();
    return number->get() == other || (std::isnan(number->get()) && std::isnan(other));
  }
  return left.visit([&right](const auto& value) {
    using Value = std::decay_t<decltype(value)>;
    if constexpr (toml::is_value<Value>) {
      return value == *right.as<typename Value::value_type>();
    } else {
      return false;
    }
  });
}

/// Pairs of nodes that are to be equal, gone through without recursion.
class Comparison {
 public:
  void expect(const toml::node* left, const toml::node* right) { pairs_.emplace_back(left, right); }

  bool holds() {
    while (!pairs_.empty()) {
      const auto [left, right] = pairs_.back();
      pairs_.pop_back();
      if (left == nullptr || right == nullptr || left->type() != right->type()) return false;
      if (const toml::table* table = left->as_table()) {
        if (table->size() != right->as_table()->size()) return false;
        for (const auto& [key, value] : *table) expect(&value, right->as_table()->get(key.str()));
      } else if (const toml::array* array = left->as_array()) {
        if (array->size() != right->as_array()->size()) return false;
        for (std::size_t i = 0; i < array->size(); ++i) expect(array->get(i), right->as_array()->get(i));
      } else if (!sameValue(*left, *right)) {
        return false;
      }
    }
    return true;
  }

 private:
  std::vector<std::pair<const toml::node*, const toml::node*>> pairs_;
};

/// What stands beside our entry: the other servers by their names, and everything else at the root by its key.
using Others = std::map<std::pair<bool, std::string>, const toml::node*>;

Others others(const toml::table& root) {
  Others others;
  for (const auto& [key, value] : root) {
    const toml::table* servers = key.str() == serversKey ? value.as_table() : nullptr;
    if (servers == nullptr) {
      others[{false, std::string(key.str())}] = &value;
      continue;
    }
    for (const auto& [name, server] : *servers) {
      if (name.str() != entryKey) others[{true, std::string(name.str())}] = &server;
    }
  }
  return others;
}

}  // namespace

struct TOMLText::Document {
  toml::table root;

  toml::node_view<const toml::node> entry() const { return root[serversKey][entryKey]; }
};

TOMLText::TOMLText(std::string_view text) : document_(std::make_unique<Document>(Document{parsed(text)})) {
}
TOMLText::TOMLText(TOMLText&&) noexcept = default;
TOMLText& TOMLText::operator=(TOMLText&&) noexcept = default;
TOMLText::~TOMLText() = default;

std::optional<std::size_t> TOMLText::entryLine() const {
  const auto entry = document_->entry();
  return entry ? std::optional<std::size_t>(entry.node()->source().begin.line) : std::nullopt;
}

std::optional<std::string> TOMLText::command() const {
  return document_->entry()["command"].value_exact<std::string>();
}

std::optional<std::vector<std::string>> TOMLText::arguments() const {
  std::vector<std::string> arguments;
  const auto written = document_->entry()["args"];
  if (!written) return arguments;
  if (!written.is_array()) return std::nullopt;
  for (const toml::node& argument : *written.as_array()) {
    auto string = argument.value_exact<std::string>();
    if (!string) return std::nullopt;
    arguments.push_back(*std::move(string));
  }
  return arguments;
}

std::optional<std::string> TOMLText::home() const {
  return document_->entry()["env"]["HOME"].value_exact<std::string>();
}

bool TOMLText::isSwitchedOff() const {
  return document_->entry()["enabled"].value_exact<bool>() == false;
}

bool TOMLText::registersOnly(std::string_view command) const {
  const toml::table* entry = document_->entry().as_table();
  const toml::array* arguments = document_->entry()["args"].as_array();
  return entry != nullptr && entry->size() == 2 && arguments != nullptr && arguments->empty() &&
         this->command() == command;
}

bool TOMLText::equalsBesidesEntry(const TOMLText& other) const {
  const Others ours = others(document_->root);
  const Others theirs = others(other.document_->root);
  Comparison comparison;
  for (const auto& [key, node] : ours) {
    const auto counterpart = theirs.find(key);
    comparison.expect(node, counterpart != theirs.end() ? counterpart->second : nullptr);
  }
  return ours.size() == theirs.size() && comparison.holds();
}

}  // namespace kelvane
