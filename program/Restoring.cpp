#include "program/Restoring.h"

#include <stdexcept>

#include "quorvel/files/SystemReason.h"
#include "quorvel/files/WholeFile.h"
#include "scripttools/Resolution.h"

namespace kelvane {

Restored restore(const FoundScript& script, quorvel::VersionNumber version, std::string_view label,
                 const OpenedLibrary& opened, const quorvel::LibraryLock&) {
  const std::string text = textOf(version, script, opened);
  if (text.size() > quorvel::largestText) {
    throw std::runtime_error("Version " + version.text() + " of " + quorvel::inQuotes(script.identifier) +
                             " could not be put back, because it is larger than " + quorvel::largestTextInWords +
                             ", the largest size of a script. To print it into a file, run: kelvane show SCRIPT " +
                             version.text() + " > FILE");
  }
  if (!script.item) {
    opened.library->recreate(script.identifier, text);
    return {Restored::How::recreated, std::nullopt};
  }
  const std::string present = opened.library->readToReplace(*script.item);
  if (present == text) return {Restored::How::unchanged, std::nullopt};
  const auto saved = opened.history->snapshot(present, pathOf(script.identifier, *opened.library), label);
  const auto entries = saved ? opened.history->entries(script.identifier) : std::vector<quorvel::HistoryEntry>();
  opened.library->write(text, *script.item);
  if (!saved) return {Restored::How::replaced, std::nullopt};
  return {Restored::How::replaced, entries.front().version};
}

}  // namespace kelvane
