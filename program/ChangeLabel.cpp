#include "program/ChangeLabel.h"

#include "quorvel/library/FolderLibrary.h"

namespace kelvane {
namespace {

constexpr std::string_view before = "Before — ";
constexpr std::string_view restoring = "restoring version ";
constexpr std::string_view undoing = "undoing version ";

}  // namespace

std::string restoringLabel(quorvel::VersionNumber version) {
  return std::string(before).append(restoring).append(version.text());
}

std::string undoingLabel(quorvel::VersionNumber version) {
  return std::string(before).append(undoing).append(version.text());
}

ChangeLabel readLabel(std::string_view label) {
  if (!label.starts_with(before) || label == quorvel::foundLabel) return {};
  const std::string_view change = label.substr(before.size());
  for (const std::string_view beginning : {restoring, undoing}) {
    if (!change.starts_with(beginning)) continue;
    if (const auto version = quorvel::VersionNumber::parse(change.substr(beginning.size()))) return {change, version};
  }
  return {change, std::nullopt};
}

}  // namespace kelvane
