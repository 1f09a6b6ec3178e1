#include "program/ClientFile.h"

#include <cstdint>

#include "program/Wording.h"
#include "quorvel/files/SystemReason.h"

namespace kelvane {

quorvel::FileCopies clientFile(const std::filesystem::path& file) {
  return {file, ".before-kelvane"};
}

LeftoverSentences sentencesOn(const std::vector<quorvel::FileLeftover>& leftovers, const std::filesystem::path& file) {
  LeftoverSentences sentences;
  std::string names;
  std::int64_t count = 0;
  for (const quorvel::FileLeftover& leftover : leftovers) {
    const std::string name = quorvel::inQuotes(leftover.file.native());
    if (leftover.isElsewhere) {
      names.append(count++ == 0 ? "" : ", ").append(name);
      continue;
    }
    std::string sentence = name;
    sentence.append(" holds text that was in ").append(quorvel::inQuotes(file.native()));
    sentence.append(" when a change of it was interrupted. It is nowhere else. Put back what is missing, then delete ");
    sentences.onTextsThatAreNowhereElse.push_back(sentence.append(name).append("."));
  }
  if (count == 0) return sentences;
  sentences.onThoseToDelete = "Interrupted changes of " + quorvel::inQuotes(file.native()) + " left " +
                              counted(count, "hidden file") + ": " + names +
                              (count == 1 ? ". Delete it." : ". Delete them.");
  return sentences;
}

}  // namespace kelvane
