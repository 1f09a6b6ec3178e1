#include "tests/quorvel/model/ModelTools.h"

#include <time.h>

#include <algorithm>
#include <utility>
#include <vector>

#include "platform/QuorvelCore.h"
#include "platform/Unicode.h"
#include "quorvel/library/ItemName.h"
#include "quorvel/library/NaturalOrder.h"
#include "tests/quorvel/model/ModelChapters.h"

namespace quorvel::tests {
namespace {

namespace unicode = kelvane::unicode;
using kelvane::JSON;
using Kind = ScriptItem::Kind;

struct Refusal {
  std::string message;
};

std::string quoted(const std::string& text) {
  return "\"" + text + "\"";
}

std::string inJSON(const std::string& text) {
  return JSON(text).encoded();
}

std::string inFolder(const std::string& folder, const std::string& name) {
  return folder.empty() ? name : folder + "/" + name;
}

std::string nameOf(const std::string& identifier) {
  return identifier.substr(identifier.rfind('/') + 1);
}

bool isScriptFile(const std::string& name) {
  return name.ends_with(".md") && name != ".md";
}

std::string savedIn(const ModelVersion& version) {
  const std::time_t seconds = std::chrono::system_clock::to_time_t(version.saved);
  std::tm parts{};
  char text[32];
  ::gmtime_r(&seconds, &parts);
  return std::string(text, std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &parts));
}

std::string word(Kind kind) {
  return kind == Kind::folder ? "folder" : "script";
}

const std::string belongsToTheLibrary =
    ", because it belongs to the folder that the library keeps its history in. Leave that folder to the library.";

const std::string whatAChapterIs =
    "A chapter is a line starting with \"# \" and everything up to the next one. Scripts without such lines have no "
    "chapters.";

struct Item {
  std::string identifier;
  Kind kind;
};

}  // namespace

std::string folderOf(const std::string& identifier) {
  const auto slash = identifier.rfind('/');
  return slash == std::string::npos ? "" : identifier.substr(0, slash);
}

/// One call of a tool.
class ModelCall {
 public:
  ModelCall(ModelTools& model, const JSON::Object& arguments) : model_(model), arguments_(arguments) {}

  std::string run(std::string_view tool) {
    if (tool == "list_scripts") return listing("");
    if (tool == "list_folders") return "[" + folders("") + "]";
    if (tool == "list_versions") return listVersions();
    if (tool == "read_script") return textOf(requiredScript());
    if (tool == "list_chapters") return chapterListing(textOf(requiredScript()));
    if (tool == "read_chapter") return readChapter();

    if (tool == "create_script") return createScript();
    if (tool == "create_folder") return summary(make(suppliedFolder(), Kind::folder), Kind::folder);
    if (tool == "rename") return rename();
    if (tool == "save_version") return saveVersion();
    if (tool == "update_script") return replaceText(false);
    if (tool == "append_to_script") return replaceText(true);
    return editChapters(tool);
  }

 private:
  // --- Arguments ---

  std::optional<std::string> supplied(std::string_view key) const {
    const JSON* value = arguments_.find(key);
    const auto text = value == nullptr ? std::nullopt : value->string();
    if (!text || text->empty()) return std::nullopt;
    return std::string(*text);
  }

  std::string required(const std::string& key) const {
    if (const auto text = supplied(key)) return *text;
    throw Refusal{"Missing " + quoted(key)};
  }

  // --- Identifiers ---

