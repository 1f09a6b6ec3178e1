#include "tests/quorvel/model/Stories.h"

#include <algorithm>
#include <chrono>
#include <random>
#include <string_view>
#include <utility>

#include "tests/quorvel/core/GeneratedEdits.h"
#include "tests/quorvel/model/ModelChapters.h"
#include "tests/support/Random.h"

namespace quorvel::tests {
namespace {

using kelvane::JSON;
using kelvane::tests::below;
using kelvane::tests::oneOf;
using namespace std::string_literals;

struct Act {
  const char* name;
  std::size_t weight;
  std::vector<const char*> arguments;
};

const std::vector<Act> acts = {
    {"list_scripts", 2, {}},
    {"list_folders", 2, {}},
    {"list_versions", 5, {"id"}},
    {"read_script", 4, {"id"}},
    {"list_chapters", 3, {"id"}},
    {"read_chapter", 4, {"id", "chapter"}},
    {"create_script", 10, {"name", "folder", "text"}},
    {"create_folder", 6, {"name", "folder"}},
    {"rename", 16, {"any", "name"}},
    {"save_version", 6, {"id", "note"}},
    {"update_script", 8, {"id", "text", "note"}},
    {"append_to_script", 8, {"id", "text", "note"}},
    {"add_chapter", 10, {"id", "title", "text", "before", "first_title"}},
    {"rename_chapter", 6, {"id", "chapter", "title"}},
    {"update_chapter", 7, {"id", "chapter", "text"}},
    {"move_chapter", 8, {"id", "chapter", "to"}},
    {"remove_chapter", 7, {"id", "chapter", "keep_text"}},
    {"save", 6, {"file", "bytes"}},
    {"delete", 5, {"any"}},
    {"move", 2, {"any", "place"}},
};

const std::vector<std::string> names = {"Talk",
                                        "Take 2",
                                        "Take 10",
                                        "take 2",
                                        "\u00E9",
                                        "e\u0301",
                                        "Über uns",
                                        "日本",
                                        "👩\u200D👩\u200D👧 family",
                                        "a/b",
                                        "..x",
                                        " spaced ",
                                        "Talk.md",
                                        "x.md.md",
                                        "%",
                                        "F",
                                        "F0",
                                        "F/0",
                                        "tab\there",
                                        ".kelvane",
                                        "lock",
                                        "A\xFF"s,
                                        "nul\0in"s,
                                        "notes.txt",
                                        "",
                                        ".",
                                        " \u3000",
                                        std::string(300, 'x'),
                                        "Talk 2",
                                        "\"quoted\"",
                                        "back\\slash"};

/// So that names are often those of something else that is or was there.
const std::vector<std::string> commonNames = {"Talk", "F", "Take 2"};

const std::vector<std::string> oddIdentifiers = {"",
                                                 ".",
                                                 "/",
                                                 "/etc/passwd",
                                                 "..",
                                                 "../x.md",
                                                 "a/../b.md",
                                                 "Nope.md",
                                                 "Nope",
                                                 ".kelvane",
                                                 ".kelvane/lock",
                                                 ".kelvane/x.md",
                                                 ".hidden.md",
                                                 "bad\xFF.md",
                                                 "nul\0.md"s,
                                                 "notes.txt",
                                                 std::string(300, 'y') + ".md",
                                                 "Talk.md/x.md"};

const std::vector<std::string> filesFromOutside = {"Outside.md", ".hidden.md",  "bad\xFF.md",      "notes.txt",
                                                   "Loud.MD",    "F/Inside.md", "New/Deep/End.md", ".md"};

const std::vector<std::string> oddPositions = {
    "0", "-1", "+2", "02", " 1", "1.0", "x", "\u0661", "99999999999999999999", "9223372036854775808", "+-1", "+"};

const std::vector<std::string> answers = {"yes", "no", "Yes", "NO", "yes", "no", "maybe", "yes "};

class Story {
 public:
  explicit Story(std::uint64_t seed) : random_(seed) {}

