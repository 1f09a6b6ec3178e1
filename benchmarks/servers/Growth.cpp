#include <algorithm>
#include <cmath>
#include <cstdio>
#include <functional>
#include <optional>
#include <stdexcept>

#include "benchmarks/Files.h"
#include "benchmarks/servers/Libraries.h"
#include "benchmarks/servers/Measuring.h"

// How the time of each tool grows with each thing that may be large: the message, the script, its chapters, the
// library, the folder, the script's versions and the histories of others. Files are in memory, so that no disk hides a
// growth, and what is measured is processor time, so that other processes do not blur it.

namespace kelvane::benchmarks {
namespace {

namespace fs = std::filesystem;

/// What a direction's library holds beside `script`, a script of 40 chapters.
struct Direction {
  std::string name;
  std::vector<std::size_t> sizes;
  bool isShared = true;  // by the tools, one after the other; else each gets one of its own
};

// Beyond 1 MB memory goes back to the system after each call. The last decade is all on one side of that step.
const std::vector<std::size_t> bytes = {3000, 30'000, 300'000, 3'000'000, 30'000'000};
const std::vector<std::size_t> things = {100, 1000, 10'000, 100'000};
const std::vector<Direction> directions = {
    {"message", bytes, false},
    {"script", bytes, false},
    {"chapters", {300, 3000, 30'000, 300'000}, false},
    {"library", things},
    {"folder", things},
    {"versions", things},
    {"histories of others", things},
};

constexpr std::string_view script = "Talk.md";

/// A tool, and how it is called again and again. Each call has something to do.
struct ToolUnderTest {
  std::string name;
  std::string longArgument;  // the one that is long where the message is
  std::function<JSON::Object(std::size_t round)> arguments;
  std::string called() const { return name.substr(0, name.find(' ')); }
};

JSON::Object withID(JSON::Object more) {
  more.set("id", script);
  return more;
}

std::string numbered(const char* text, std::size_t round) {
  return text + std::to_string(round);
}

std::vector<ToolUnderTest> tools() {
  const auto onlyID = [](std::size_t) { return withID({}); };
  return {
      {"list_scripts", "id", [](std::size_t) { return JSON::Object(); }},
      {"list_folders", "id", [](std::size_t) { return JSON::Object(); }},
      {"list_versions", "id", onlyID},
      {"read_script", "id", onlyID},
      {"list_chapters", "id", onlyID},
      {"read_chapter", "id",
       [](std::size_t) {
         return withID({{"chapter", "20"}});
       }},
      {"create_script", "text",
       [](std::size_t round) {
         return JSON::Object{{"name", numbered("New ", round)}};
       }},
      {"create_folder", "name",
       [](std::size_t round) {
         return JSON::Object{{"name", numbered("New ", round)}};
       }},
      {"save_version", "note",
       [](std::size_t round) {
         return withID({{"note", numbered("Note ", round)}});
       }},
      {"append_to_script", "text",
       [](std::size_t) {
         return withID({{"note", "more"}, {"text", "One more line."}});
       }},
      {"add_chapter", "text",
       [](std::size_t) {
         return withID({{"title", "Added"}, {"before", "20"}});
       }},
      {"rename_chapter", "title",
       [](std::size_t round) {
         return withID({{"chapter", "20"}, {"title", numbered("Title ", round)}});
       }},
      {"update_chapter", "text",
       [](std::size_t round) {
         return withID({{"chapter", "20"}, {"text", numbered("Text ", round)}});
       }},
      {"move_chapter", "to",
       [](std::size_t) {
         return withID({{"chapter", "2"}, {"to", "30"}});
       }},
      {"remove_chapter", "chapter",
       [](std::size_t) {
         return withID({{"chapter", "20"}, {"keep_text", "yes"}});
       }},
      // There and back.
      {"rename", "name",
       [](std::size_t round) {
         return round % 2 == 0 ? withID({{"name", "Talk 2"}}) : JSON::Object{{"id", "Talk 2.md"}, {"name", "Talk"}};
       }},
      {"rename of a folder", "name",
       [](std::size_t round) {
         return JSON::Object{{"id", round % 2 == 0 ? "All" : "Everything"},
                             {"name", round % 2 == 0 ? "Everything" : "All"}};
       }},
      {"update_script", "text",
       [](std::size_t round) {
         return withID({{"note", "again"}, {"text", numbered("Text ", round)}});
       }},
  };
}

/// The library of a direction at a size.
class World {
 public:
  World(const Run& run, const std::string& direction, std::size_t size)
      : folder_(memoryFolder()),
        text_(chapters(direction == "chapters" ? size : 40, direction == "script" ? size : 0)),
        message_(direction == "message" ? prose(size) : std::string()) {
    const fs::path& root = folder_.path();
    fs::create_directory(root / "All");
    put(root / script, text_);
    if (direction == "library") addLibrary(root, size);
    if (direction == "folder") addScripts(root, size);
    server_.emplace(run.serve(root), run.placements.front());
    server_->askForSize(toolCall("save_version", withID({{"note", "the first"}})));
    if (direction == "versions") addVersions(root, size);
    if (direction == "histories of others") addHistories(root, size);
  }