  Item itemAt(const std::string& identifier) const {
    std::vector<std::string> pieces(1);
    for (const char byte : identifier) byte == '/' ? pieces.emplace_back() : pieces.back() += byte;
    const bool climbs = std::find(pieces.begin(), pieces.end(), "..") != pieces.end();
    if (climbs || identifier.starts_with('/')) throw Refusal{quoted(identifier) + " is not inside the library"};
    std::string found;
    for (const std::string& piece : pieces) {
      if (!piece.empty() && piece != ".") found = inFolder(found, piece);
    }
    if (found.empty() || (found == ".kelvane" && model_.hasOwnFolder_)) return {found, Kind::folder};
    const auto entry = model_.files.find(found);
    const bool isLock = found == ".kelvane/lock" && model_.hasOwnFolder_;
    if (entry == model_.files.end() && !isLock) throw Refusal{"Nothing at " + quoted(identifier)};
    if (!isLock && !entry->second) return {found, Kind::folder};
    if (!isScriptFile(nameOf(found))) throw Refusal{quoted(identifier) + " is not a script"};
    return {found, Kind::script};
  }

  std::string requiredScript() const {
    const std::string identifier = required("id");
    const Item item = itemAt(identifier);
    if (item.kind == Kind::folder) throw Refusal{quoted(identifier) + " is a folder, not a script"};
    return item.identifier;
  }

  std::string suppliedFolder() const {
    const auto identifier = supplied("folder");
    if (!identifier) return "";
    const Item item = itemAt(*identifier);
    if (item.kind == Kind::script) throw Refusal{quoted(*identifier) + " is a script, not a folder"};
    return item.identifier;
  }

  // --- Replies ---

  static std::string nameFor(const std::string& identifier, Kind kind) {
    const std::string name = nameOf(identifier);
    return kind == Kind::script ? name.substr(0, name.size() - 3) : name;
  }

  static std::string summary(const std::string& identifier, Kind kind) {
    return "{\"id\":" + inJSON(identifier) + ",\"kind\":" + quoted(word(kind)) +
           ",\"name\":" + inJSON(nameFor(identifier, kind)) + "}";
  }

  static std::string summary(const std::string& script, const std::string& text) {
    std::string reply = summary(script, Kind::script);
    reply.insert(reply.size() - 1, ",\"words\":" + std::to_string(unicode::wordCount(text)));
    return reply;
  }

  std::vector<Item> itemsIn(const std::string& folder) const {
    std::vector<Item> items;
    for (const auto& [identifier, text] : model_.files) {
      const std::string name = nameOf(identifier);
      if (folderOf(identifier) != folder || name.starts_with('.') || !unicode::isValidUTF8(name)) continue;
      if (!text) items.push_back({identifier, Kind::folder});
      if (text && isScriptFile(name)) items.push_back({identifier, Kind::script});
    }
    std::sort(items.begin(), items.end(), [](const Item& one, const Item& other) {
      if (one.kind != other.kind) return one.kind == Kind::folder;
      return naturalOrder(nameFor(one.identifier, one.kind), nameFor(other.identifier, other.kind)) < 0;
    });
    return items;
  }

  std::string listing(const std::string& folder) const {
    std::string entries;
    for (const auto& [identifier, kind] : itemsIn(folder)) {
      const std::string entry = summary(identifier, kind);
      if (!entries.empty()) entries += ",";
      entries += kind == Kind::script ? entry : "{\"children\":" + listing(identifier) + "," + entry.substr(1);
    }
    return "[" + entries + "]";
  }

  std::string folders(const std::string& folder) const {
    std::string entries;
    for (const auto& [identifier, kind] : itemsIn(folder)) {
      if (kind == Kind::script) continue;
      if (!entries.empty()) entries += ",";
      entries += "{\"id\":" + inJSON(identifier) + ",\"name\":" + inJSON(nameOf(identifier)) + "}";
      if (const std::string below = folders(identifier); !below.empty()) entries += "," + below;
    }
    return entries;
  }

  std::string listVersions() const {
    const auto histories = model_.history_.byIdentifier().find(requiredScript());
    if (histories == model_.history_.byIdentifier().end()) return "[]";
    std::string entries;
    for (const ModelVersion& version : histories->second.present) {
      entries = "{\"name\":" + inJSON(version.label) + ",\"saved\":" + quoted(savedIn(version)) +
                ",\"words\":" + std::to_string(version.words) + "}" + (entries.empty() ? "" : "," + entries);
    }
    return "[" + entries + "]";
  }