  Step next(const ModelTools& model) {
    std::size_t weights = 0;
    for (const Act& act : acts) weights += act.weight;
    std::size_t left = below(weights, random_);
    const Act* act = acts.data();
    for (; left >= act->weight; ++act) left -= act->weight;
    Step step{act->name, {}};
    for (const std::string_view argument : act->arguments) {
      const bool isWhole = step.isFromOutside() || below(40, random_) != 0;
      const auto key = argument == "any" || argument == "file" ? "id" : argument == "bytes" ? "text" : argument;
      if (isWhole) {
        step.arguments.set(key, argumentFor(argument, model, step));
      } else if (below(2, random_) == 0) {
        step.arguments.set(key, below(2, random_) == 0 ? JSON(1) : JSON(""));
      }
    }
    return step;
  }

 private:
  bool oneIn(std::size_t count) { return below(count, random_) == 0; }

  std::string existing(const ModelTools& model, bool scripts, bool folders) {
    std::vector<std::string> found;
    for (const auto& [identifier, text] : model.files) {
      if (text ? scripts : folders) found.push_back(identifier);
    }
    return found.empty() ? oneOf(oddIdentifiers, random_) : oneOf(found, random_);
  }

  std::string scriptWithChapters(const ModelTools& model) {
    std::vector<std::string> found;
    for (const auto& [identifier, text] : model.files) {
      if (text && identifier.ends_with(".md") && chapterCount(*text) > 0) found.push_back(identifier);
    }
    return found.empty() ? existing(model, true, false) : oneOf(found, random_);
  }

  /// Another way to write the same.
  std::string spelt(std::string identifier) {
    switch (below(20, random_)) {
      case 0:
        return "./" + identifier;
      case 1:
        return identifier + "/";
      case 2:
        return identifier.find('/') == std::string::npos ? "./" + identifier
                                                         : identifier.replace(identifier.find('/'), 1, "//./");
      default:
        return identifier;
    }
  }

  std::string identifierOfADeletedScript(const ModelTools& model) {
    std::vector<std::string> gone;
    for (const auto& [identifier, histories] : model.history().byIdentifier()) {
      if (!model.files.contains(identifier)) gone.push_back(identifier);
    }
    return gone.empty() ? oneOf(filesFromOutside, random_) : oneOf(gone, random_);
  }

  std::string text() {
    const GeneratedEdit edit = oneIn(2) ? editOfACanonicalScript(random_()) : anyEdit(random_());
    return oneIn(3) ? edit.givenText() : edit.text();
  }

  std::string position(const Step& step, const ModelTools& model) {
    if (oneIn(8)) return oneOf(oddPositions, random_);
    const JSON* id = step.arguments.find("id");
    const auto script = model.files.find(id == nullptr || !id->string() ? "" : std::string(*id->string()));
    const std::size_t count = script == model.files.end() || !script->second ? 2 : chapterCount(*script->second);
    return std::to_string(1 + below(count + (oneIn(10) ? 2 : 0) + (count == 0 ? 1 : 0), random_));
  }

  std::string argumentFor(std::string_view argument, const ModelTools& model, const Step& step) {
    if (argument == "id") {
      if (oneIn(20)) return oneOf(oddIdentifiers, random_);
      const bool isOfChapters = step.act.find("chapter") != std::string::npos;
      return spelt(isOfChapters && !oneIn(4) ? scriptWithChapters(model) : existing(model, true, oneIn(20)));
    }
    if (argument == "any") {
      if (step.isFromOutside()) return existing(model, !oneIn(6), oneIn(3));
      if (oneIn(12)) return oneOf(oddIdentifiers, random_);
      return spelt(existing(model, !oneIn(3), oneIn(2)));
    }
    if (argument == "folder") {
      if (oneIn(12)) return oneOf(oddIdentifiers, random_);
      const std::string folder = existing(model, oneIn(20), true);
      const bool isDeep = std::count(folder.begin(), folder.end(), '/') > 2;
      return oneIn(3) || isDeep ? "" : spelt(folder);
    }
    if (argument == "file") {
      if (oneIn(3)) return oneOf(filesFromOutside, random_);
      return oneIn(2) ? identifierOfADeletedScript(model) : existing(model, true, false);
    }
    if (argument == "name" || argument == "place") return oneOf(oneIn(2) ? commonNames : names, random_);
    if (argument == "chapter" || argument == "to") return position(step, model);
    if (argument == "before") return oneIn(2) ? "" : position(step, model);
    if (argument == "keep_text") return oneOf(answers, random_);
    if (argument == "text" || argument == "bytes") return oneIn(10) ? "" : text();
    return anyEdit(random_()).title;  // a title or a note
  }

