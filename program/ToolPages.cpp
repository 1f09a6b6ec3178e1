#include "program/ToolPages.h"

#include <algorithm>
#include <memory>

#include "program/Nearest.h"
#include "program/PageText.h"
#include "program/Process.h"
#include "quorvel/files/SystemReason.h"
#include "quorvel/history/History.h"
#include "quorvel/library/FolderLibrary.h"
#include "scripttools/ScriptTools.h"

namespace kelvane {
namespace {

// "id chapter [text]"
std::string argumentNames(const Tool& tool) {
  std::string names;
  for (const ToolArgument& argument : argumentsOf(tool)) {
    if (!names.empty()) names.push_back(' ');
    names.append(argument.isNeeded ? "" : "[").append(argument.name).append(argument.isNeeded ? "" : "]");
  }
  return names;
}

void appendTools(bool changingScripts, std::string& text) {
  for (const DescribedTool& each : everyTool()) {
    if (each.changesScripts != changingScripts) continue;
    const std::string names = argumentNames(each.tool);
    text.append("\n  ").append(each.tool.name()).append(names.empty() ? "" : " ").append(names).append("\n      ");
    appendFilled(each.tool.description(), 6, text);
  }
}

std::vector<std::string> namesOfTools(bool changingScripts) {
  std::vector<std::string> names;
  for (const DescribedTool& each : everyTool()) {
    if (each.changesScripts == changingScripts) names.push_back(each.tool.name());
  }
  return names;
}

}  // namespace

std::vector<DescribedTool> everyTool() {
  // A library opens nothing before it is used, so any folder will do.
  const auto history = std::make_shared<quorvel::History>("/");
  const ScriptTools scripts(std::make_shared<quorvel::FolderLibrary>("/", history), history);
  const std::size_t reading = scripts.tools(false).size();
  std::vector<DescribedTool> described;
  for (Tool& tool : scripts.tools(true)) described.push_back({std::move(tool), described.size() >= reading});
  return described;
}

std::vector<ToolArgument> argumentsOf(const Tool& tool) {
  const JSON::Object properties = *tool.schema()["properties"]->object();
  std::vector<ToolArgument> arguments;
  const auto add = [&](std::string_view name, bool isNeeded) {
    const JSON* property = properties.find(name);
    arguments.push_back({std::string(name), std::string(*(*property)["description"]->string()), isNeeded});
  };
  const auto isListed = [&](std::string_view name) {
    return std::any_of(arguments.begin(), arguments.end(), [&](const ToolArgument& each) { return each.name == name; });
  };
  for (const JSON& name : *tool.schema()["required"]->items()) add(*name.string(), true);
  for (const JSON::Member& property : properties) {
    if (!isListed(property.key())) add(property.key(), false);
  }
  return arguments;
}

std::string listed(const std::vector<std::string>& names) {
  std::string list;
  for (const std::string& name : names) list.append(list.empty() ? "" : ", ").append(name);
  return list;
}

void refuseUnknownTool(std::string_view name) {
  const std::vector<std::string> reading = namesOfTools(false);
  const std::vector<std::string> writing = namesOfTools(true);
  std::vector<std::string> all = reading;
  all.insert(all.end(), writing.begin(), writing.end());
  throw UsageError("There is no tool " + quorvel::inQuotes(name) + "." + suggestion(name, all) + " The tools are " +
                   listed(reading) + " and, with --allow-writes, " + listed(writing) + ".");
}

std::string helpOnTools() {
  std::string text = "Tools that only read:\n";
  appendTools(false, text);
  text.append("\nTools that change scripts, with --allow-writes:\n");
  appendTools(true, text);
  text.append("\n");
  appendParagraphs("For help on one of them, run: kelvane call TOOL --help", text);
  return text;
}

std::string helpOnTool(const std::string& name) {
  for (const DescribedTool& each : everyTool()) {
    if (each.tool.name() != name) continue;
    std::string text;
    appendParagraphs(each.tool.description(), text);
    std::string usage = "Usage: kelvane call " + name;
    std::vector<PageRow> rows;
    const std::vector<ToolArgument> arguments = argumentsOf(each.tool);
    for (const ToolArgument& argument : arguments) {
      const std::string typed = argument.name + "=VALUE";
      usage.append(" ").append(argument.isNeeded ? typed : "[" + typed + "]");
      rows.emplace_back(argument.name, argument.description);
    }
    usage.append(each.changesScripts ? " --allow-writes" : "").append(" [--library DIR]");
    text.append("\n");
    appendFilled(usage, 4, text);
    if (!rows.empty()) text.append("\n");
    appendRows(rows, text);
    return text;
  }
  refuseUnknownTool(name);
}

}  // namespace kelvane
