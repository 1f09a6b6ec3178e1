#pragma once

#include <cstddef>
#include <map>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

/// The command line as a table. A command is one record: its name, its help, what it takes and its function. The
/// parser, the suggestions and the help pages (program/HelpPages.h) are made from the table.
namespace kelvane {

/// An option of a command: a switch, or one that takes a value.
struct Option {
  std::string_view name;  ///< As it is typed: "--library", or a dash and one letter.
  std::string_view help;
  std::string_view value = {};     ///< What the help calls its value: "DIR". Empty for a switch.
  std::string_view meaning = {};   ///< What the value is: "a folder".
  std::string_view variable = {};  ///< The environment variable that stands for it, if any (program/Environment.h).
  bool isRepeatable = false;       ///< Whether it may be given several times, with a value each.
};

/// A word that a command takes, as a line of the command's help.
struct Word {
  std::string_view name;  ///< In capitals what the person chooses ("SCRIPT"); else typed as it is ("enable").
  std::string_view help;
};

/// What was typed behind a command's name, once it fits the command.
class Arguments {
 public:
  std::vector<std::string> words;

  /// The word at this index, from 0; empty if it was not typed.
  std::string word(std::size_t index) const { return index < words.size() ? words[index] : std::string(); }

  bool has(const Option& option) const { return options_.contains(option.name); }

  /// The option's value; empty if it was not typed. A value that is typed is never empty.
  std::string value(const Option& option) const {
    const auto found = options_.find(option.name);
    return found == options_.end() ? std::string() : found->second.back();
  }

  /// All values of a repeatable option, in their order; empty if it was not typed.
  std::vector<std::string> values(const Option& option) const {
    const auto found = options_.find(option.name);
    return found == options_.end() ? std::vector<std::string>() : found->second;
  }

  /// Adds a value. The option is one of the table, which must outlive this.
  void set(const Option& option, std::string value) { options_[option.name].push_back(std::move(value)); }

 private:
  std::map<std::string_view, std::vector<std::string>> options_;
};

/// A command. Texts are paragraphs with an empty line between them; one that begins with a space is shown as it is, any
/// other is filled to the width of the page.
struct Command {
  static constexpr std::size_t anyNumber = static_cast<std::size_t>(-1);

  std::string_view name;
  std::string_view summary;          ///< A sentence for the list of commands. Empty if other programs use it only.
  std::string_view about;            ///< What it does.
  std::string_view usage = {};       ///< Its words as the usage line shows them: "SCRIPT VERSION".
  std::size_t mostWords = 0;         ///< How many it takes at most. The command itself checks for missing ones.
  std::span<const Word> words = {};  ///< What they are.
  std::span<const Option> options = {};
  std::string_view notes = {};  ///< What else is to be known, below the options.

  /// Does it, and returns the exit status. Throws UsageError, or any other error with complete sentences.
  int (*run)(const Arguments& arguments) = nullptr;

  /// The help on one of the things that the command works on, such as a tool: "kelvane call read_script --help". Null
  /// if there is only the help on the command. Throws UsageError if there is no such thing.
  std::string (*helpOnTopic)(const std::string& topic) = nullptr;
};

/// The commands in the order of the help. Null stands between two groups.
using Commands = std::span<const Command* const>;

/// Which options every command and the program itself have.
inline constexpr Option helpOption = {"--help", "Print this."};
inline constexpr Option versionOption = {"--version", "Print the version."};

/// The option of every command that lists something.
inline constexpr Option jsonOption = {"--json", "Print JSON, for other programs."};

/// "kelvane help COMMAND" is another way to type "kelvane COMMAND --help", and "kelvane help" one to type "--help".
inline constexpr std::string_view helpWord = "help";

/// What a command line asks for.
struct Request {
  const Command* command = nullptr;  ///< Null if none was typed.
  bool wantsHelp = false;            ///< On the command, or on the program without one.
  bool wantsVersion = false;
  Arguments arguments = {};
  std::string topic = {};  ///< With help on a command: the word behind it, on which it may have help of its own.
};

/// The option as messages and help pages show it: "--library DIR".
std::string usageOf(const Option& option);

/// Takes a command line apart. `typed` are its arguments, without the program's name.
///
/// Options and words of a command come in any order. A value stands in the next argument, whatever its first character,
/// or behind "=" (--library=DIR). What follows "--" are words. "-h" or "--help" before it, or the word "help" before
/// the command, asks for the command's help, even if another argument is wrong. Takes time linear in the arguments.
///
/// Throws UsageError for the first argument that does not fit, with the command or the option that was probably meant.
Request understand(std::span<const char* const> typed, Commands commands);

}  // namespace kelvane
