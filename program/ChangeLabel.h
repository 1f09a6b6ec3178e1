#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "quorvel/history/VersionNumber.h"

/// The labels of versions that were saved because a change was about to replace their text. They begin with "Before —"
/// whoever changed it: a tool, or a command of this program that put a version back.
namespace kelvane {

/// Those that the commands give: "Before — restoring version 3", "Before — undoing version 3".
std::string restoringLabel(quorvel::VersionNumber version);
std::string undoingLabel(quorvel::VersionNumber version);

/// What a label says.
struct ChangeLabel {
  std::string_view change;  ///< What the change was: "shorter". Empty if the label is not that of a change.

  /// The version that the change put back; empty if it was a tool that changed the text.
  std::optional<quorvel::VersionNumber> restored;
};

/// Reads a label. The view is part of it. A client's note can look like any of them, so a label alone proves nothing:
/// it helps to find a text, and is never a reason to lose one.
ChangeLabel readLabel(std::string_view label);

}  // namespace kelvane
