#pragma once

#include <exception>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "platform/QuorvelLibrary.h"
#include "protocol/Tool.h"

namespace kelvane {

/// One call of a tool that writes: the only way from a tool to the operations that change the library or its history.
///
/// It holds the library's lock for as long as it lives, from before the call's first read to after its last write, so
/// that what was read is what is replaced. A lock that cannot be had is no failure yet: the call still judges its
/// arguments and identifiers, and one that turns out to change nothing is answered. The first operation that would
/// keep, create, rename or write throws the lock's own error instead, and nothing was changed.
class WritingTurn {
 public:
  /// Takes the lock, waiting as long as the library does. Both must outlive the turn.
  WritingTurn(quorvel::ScriptLibrary& library, quorvel::VersionStore& versions);

  /// The library, for reading.
  const quorvel::ScriptLibrary& library() const noexcept { return library_; }

  /// Keeps a text as a version of the script; nothing for an empty text, which needs no lock as it is not kept.
  std::optional<quorvel::ScriptVersion> snapshot(std::string_view text, const quorvel::ScriptItem& script,
                                                 std::string_view label);

  /// Keeps the script's present text as a version labelled "Before — " and the note; an empty one is not kept, which is
  /// no failure. Comes before every replacement of a text, and a replacement is not made when it throws.
  void keepPrevious(const quorvel::ScriptItem& script, std::string_view note);

  /// The library's operations of these names.
  void write(std::string_view text, const quorvel::ScriptItem& script);
  quorvel::ScriptItem create(std::string_view name, const std::optional<std::string>& folder);
  quorvel::ScriptItem createFolder(std::string_view name, const std::optional<std::string>& folder);
  quorvel::ScriptItem rename(const quorvel::ScriptItem& item, std::string_view name);

 private:
  // Throws the error of a lock that could not be had.
  void confirm() const;

  quorvel::ScriptLibrary& library_;
  quorvel::VersionStore& versions_;
  std::unique_ptr<quorvel::LibraryLock> lock_;
  std::exception_ptr lockFailure_;
};

/// Makes what a writing tool runs: each call in a turn of its own, which is over before the result leaves.
class WritingTurns {
 public:
  using Run = std::function<std::string(const JSON::Object& arguments, WritingTurn& turn)>;

  WritingTurns(std::shared_ptr<quorvel::ScriptLibrary> library, std::shared_ptr<quorvel::VersionStore> versions);

  Tool::Run running(Run run) const;

 private:
  std::shared_ptr<quorvel::ScriptLibrary> library_;
  std::shared_ptr<quorvel::VersionStore> versions_;
};

}  // namespace kelvane
