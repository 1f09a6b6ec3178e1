#include "tests/scripttools/Workbench.h"

#include <algorithm>
#include <chrono>
#include <fstream>
#include <stdexcept>

#include "protocol/RPCError.h"
#include "scripttools/ScriptTools.h"

namespace kelvane::tests {

using quorvel::ScriptItem;

const std::string_view talk =
    "Words before the first.\n\n# One\n\nalpha beta\n\n# Two\n\n gamma\n\ndelta \n\n# Three\n";

namespace {

InMemoryVersionStore::Clock minuteByMinute() {
  return [next = std::chrono::system_clock::time_point(std::chrono::seconds(1740837909))]() mutable {
    const auto now = next;
    next += std::chrono::minutes(1);
    return now;
  };
}

ScriptItem script(const std::string& identifier) {
  return {identifier, "", ScriptItem::Kind::script, std::nullopt};
}

}  // namespace

Answer answered(std::string_view text) {
  return {std::string(text), false};
}
Answer failed(std::string_view message) {
  return {std::string(message), true};
}

Workbench::Workbench()
    : history(std::make_shared<InMemoryVersionStore>(minuteByMinute())),
      versions(std::make_shared<WatchedStore>(history, root, watch)),
      tools(ScriptTools(library, versions).tools(true)) {
  std::filesystem::create_directory(root);
  scripts->createFolder("Scenes", std::nullopt);
  scripts->createFolder("Deep", "Scenes");
  scripts->createFolder("Deeper", "Scenes/Deep");
  scripts->createFolder("Songs", std::nullopt);
  put("Scenes/Deep/Deeper/End.md", "# The end");
  put("Scenes/Deep/Middle.md", "Only words.");
  put("Scenes/Intro.md", "# Intro\n\nHello there.\n");
  put("Empty.md", "");
  put("Notes.md", "one two three four five six seven eight nine ten");
  put("Talk.md", talk);
  for (const char* name : {"Scenes/readme.txt", "Scenes/Loud.MD", ".md", "Trailing.md.", "README"}) touch(root / name);
}

Answer Workbench::call(std::string_view tool, std::string_view arguments) const {
  return call(tool, object(arguments));
}

Answer Workbench::call(std::string_view tool, const JSON::Object& arguments) const {
  const auto found = std::find_if(tools.begin(), tools.end(), [&](const Tool& each) { return each.name() == tool; });
  if (found == tools.end()) throw std::logic_error("No tool " + std::string(tool));
  try {
    return answered(found->run(arguments));
  } catch (const RPCError& error) {
    EXPECT_EQ(error.code(), -32602);
    return failed(error.message());
  } catch (const std::exception& error) {
    return failed(error.what());
  }
}

void Workbench::put(const std::string& identifier, std::string_view text) const {
  const std::filesystem::path file(identifier);
  if (!std::filesystem::exists(root / file)) {
    const auto made = scripts->create(file.stem().native(), file.parent_path().native());
    if (made.identifier != identifier) throw std::logic_error("The library does not take the name " + identifier);
  }
  scripts->write(text, script(identifier));
}

std::string Workbench::textOf(const std::string& identifier) const {
  return scripts->read(script(identifier));
}

std::vector<std::string> Workbench::keptOf(const std::string& identifier) const {
  std::vector<std::string> texts;
  for (const auto& kept : history->all(root / identifier)) texts.insert(texts.begin(), kept.text);
  return texts;
}

std::vector<std::string> Workbench::labelsOf(const std::string& identifier) const {
  std::vector<std::string> labels;
  for (const auto& version : history->versions(root / identifier)) labels.push_back(version.name);
  return labels;
}

void Workbench::touch(const std::filesystem::path& file) const {
  if (!std::ofstream(file)) throw std::logic_error("No file could be made: " + file.native());
}

JSON::Object object(std::string_view text) {
  const auto value = JSON::decoded(text);
  const JSON::Object* members = value ? value->object() : nullptr;
  if (!members) throw std::logic_error("Not a JSON object: " + std::string(text));
  return *members;
}

}  // namespace kelvane::tests