  // --- Chapters ---

  static std::size_t position(const std::string& sent, const std::string& text) {
    const std::size_t count = chapterCount(text);
    if (count == 0) throw Refusal{"This script has no chapters. " + whatAChapterIs};
    const bool isSigned = sent.starts_with('+') || sent.starts_with('-');
    std::string digits = sent.substr(isSigned ? 1 : 0);
    const bool isNumber = !digits.empty() && digits.find_first_not_of("0123456789") == std::string::npos;
    digits.erase(0, digits.find_first_not_of('0'));
    const bool isSmall = isNumber && !digits.empty() && digits.size() < 10 && !sent.starts_with('-');
    if (isSmall && std::stoul(digits) <= count) return std::stoul(digits) - 1;
    const std::string number = std::to_string(count);
    throw Refusal{"There is no chapter " + sent + ". This script has " + number + ", numbered 1 to " + number + "."};
  }

  std::size_t requiredPosition(const std::string& key, const std::string& text) const {
    return position(required(key), text);
  }

  std::string readChapter() const {
    const std::string text = textOf(requiredScript());
    return chapterText(text, requiredPosition("chapter", text));
  }

  std::string added(std::string text) const {
    const std::string old = text;
    if (chapterCount(text) == 0 && hasWords(text)) {
      const auto title = supplied("first_title");
      if (!title) {
        throw Refusal{
            "This script has no chapters yet. Give \"first_title\", a title for the text already there, so it becomes "
            "chapter 1."};
      }
      text = "# " + *title + "\n\n" + text;
    }
    std::optional<std::size_t> before;
    if (const auto sent = supplied("before")) before = position(*sent, text);
    const auto edited = withChapterAdded(text, required("title"), supplied("text").value_or(""), before, old);
    if (!edited) throw Refusal{"Could not add that chapter"};
    return *edited;
  }

