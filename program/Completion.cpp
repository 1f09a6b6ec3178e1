#include "program/Completion.h"

#include <algorithm>
#include <cctype>

#include "program/Process.h"

namespace kelvane {
namespace {

using Words = std::vector<std::string>;

const Command* find(std::string_view name, Commands commands) {
  const auto found = std::find_if(commands.begin(), commands.end(),
                                  [&](const Command* each) { return each != nullptr && each->name == name; });
  return found == commands.end() ? nullptr : *found;
}

Words commandNames(Commands commands) {
  Words names;
  for (const Command* command : commands) {
    if (command != nullptr && !command->summary.empty()) names.emplace_back(command->name);
  }
  names.emplace_back(helpWord);
  return names;
}

const Option* valueOption(std::string_view argument, const Command& command) {
  const auto found = std::find_if(command.options.begin(), command.options.end(),
                                  [&](const Option& each) { return each.name == argument && !each.value.empty(); });
  return found == command.options.end() ? nullptr : &*found;
}

bool isTypedAsItIs(std::string_view word) {
  return std::none_of(word.begin(), word.end(), [](unsigned char each) { return std::isupper(each) != 0; });
}

// The words before the last one, as far as they can be read.
Arguments argumentsBefore(const Words& typed, const Command& command, Commands commands) {
  Words readable;
  for (std::size_t i = 0; i + 1 < typed.size(); ++i) {
    if (i + 2 == typed.size() && valueOption(typed[i], command) != nullptr) break;  // its value is being typed
    readable.push_back(typed[i]);
  }
  std::vector<const char*> pointers;
  for (const std::string& each : readable) pointers.push_back(each.c_str());
  try {
    return understand(pointers, commands).arguments;
  } catch (const UsageError&) {
    return {};
  }
}

Words ofCommand(const Words& typed, const Command& command, Commands commands, const WordsFor& wordsFor) {
  const Arguments before = argumentsBefore(typed, command, commands);
  const auto valuesOf = [&](const Option& option) {
    return option.value == "DIR" || option.value == "FILE" ? Words{std::string(anyFile)}
                                                           : wordsFor(option.value, command, before);
  };
  if (const Option* option = valueOption(typed[typed.size() - 2], command)) return valuesOf(*option);
  const std::string_view name = std::string_view(typed.back()).substr(0, typed.back().find('='));
  if (const Option* option = name.size() < typed.back().size() ? valueOption(name, command) : nullptr) {
    Words values = valuesOf(*option);
    for (std::string& each : values) {
      if (each != anyFile) each.insert(0, std::string(name).append("="));
    }
    return values;
  }
  Words words;
  if (typed.back().starts_with('-')) {
    for (const Option& option : command.options) words.emplace_back(option.name);
    words.emplace_back(helpOption.name);
    return words;
  }
  // Words that are typed as they are can only come first. Of the others, each has its place.
  std::size_t place = 0;
  for (const Word& word : command.words) {
    const std::string_view first = word.name.substr(0, word.name.find_first_of(" ="));
    if (isTypedAsItIs(first)) {
      if (before.words.empty()) words.emplace_back(first);
      if (!before.words.empty() && before.words.front() == first && first.size() < word.name.size()) {
        return {std::string(anyFile)};  // such as "library DIR"
      }
    } else if (place++ == std::min(before.words.size(), command.words.size() - 1)) {
      const Words found = wordsFor(word.name, command, before);
      words.insert(words.end(), found.begin(), found.end());
    }
  }
  return words;
}

}  // namespace

Words completions(Words typed, Commands commands, const WordsFor& wordsFor) {
  if (typed.empty()) typed.emplace_back();
  const std::string last = typed.back();
  while (typed.size() > 1 && typed.front() == helpWord) typed.erase(typed.begin());
  Words all;
  if (typed.size() < 2) {
    all = commandNames(commands);
    for (const Option& option : {helpOption, versionOption}) all.emplace_back(option.name);
  } else if (const Command* command = find(typed.front(), commands)) {
    all = ofCommand(typed, *command, commands, wordsFor);
  }
  Words fitting;
  for (std::string& each : all) {
    if (each == anyFile || each.starts_with(last)) fitting.push_back(std::move(each));
  }
  return fitting;
}

}  // namespace kelvane