  /// The seconds of processor time of one call.
  double secondsOf(const ToolUnderTest& tool, std::size_t round) {
    // Else only the first update would replace a text of the size that is asked for.
    if (tool.name == "update_script") put(folder_.path() / script, text_ + std::to_string(round));
    JSON::Object arguments = tool.arguments(round);
    if (!message_.empty()) arguments.set(tool.longArgument, message_ + std::to_string(round));
    const std::string line = toolCall(tool.called(), arguments);
    const double before = server_->processorTime();
    server_->askForSize(line);
    return server_->processorTime() - before;
  }

  /// The median of at least four calls, and of up to 16 in half a second. Where the message is long a call may be
  /// refused; anything else must be done.
  double medianOf(const ToolUnderTest& tool) {
    std::vector<double> times;
    double total = 0;
    std::size_t round = 0;
    while (round % 2 != 0 || round < 4 || (round < 16 && total < 0.5)) {
      times.push_back(secondsOf(tool, round++));
      total += times.back();
    }
    if (message_.empty()) checkThatItIsDone(tool, round);
    return median(times);
  }

 private:
  /// Calls twice, so that what goes there and back is back.
  void checkThatItIsDone(const ToolUnderTest& tool, std::size_t round) {
    for (const std::size_t each : {round, round + 1}) {
      std::string line = toolCall(tool.called(), tool.arguments(each));
      line.pop_back();
      const std::string_view reply = server_->ask(line);
      if (!reply.ends_with("\"isError\":false}}"))
        throw std::runtime_error(tool.name + " was refused: " + std::string(reply.substr(0, 300)));
    }
  }

  Folder folder_;
  std::string text_;
  std::string message_;
  std::optional<Process> server_;
};

void grow(const Run& run, const Direction& direction) {
  const auto nameOf = [&](const ToolUnderTest& tool) {
    return "growth of " + tool.name + " with the " + direction.name;
  };
  std::vector<ToolUnderTest> wanted;
  for (const ToolUnderTest& tool : tools()) {
    if (run.figures.wants(nameOf(tool))) wanted.push_back(tool);
  }
  if (wanted.empty()) return;
  std::vector<std::vector<double>> seconds(wanted.size());
  for (const std::size_t size : direction.sizes) {
    std::optional<World> world;
    for (std::size_t tool = 0; tool < wanted.size(); ++tool) {
      if (!world || !direction.isShared) world.emplace(run, direction.name, size);
      seconds[tool].push_back(world->medianOf(wanted[tool]));
    }
  }
  for (std::size_t tool = 0; tool < wanted.size(); ++tool) {
    const std::vector<double>& times = seconds[tool];
    const double exponent = std::log10(times.back() / times[times.size() - 2]);
    std::printf("%-62s", nameOf(wanted[tool]).c_str());
    JSON::Array sizes, values;
    for (std::size_t at = 0; at < times.size(); ++at) {
      sizes.append(direction.sizes[at]);
      values.append(times[at]);
      std::printf(" %10.1f", times[at] * 1e6);
    }
    std::printf(" us  exponent %5.2f\n", exponent);
    std::fflush(stdout);
    run.figures.add({{"part", "growth"},
                     {"tool", wanted[tool].name},
                     {"direction", direction.name},
                     {"sizes", sizes},
                     {"seconds", values},
                     {"exponent", exponent}});
  }
}

/// Two libraries in turn, a large one and a small one: a call must cost the same.
void compare(const Run& run, const std::string& what, const std::string& direction, const ToolUnderTest& tool,
             std::size_t large, std::size_t small, double most) {
  if (!run.figures.wants(what)) return;
  World inLarge(run, direction, large), inSmall(run, direction, small);
  std::size_t rounds[] = {0, 0};
  const auto call = [&](World& world, std::size_t& round) { return world.secondsOf(tool, round++); };
  run.figures.add(what, 1,
                  inPairs(
                      101, [&] { return call(inLarge, rounds[0]); }, [&] { return call(inSmall, rounds[1]); }),
                  most);
}

}  // namespace

void measureGrowth(const Run& run) {
  const auto tool = [](std::string_view name) {
    const std::vector<ToolUnderTest> all = tools();
    return *std::find_if(all.begin(), all.end(), [name](const ToolUnderTest& each) { return each.name == name; });
  };
  compare(run, "update_script with 100,000 versions, over 1,000", "versions", tool("update_script"), 100'000, 1000,
          1.1);
  compare(run, "update_script in a folder of 100,000, over 1,000", "folder", tool("update_script"), 100'000, 1000, 1.2);
  compare(run, "create_script in a folder of 100,000, over 1,000", "folder", tool("create_script"), 100'000, 1000, 1.2);
  for (const Direction& direction : directions) grow(run, direction);
}

}  // namespace kelvane::benchmarks
