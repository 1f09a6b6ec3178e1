#include <exception>
#include <string>
#include <string_view>
#include <vector>

#include "program/AIClient.h"
#include "program/Completion.h"
#include "program/Environment.h"
#include "program/LibraryItems.h"
#include "program/OpenedLibrary.h"
#include "program/Process.h"
#include "program/ScriptVersion.h"
#include "program/ToolPages.h"
#include "program/commands/Commands.h"

/// What shells call while a command is typed, and the scripts that make them call it.
namespace kelvane::commands {
namespace {

using Names = std::vector<std::string>;

Names scriptNames(const OpenedLibrary& opened, bool folders) {
  Names names;
  for (const LibraryItem& item : itemsOf(*opened.library)) {
    if (item.isFolder() == folders) names.push_back(item.identifier);
  }
  return names;
}

Names versionsOf(const std::string& script, const OpenedLibrary& opened) {
  Names names;
  const std::string identifier = findScript(script, opened).identifier;
  for (const quorvel::HistoryOfScript& each : opened.history->scripts(identifier)) {
    for (const quorvel::HistoryEntry& entry : opened.history->entries(identifier, each.earlier)) {
      names.push_back(entry.version.text());
    }
  }
  return names;
}

Names toolArguments(const std::string& name) {
  Names names;
  for (const DescribedTool& each : everyTool()) {
    if (each.tool.name() != name) continue;
    for (const ToolArgument& argument : argumentsOf(each.tool)) names.push_back(argument.name + '=');
  }
  return names;
}

Names wordsFor(std::string_view word, const Command& command, const Arguments& typed) {
  Arguments before = typed;
  addVariables(command, before);
  Names names;
  if (word == "TOOL") {
    for (const DescribedTool& each : everyTool()) names.push_back(each.tool.name());
  } else if (word.starts_with("NAME=")) {
    names = toolArguments(before.word(0));
  } else if (word == "NAME") {
    for (const AIClient& client : aiClients()) names.emplace_back(client.name);
  } else if (word == "SCRIPT" || word == "FOLDER") {
    names = scriptNames(openLibraryOf(before), word == "FOLDER");
  } else if (word == "VERSION") {
    names = versionsOf(before.word(0), openLibraryOf(before));
  }
  return names;
}

int complete(const Arguments& arguments) {
  try {
    std::string lines;
    for (const std::string& each : completions(arguments.words, all(), wordsFor)) lines.append(each).append("\n");
    print(lines);
  } catch (const std::exception&) {
    // Whoever is typing is told by the command itself what is wrong.
  }
  return done;
}

// readline splits a line within names, at quotes, colons and equals signs, and replaces only the last part of a word.
// So this script reads the line as the shell will, and leaves out of each completion what readline keeps.
constexpr std::string_view bash = R"sh(# Completions of kelvane for bash
_kelvane() {
  local line=${COMP_LINE:0:COMP_POINT} words=() word= begun= home= quote= before= kept= each i found file
  for ((i = 0; i < ${#line}; i++)); do
    each=${line:i:1}
    case $quote$each in
      "''" | '""') quote= ;;
      \"\\) ((++i)); each=${line:i:1}; case $each in [\"\\\$\`]) ;; *) word+=\\ ;; esac; word+=$each ;;
      [\"\']?) word+=$each ;;
      [\"\']) quote=$each before=$word begun=1 ;;
      \\) ((++i)); word+=${line:i:1} begun=1 ;;
      [[:space:]])
        if [ "$home" ]; then case $word in '~' | '~/'*) word=$HOME${word:1} ;; esac; fi
        if [ "$begun" ]; then words+=("$word"); fi
        word= begun= home= kept= ;;
      *)
        if [ "$each" = '~' ] && [ ! "$begun" ]; then home=1; fi
        word+=$each begun=1
        case $COMP_WORDBREAKS in *"$each"*) kept=$word ;; esac ;;
    esac
  done
  if [ "$quote" ]; then kept=$before; fi
  COMPREPLY=()
  mapfile -t found < <(kelvane complete -- "${words[@]:1}" "$word" 2>/dev/null)
  if [ "${found[0]-}" = @files ]; then
    file=$word
    case $word in --*=*) file=${word#*=} ;; esac
    compopt -o filenames
    mapfile -t found < <(compgen -f -- "$file")
    for each in "${found[@]}"; do each=${word%"$file"}$each; COMPREPLY+=("${each#"$kept"}"); done
    return
  fi
  for each in "${found[@]}"; do
    case $each in *=) compopt -o nospace ;; esac
    each=${each#"$kept"}
    case $quote in
      \') each=${each//\'/\'\\\'\'} ;;
      \") each=${each//\\/\\\\}; each=${each//\"/\\\"}; each=${each//\$/\\\$}; each=${each//\`/\\\`} ;;
      *) if [ "$each" ]; then printf -v each %q "$each"; fi ;;
    esac
    COMPREPLY+=("$each")
  done
}
complete -F _kelvane kelvane
)sh";

constexpr std::string_view zsh = R"sh(#compdef kelvane
# Completions of kelvane for zsh
_kelvane() {
  local -a typed found
  typed=("${(@Q)words[2,CURRENT-1]}" "${(Q)${:-$words[CURRENT]$compstate[quote]}}")
  typed=("${(@)typed/#\~\//$HOME/}")
  found=("${(@f)$(kelvane complete -- "${(@)typed}" 2>/dev/null)}")
  if [[ -z ${found[1]} ]]; then return 1
  elif [[ ${found[1]} == @files ]]; then compset -P '--*='; _files
  elif [[ ${found[1]} == *= ]]; then compadd -S '' -- $found
  else compadd -- $found; fi
}
if [[ ${funcstack[1]} == _kelvane ]]; then _kelvane "$@"; else compdef _kelvane kelvane; fi
)sh";

constexpr std::string_view fish = R"sh(# Completions of kelvane for fish
function __kelvane
    set -l typed (commandline -opc)
    set -l found (kelvane complete -- $typed[2..-1] (commandline -ct) 2>/dev/null)
    if test "$found[1]" = @files
        __fish_complete_path (commandline -ct)
    else
        printf '%s\n' $found
    end
end
complete -c kelvane -f -a '(__kelvane)'
)sh";

int completionScript(const Arguments& arguments) {
  const std::string shell = arguments.word(0);
  if (shell == "bash") {
    print(bash);
  } else if (shell == "zsh") {
    print(zsh);
  } else if (shell == "fish") {
    print(fish);
  } else {
    throw UsageError("Say for which shell: kelvane completions bash, zsh or fish.");
  }
  return done;
}

constexpr Word shells[] = {
    {"bash", "To use it now: source <(kelvane completions bash)"},
    {"zsh", "To use it now: source <(kelvane completions zsh)"},
    {"fish", "To use it now: kelvane completions fish | source"},
};

}  // namespace

constinit const Command completeCommand = {
    .name = "complete",
    .summary = {},
    .about = "Prints what the last word can be completed to, one line each, or \"@files\". Shells call it.",
    .usage = "-- WORDS",
    .mostWords = Command::anyNumber,
    .run = complete,
};

constinit const Command completionsCommand = {
    .name = "completions",
    .summary = "Print a shell's completions: bash, zsh or fish.",
    .about = "Prints the script that lets a shell complete commands, options, scripts, versions and tools.",
    .usage = "bash|zsh|fish",
    .mostWords = 1,
    .words = shells,
    .notes = "\"./run install\" puts all three where the shells look for them.",
    .run = completionScript,
};

}  // namespace kelvane::commands
