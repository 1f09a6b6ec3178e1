#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "quorvel/settings/FileCopies.h"
#include "quorvel/settings/FileLeftovers.h"

namespace kelvane {

/// An AI client's configuration file, with copies of its text from before each of our changes: FILE.before-kelvane,
/// then FILE.before-kelvane-2 and so on. Touches no file yet.
quorvel::FileCopies clientFile(const std::filesystem::path& file);

/// What to say about the hidden files that interrupted changes left beside a file, in complete sentences: one on all
/// that can be deleted, and one on each that holds a text that is nowhere else. Each says what to do.
struct LeftoverSentences {
  std::string onThoseToDelete;  ///< Empty if there are none.
  std::vector<std::string> onTextsThatAreNowhereElse;
};
LeftoverSentences sentencesOn(const std::vector<quorvel::FileLeftover>& leftovers, const std::filesystem::path& file);

}  // namespace kelvane
