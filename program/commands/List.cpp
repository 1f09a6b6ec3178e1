#include <algorithm>
#include <iterator>
#include <stdexcept>
#include <string>
#include <vector>

#include "program/LibraryItems.h"
#include "program/OpenedLibrary.h"
#include "program/Process.h"
#include "program/Wording.h"
#include "program/commands/Commands.h"
#include "quorvel/files/SystemReason.h"

namespace kelvane::commands {
namespace {

constexpr Word words[] = {{"FOLDER", "Only what is in this folder, such as Talks."}};
constexpr Option options[] = {libraryOption, jsonOption};

// The items below the folder with that identifier, or all.
std::vector<LibraryItem> itemsIn(std::string folder, const quorvel::ScriptLibrary& library) {
  std::vector<LibraryItem> items = itemsOf(library);
  while (folder.ends_with('/')) folder.pop_back();
  if (folder.empty()) return items;
  const auto found =
      std::find_if(items.begin(), items.end(), [&](const LibraryItem& each) { return each.identifier == folder; });
  if (found == items.end()) {
    throw std::runtime_error("There is no folder " + quorvel::inQuotes(folder) + "." + suggestedItem(folder, library));
  }
  if (!found->isFolder()) throw std::runtime_error(quorvel::inQuotes(folder) + " is a script. Give a folder.");
  const auto first = found + 1;
  const auto last =
      std::find_if(first, items.end(), [&](const LibraryItem& each) { return each.depth <= found->depth; });
  return {std::make_move_iterator(first), std::make_move_iterator(last)};
}

std::string lines(const std::vector<LibraryItem>& items) {
  std::string text;
  for (const LibraryItem& item : items) {
    text.append(2 * (item.depth - items.front().depth), ' ').append(onOneLine(item.name));
    text.append(item.isFolder() ? "/\n" : "\n");
  }
  return text;
}

std::string encoded(const std::vector<LibraryItem>& items) {
  JSON::Array array;
  for (const LibraryItem& item : items) {
    array.append(
        JSON::Object{{"id", item.identifier}, {"kind", item.isFolder() ? "folder" : "script"}, {"name", item.name}});
  }
  return JSON(array).encoded() + '\n';
}

int run(const Arguments& arguments) {
  const OpenedLibrary opened = openLibraryOf(arguments);
  const std::string folder = arguments.word(0);
  const std::vector<LibraryItem> items = itemsIn(folder, *opened.library);
  if (arguments.has(jsonOption)) {
    print(encoded(items));
  } else if (items.empty()) {
    say(folder.empty() ? "The library is empty." : "The folder is empty.");
  } else {
    print(lines(items));
  }
  return done;
}

}  // namespace

constinit const Command listCommand = {
    .name = "list",
    .summary = "List the scripts and folders.",
    .about = "Lists the library as a tree, in the order that an AI client sees. Folders end with a slash.",
    .usage = "[FOLDER]",
    .mostWords = 1,
    .words = words,
    .options = options,
    .run = run,
};

}  // namespace kelvane::commands
