#include "program/Process.h"
#include "program/ToolPages.h"
#include "program/commands/Commands.h"

namespace kelvane::commands {
namespace {

constexpr Option options[] = {jsonOption};

std::string encodedTools() {
  JSON::Array tools;
  for (const DescribedTool& each : everyTool()) {
    tools.append(JSON::Object{{"name", each.tool.name()},
                              {"description", each.tool.description()},
                              {"changesScripts", each.changesScripts},
                              {"inputSchema", each.tool.schema()}});
  }
  return JSON(tools).encoded() + '\n';
}

int run(const Arguments& arguments) {
  print(arguments.has(jsonOption) ? encodedTools() : helpOnTools());
  return done;
}

}  // namespace

constinit const Command toolsCommand = {
    .name = "tools",
    .summary = "List the tools and their arguments.",
    .about =
        "Lists the tools that an AI client gets, with what each does and the arguments that it takes. Arguments in "
        "brackets may be left out.",
    .options = options,
    .run = run,
};

}  // namespace kelvane::commands
