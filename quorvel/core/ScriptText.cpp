#include <cstddef>
#include <string>
#include <string_view>

#include "platform/QuorvelLibrary.h"
#include "quorvel/core/Lines.h"

namespace quorvel {

// Linear: the existing text is copied once, into a string that has its final size from the start.
std::string ScriptText::appending(std::string_view given, std::string_view existing) {
  const std::string_view lineBreak = ownLineBreak(existing);
  const std::string added = inLineBreaks(given, lineBreak);
  const std::size_t breaks = missingBreaks(existing);
  std::string text;
  text.reserve(existing.size() + breaks * lineBreak.size() + added.size());
  text += existing;
  for (std::size_t written = 0; written < breaks; ++written) text += lineBreak;
  text += added;
  return text;
}

}  // namespace quorvel
