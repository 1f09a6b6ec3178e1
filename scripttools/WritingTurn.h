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
/// It takes the library's lock before the first of these operations, and before the first text is read for them, so
/// that what was read is what is replaced, and holds it for as long as it lives. The identifier, and the arguments that
/// are looked at before the first text is read, are judged before that: where they are bad nobody is waited for, and
/// nothing is left on the disk. With the lock held the identifier is judged again, as what it names may have been
/// renamed meanwhile; what it named first is what is worked on. A lock that cannot be had is no failure yet: a call
/// that turns out to change nothing is answered. The first operation that would keep, create, rename or write throws
/// the lock's own error instead, and nothing was changed.
class WritingTurn {
 public:
  /// Both must outlive the turn.
  WritingTurn(quorvel::ScriptLibrary& library, quorvel::VersionStore& versions)
      : library_(library), versions_(versions) {}

  /// The operations of scripttools/Resolution.h. A call looks up one identifier, which has to outlive the turn.
  quorvel::ScriptItem itemAt(std::string_view identifier);
  quorvel::ScriptItem scriptAt(std::string_view identifier);
  std::optional<std::string> folderAt(const std::optional<std::string_view>& identifier);

  /// A script's whole text, to be replaced by what is made of it.
  std::string read(const quorvel::ScriptItem& script);

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
  // Looks something up, now and again when the lock is held.
  template <class LookUp>
  auto judged(LookUp lookUp) {
    judgeAgain_ = [lookUp] { static_cast<void>(lookUp()); };
    return lookUp();
  }

  // Takes the lock, waiting as long as the library does, unless that was tried before. Throws what is wrong with the
  // identifier by then.
  void takeLock();
  // The same; throws also the error of a lock that could not be had.
  void requireLock();

  quorvel::ScriptLibrary& library_;
  quorvel::VersionStore& versions_;
  std::function<void()> judgeAgain_;
  bool wasLockTried_ = false;
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
