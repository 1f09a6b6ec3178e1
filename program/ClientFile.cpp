#include "program/ClientFile.h"

#include <cstdint>

#include "program/Wording.h"

namespace kelvane {

quorvel::FileCopies clientFile(const std::filesystem::path& file) {
  return {file, ".before-kelvane"};
}

LeftoverSentences sentencesOn(const std::vector<quorvel::FileLeftover>& leftovers, const std::filesystem::path& file) {
  LeftoverSentences sentences;
  std::string names;
  std::int64_t count = 0;
  for (const quorvel::FileLeftover& leftover : leftovers) {
    const std::string name = inQuotes(leftover.file.native());
    if (leftover.isElsewhere) {
      names.append(count++ == 0 ? "" : ", ").append(name);
      continue;
    }
    sentences.onTextsThatAreNowhereElse.push_back(
        name + " holds a text that stood in " + inQuotes(file.native()) +
        " until a change of it was cut short, and that is nowhere else. Put back what is missing, then delete " + name +
        ".");
  }
  if (count == 0) return sentences;
  sentences.onThoseToDelete = counted(count, "hidden file") + (count == 1 ? " was" : " were") + " left by changes of " +
                              inQuotes(file.native()) + " that were cut short: " + names +
                              (count == 1 ? ". Delete it." : ". Delete them.");
  return sentences;
}

}  // namespace kelvane