  std::mt19937_64 random_;
};

std::string argument(const Step& step, std::string_view key) {
  const JSON* value = step.arguments.find(key);
  return value == nullptr ? "" : std::string(value->string().value_or(""));
}

/// Whether it names something below the root, plainly, and nothing of the library's own.
bool isPlain(const std::string& identifier) {
  std::vector<std::string> pieces(1);
  for (const char byte : identifier) byte == '/' ? pieces.emplace_back() : pieces.back() += byte;
  return pieces.front() != ".kelvane" && std::all_of(pieces.begin(), pieces.end(), [](const std::string& piece) {
           return !piece.empty() && piece != "." && piece != ".." && piece.size() <= 255 &&
                  piece.find('\0') == std::string::npos;
         });
}

/// Whether a file can be put there: the folders above it are folders or can be made.
bool hasRoom(const std::string& identifier, const ModelTools& model) {
  for (std::string above = folderOf(identifier); !above.empty(); above = folderOf(above)) {
    const auto found = model.files.find(above);
    if (found != model.files.end() && found->second) return false;
  }
  return true;
}

bool goesWith(const std::string& file, const std::string& identifier) {
  return file == identifier || file.starts_with(identifier + "/");
}

}  // namespace

bool Step::isFromOutside() const {
  return act == "save" || act == "delete" || act == "move";
}

std::string Step::described() const {
  return act + " " + JSON(arguments).encoded() + "\n";
}

bool applyFromOutside(const Step& step, ModelTools& model) {
  const std::string identifier = argument(step, "id");
  const auto found = model.files.find(identifier);
  if (step.act == "save") {
    if (!isPlain(identifier) || !hasRoom(identifier, model)) return false;
    if (found != model.files.end() && !found->second) return false;
    model.files[identifier] = argument(step, "text");
    for (std::string above = folderOf(identifier); !above.empty(); above = folderOf(above)) model.files[above];
    return true;
  }
  if (found == model.files.end()) return false;
  if (step.act == "delete") {
    std::erase_if(model.files, [&](const auto& file) { return goesWith(file.first, identifier); });
    return true;
  }
  const std::string name = argument(step, "to");
  const std::string folder = folderOf(identifier);
  const std::string target = folder.empty() ? name : folder + "/" + name;
  if (!isPlain(name) || name.find('/') != std::string::npos || model.files.contains(target)) return false;
  std::map<std::string, std::optional<std::string>> moved;
  for (const auto& [file, text] : model.files) {
    moved[goesWith(file, identifier) ? target + file.substr(identifier.size()) : file] = text;
  }
  model.files = std::move(moved);
  return true;
}

std::vector<Step> anyStory(std::uint64_t seed, std::size_t length) {
  Story story(seed);
  ModelTools model([] { return std::chrono::system_clock::time_point(); });
  std::vector<Step> steps;
  while (steps.size() < length) {
    const Step& step = steps.emplace_back(story.next(model));
    step.isFromOutside() ? static_cast<void>(applyFromOutside(step, model))
                         : static_cast<void>(model.call(step.act, step.arguments));
  }
  return steps;
}

std::vector<Step> shrunk(std::vector<Step> story, const std::function<bool(const std::vector<Step>&)>& fails) {
  for (std::size_t stretch = story.size() / 2; stretch > 0; stretch /= 2) {
    for (std::size_t begin = 0; begin + stretch <= story.size();) {
      std::vector<Step> fewer = story;
      const auto first = fewer.begin() + static_cast<std::ptrdiff_t>(begin);
      fewer.erase(first, first + static_cast<std::ptrdiff_t>(stretch));
      fails(fewer) ? story.swap(fewer) : static_cast<void>(begin += stretch);
    }
  }
  return story;
}

}  // namespace quorvel::tests