  std::string removed(const std::string& text) const {
    const std::size_t chapter = requiredPosition("chapter", text);
    std::string answer = required("keep_text");
    for (char& letter : answer) letter = letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter + 32) : letter;
    if (answer != "yes" && answer != "no") throw Refusal{"\"keep_text\" is \"yes\" or \"no\""};
    return withChapterRemoved(text, chapter, answer == "yes");
  }

  std::pair<std::string, std::string> editAndNote(std::string_view tool, const std::string& text) const {
    if (tool == "add_chapter") {
      const std::string edited = added(text);
      return {edited, "added chapter " + required("title")};
    }
    if (tool == "remove_chapter") {
      const std::string edited = removed(text);
      return {edited, "removed chapter " + required("chapter")};
    }
    const std::size_t chapter = requiredPosition("chapter", text);
    const std::string sent = required("chapter");
    if (tool == "rename_chapter")
      return {withChapterRenamed(text, chapter, required("title")), "renamed chapter " + sent};
    if (tool == "update_chapter")
      return {withChapterRewritten(text, chapter, required("text")), "rewrote chapter " + sent};
    const std::size_t to = requiredPosition("to", text);
    return {withChapterMoved(text, chapter, to), "moved chapter " + sent + " to " + required("to")};
  }

  std::string editChapters(std::string_view tool) {
    const std::string script = requiredScript();
    lock();
    const std::string text = textOf(script);
    const auto [edited, note] = editAndNote(tool, text);
    if (unicode::equivalent(edited, text)) return chapterListing(text);
    keep(script, "Before — " + note);
    model_.files[script] = edited;
    return chapterListing(edited);
  }

  // --- The library and its history ---

  /// What a call is given is judged before it takes the lock, which is in the library's own folder.
  void lock() { model_.hasOwnFolder_ = true; }

  std::string textOf(const std::string& script) const { return *model_.files.at(script); }

  std::optional<ModelVersion> keep(const std::string& script, const std::string& label) {
    const std::string text = textOf(script);
    if (text.empty()) return std::nullopt;
    const ModelVersion version{model_.clock_(), label, unicode::wordCount(text), text};
    model_.history_.keep(script, version);
    return version;
  }

  static std::string cleaned(const std::string& asked, Kind kind) {
    const std::string name = cleanedName(asked, kind);
    if (!name.empty()) return name;
    throw Refusal{
        quoted(asked) + " cannot be the name of a " + word(kind) +
        ", because nothing is left without dots at its start and white space at its ends. Give another name."};
  }

  /// The identifier that a thing of that name gets in the folder, unless it has one already: `own`.
  std::string freeIdentifier(const std::string& folder, const std::string& name, Kind kind,
                             const std::string& own) const {
    for (int number = 1;; ++number) {
      const std::string numbered = name + (number > 1 ? " " + std::to_string(number) : "");
      const std::string identifier = inFolder(folder, numbered + (kind == Kind::script ? ".md" : ""));
      if (identifier == own || !model_.files.contains(identifier)) return identifier;
    }
  }

  std::string make(const std::string& folder, Kind kind) {
    const std::string asked = required("name");
    lock();
    const std::string name = cleaned(asked, kind);
    if (folder == ".kelvane") {
      throw Refusal{"The " + word(kind) + " " + quoted(name) + " could not be made" + belongsToTheLibrary};
    }
    const std::string identifier = freeIdentifier(folder, name, kind, "");
    if (kind == Kind::script) model_.history_.setAside(identifier);
    model_.files[identifier] = kind == Kind::script ? std::optional<std::string>("") : std::nullopt;
    return identifier;
  }

  std::string createScript() {
    const std::string script = make(suppliedFolder(), Kind::script);
    if (const auto text = supplied("text")) model_.files[script] = *text;
    return summary(script, Kind::script);
  }

  std::string rename() {
    const auto [own, kind] = itemAt(required("id"));
    const std::string asked = required("name");
    lock();
    const std::string refusal = quoted(own) + " could not be renamed";
    if (own.empty()) throw Refusal{refusal + ", because it is the library's own root folder."};
    if (own == ".kelvane") throw Refusal{refusal + belongsToTheLibrary};
    if (nameFor(own, kind) == asked) return summary(own, kind);
    const std::string identifier = freeIdentifier(folderOf(own), cleaned(asked, kind), kind, own);
    if (identifier == own) return summary(own, kind);
    if (kind == Kind::script) {
      model_.history_.renameScript(own, identifier);
      model_.files[identifier] = model_.files[own];
      model_.files.erase(own);
    } else {
      model_.history_.renameFolder(own, identifier);
      std::map<std::string, std::optional<std::string>> renamed;
      for (const auto& [file, text] : model_.files) {
        const bool goesAlong = file == own || file.starts_with(own + "/");
        renamed[goesAlong ? identifier + file.substr(own.size()) : file] = text;
      }
      model_.files = renamed;
    }
    return summary(identifier, kind);
  }

  std::string saveVersion() {
    const std::string script = requiredScript();
    const std::string label = required("note");
    lock();
    const auto version = keep(script, label);
    if (!version) throw Refusal{quoted(script) + " is empty, so there is nothing to keep"};
    return "{\"id\":" + inJSON(script) + ",\"name\":" + inJSON(version->label) +
           ",\"saved\":" + quoted(savedIn(*version)) + ",\"words\":" + std::to_string(version->words) + "}";
  }

  std::string replaceText(bool appending) {
    const std::string script = requiredScript();
    const std::string given = required("text");
    const std::string note = required("note");
    lock();
    keep(script, "Before — " + note);
    const std::string text = appending ? withTextAppended(textOf(script), given) : given;
    model_.files[script] = text;
    return summary(script, text);
  }

  ModelTools& model_;
  const JSON::Object& arguments_;
};

Reply ModelTools::call(std::string_view tool, const JSON::Object& arguments) {
  try {
    return {ModelCall(*this, arguments).run(tool), false};
  } catch (const Refusal& refusal) {
    return {refusal.message, true};
  }
}

}  // namespace quorvel::tests
