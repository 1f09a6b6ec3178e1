#include "tests/host/CodexConfigOracle.h"

#include <algorithm>
#include <set>

#include "platform/Unicode.h"

namespace kelvane::oracle {
namespace {

const Characters header = characters("[mcp_servers.kelvane]");
const Characters subTable = characters("[mcp_servers.kelvane.");

std::string joined(const Characters& characters) {
  std::string text;
  for (const std::string& character : characters) text += character;
  return text;
}

bool startsWith(const Characters& text, const Characters& prefix) {
  return text.size() >= prefix.size() && std::equal(prefix.begin(), prefix.end(), text.begin());
}

/// Spaces are removed by scalars, so this compares bytes: the UTF-8 of the tab and of the space separators.
Characters trimmed(const Characters& line) {
  static const std::set<std::string> blanks = {"\t",     " ",      "\u00A0", "\u1680", "\u2000", "\u2001",
                                               "\u2002", "\u2003", "\u2004", "\u2005", "\u2006", "\u2007",
                                               "\u2008", "\u2009", "\u200A", "\u202F", "\u205F", "\u3000"};
  std::string text = joined(line);
  for (bool changed = true; changed;) {
    changed = false;
    for (const std::string& blank : blanks) {
      if (text.starts_with(blank)) {
        text.erase(0, blank.size());
        changed = true;
      } else if (text.ends_with(blank)) {
        text.erase(text.size() - blank.size());
        changed = true;
      }
    }
  }
  return characters(text);
}

bool isHeader(const Characters& line) {
  const Characters text = trimmed(line);
  return !text.empty() && text[0] == "[";
}

bool isOwned(const Characters& line) {
  const Characters text = trimmed(line);
  return isHeader(line) && (text == header || startsWith(text, subTable));
}

std::string withoutLineFeedsAtTheEnd(const std::string& text) {
  Characters left = characters(text);
  while (!left.empty() && left.back() == "\n") left.pop_back();
  return joined(left);
}

}  // namespace

Characters characters(std::string_view text) {
  Characters result;
  while (!text.empty()) {
    const std::size_t end = unicode::characterEnd(text, 0);
    result.emplace_back(text.substr(0, end));
    text.remove_prefix(end);
  }
  return result;
}

std::string removing(std::string_view text) {
  std::vector<Characters> lines(1);
  for (const std::string& character : characters(text)) {
    if (character == "\n") {
      lines.emplace_back();
    } else {
      lines.back().push_back(character);
    }
  }
  std::vector<std::string> output;
  for (std::size_t i = 0; i < lines.size();) {
    if (!isOwned(lines[i])) {
      output.push_back(joined(lines[i++]));
      continue;
    }
    ++i;
    while (i < lines.size() && !(isHeader(lines[i]) && !isOwned(lines[i]))) ++i;
  }
  std::string result;
  for (std::size_t i = 0; i < output.size(); ++i) result += (i == 0 ? "" : "\n") + output[i];
  return withoutLineFeedsAtTheEnd(result);
}

std::string adding(std::string_view command, std::string_view text) {
  const std::string section = "[mcp_servers.kelvane]\nargs = []\ncommand = \"" + std::string(command) + "\"\n";
  const std::string base = removing(text);
  return base.empty() ? section : base + "\n\n" + section;
}

bool names(std::string_view command, std::string_view text) {
  const std::size_t a = unicode::characterCount(removing(text));
  const std::size_t b = unicode::characterCount(withoutLineFeedsAtTheEnd(std::string(text)));
  const std::string needle = "command = \"" + std::string(command) + "\"";
  return a != b && std::search(text.begin(), text.end(), needle.begin(), needle.end()) != text.end();
}

}  // namespace kelvane::oracle
