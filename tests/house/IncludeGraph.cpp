#include "tests/house/IncludeGraph.h"

#include <algorithm>
#include <fstream>
#include <iterator>
#include <map>
#include <set>
#include <sstream>
#include <string_view>

namespace kelvane::house {
namespace {

using Rooms = std::set<std::string_view>;

const Rooms all = {
    "platform", "platform/unicode", "platform/json",         "protocol",        "protocol/json",   "scripttools",
    "host",     "quorvel/core",     "quorvel/files",         "quorvel/history", "quorvel/library", "quorvel/settings",
    "program",  "program/commands", "program/configuration", "program/changes"};

Rooms allAnd(std::string_view more) {
  Rooms rooms = all;
  rooms.insert(more);
  return rooms;
}

// Each room, and the rooms that it may include besides itself. A folder that is not listed belongs to the nearest room
// above it.
const std::map<std::string_view, Rooms> mayInclude = {
    {"platform", {"platform/unicode"}},
    {"platform/unicode", {}},
    {"platform/json", {"platform/unicode"}},
    {"protocol", {"protocol/json", "platform", "platform/unicode"}},
    {"protocol/json", {"platform", "platform/unicode", "platform/json"}},
    {"scripttools", {"protocol", "protocol/json", "platform", "platform/unicode"}},
    {"host", {"protocol/json", "platform", "platform/unicode"}},
    {"quorvel/core", {"platform", "platform/unicode"}},
    {"quorvel/files", {"platform", "platform/unicode"}},
    {"quorvel/history", {"quorvel/files", "platform", "platform/unicode"}},
    {"quorvel/library", {"quorvel/history", "quorvel/files", "platform", "platform/unicode"}},
    {"quorvel/settings", {"quorvel/files", "platform", "platform/unicode", "platform/json"}},
    {"program",
     {"scripttools", "host", "protocol", "protocol/json", "platform", "platform/unicode", "quorvel/files",
      "quorvel/history", "quorvel/library", "quorvel/settings", "program/configuration", "program/changes"}},
    {"program/commands",
     {"scripttools", "host", "protocol", "protocol/json", "platform", "platform/unicode", "quorvel/files",
      "quorvel/history", "quorvel/library", "quorvel/settings", "program", "program/configuration", "program/changes"}},
    {"program/main.cpp", {"quorvel/files", "program", "program/commands"}},
    {"program/configuration", {"host", "protocol/json", "platform", "platform/unicode", "platform/json"}},
    {"program/changes", {}},
    {"tests", all},
    {"benchmarks", all},
    {"fuzz", allAnd("tests")},  // checks what the tests check, with random inputs
    {"examples", all},
};

// A room's face: a file in the folder above, by which others use the room.
const std::map<std::string_view, std::string_view> faces = {
    {"platform/Unicode.h", "platform/unicode"},
    {"protocol/JSON.h", "protocol/json"},
    {"protocol/JSONCoding.h", "protocol/json"},
    {"program/main.cpp", "program/main.cpp"},  // a room of its own: the only file that includes the commands
};

/// The room that a path belongs to; empty if there is none.
std::string_view roomOf(std::string_view path) {
  if (const auto face = faces.find(path); face != faces.end()) return face->second;
  std::size_t end = path.rfind('/');
  while (end != std::string_view::npos && !mayInclude.contains(path.substr(0, end))) {
    end = end == 0 ? std::string_view::npos : path.rfind('/', end - 1);
  }
  return end == std::string_view::npos ? std::string_view() : path.substr(0, end);
}

std::string_view withoutSpaces(std::string_view line) {
  line.remove_prefix(std::min(line.find_first_not_of(" \t"), line.size()));
  return line;
}

/// What follows "#include" on each line that has it.
std::vector<std::string_view> includesOf(std::string_view text) {
  std::vector<std::string_view> includes;
  while (!text.empty()) {
    std::string_view line = text.substr(0, text.find_first_of("\r\n"));
    text.remove_prefix(std::min(line.size() + 1, text.size()));
    line = withoutSpaces(line);
    if (!line.starts_with('#')) continue;
    line = withoutSpaces(line.substr(1));
    constexpr std::string_view directive = "include";
    if (line.starts_with(directive)) includes.push_back(withoutSpaces(line.substr(directive.size())));
  }
  return includes;
}

/// The path between quotes or angle brackets; empty if there is none.
std::string_view pathOf(std::string_view include) {
  if (include.empty() || (include[0] != '"' && include[0] != '<')) return {};
  const std::size_t end = include.find(include[0] == '"' ? '"' : '>', 1);
  return end == std::string_view::npos ? std::string_view() : include.substr(1, end - 1);
}

using Paths = std::set<std::string_view>;

std::string faultOf(std::string_view including, std::string_view include, const Paths& tree) {
  const std::string_view path = pathOf(include);
  if (path.empty()) return "is not a path in quotes or angle brackets";
  const bool ours = !roomOf(path).empty();
  if (include[0] == '<') return ours ? "is a file of this tree and needs quotes" : "";
  if (!ours) return "is not written from the root of the tree";
  if (!tree.contains(path)) return "does not exist";
  const std::string_view from = roomOf(including);
  const std::string_view to = roomOf(path);
  return from == to || mayInclude.at(from).contains(to) ? "" : "is not permitted in " + std::string(from);
}

/// The sources that include themselves through others, and the sources that include those.
Paths circle(const std::map<std::string_view, Paths>& includes) {
  std::map<std::string_view, Paths> includedBy;
  std::map<std::string_view, std::size_t> open;  // how many includes of a source may still lead into a circle
  std::vector<std::string_view> free;
  for (const auto& [path, included] : includes) {
    for (std::string_view header : included) includedBy[header].insert(path);
    open[path] = included.size();
    if (included.empty()) free.push_back(path);
  }
  while (!free.empty()) {
    const std::string_view path = free.back();
    free.pop_back();
    open.erase(path);
    for (std::string_view including : includedBy[path]) {
      if (--open[including] == 0) free.push_back(including);
    }
  }
  Paths left;
  for (const auto& [path, count] : open) left.insert(path);
  return left;
}

bool isSkipped(const std::filesystem::path& folder) {
  const std::string name = folder.filename().string();
  return name.starts_with('.') || name == "node_modules" || name == "build" || name.starts_with("build-");
}

}  // namespace

std::vector<Source> sourcesBelow(const std::filesystem::path& root) {
  std::vector<Source> sources;
  for (std::filesystem::recursive_directory_iterator entry(root), end; entry != end; ++entry) {
    if (entry->is_directory() && isSkipped(entry->path())) entry.disable_recursion_pending();
    const std::string extension = entry->path().extension().string();
    if (!entry->is_regular_file() || (extension != ".h" && extension != ".cpp")) continue;
    std::ostringstream text;
    text << std::ifstream(entry->path(), std::ios::binary).rdbuf();
    sources.push_back({entry->path().lexically_relative(root).generic_string(), text.str()});
  }
  std::sort(sources.begin(), sources.end(), [](const Source& a, const Source& b) { return a.path < b.path; });
  return sources;
}

std::vector<std::string> faultsIn(const std::vector<Source>& tree) {
  Paths paths;
  for (const Source& source : tree) paths.insert(source.path);

  std::vector<std::string> found;
  std::map<std::string_view, Paths> includes;
  for (const Source& source : tree) {
    if (roomOf(source.path).empty()) {
      found.push_back(source.path + " is in a folder that is not a room.");
      continue;
    }
    Paths& included = includes[source.path];
    for (std::string_view include : includesOf(source.text)) {
      const std::string fault = faultOf(source.path, include, paths);
      if (!fault.empty()) found.push_back(source.path + ": " + std::string(include) + " " + fault + ".");
      const std::string_view path = pathOf(include);
      if (paths.contains(path)) included.insert(path);
    }
  }
  const Paths inCircle = circle(includes);
  if (!inCircle.empty()) {
    std::string sentence = "These files include each other in a circle:";
    for (std::string_view path : inCircle) sentence.append(" ").append(path);
    found.push_back(sentence + ".");
  }
  return found;
}

}  // namespace kelvane::house
