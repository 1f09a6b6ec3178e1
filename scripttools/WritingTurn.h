#pragma once

#include <exception>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "platform/QuorvelLibrary.h"
#include "protocol/Tool.h"

namespace kelvane {

/// The library's lock in the hands of one call of a tool that writes: the only way from a tool to the operations that
/// change the library or its history.
///
/// The lock is taken when the turn is made, waiting as long as the library does, and held for as long as the turn
/// lives, so that what is read is what is replaced. If the lock cannot be had, the call still succeeds when it changes
/// nothing: the first operation that would keep, create, rename or write throws the lock's own error, and nothing was
/// changed.
class WritingTurn {
 public:
  /// Both must outlive the turn.
  WritingTurn(quorvel::ScriptLibrary& library, quorvel::VersionStore& versions);
  WritingTurn(const WritingTurn&) = delete;
  WritingTurn& operator=(const WritingTurn&) = delete;

  /// Whether other writers are kept out; false where the lock could not be had.
  bool keepsOthersOut() const noexcept { return lockFailure_ == nullptr; }

  /// A script's whole text, to be replaced by what is made of it.
  std::string read(const quorvel::ScriptItem& script) const;

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
  void requireLock() const;

  quorvel::ScriptLibrary& library_;
  quorvel::VersionStore& versions_;
  std::unique_ptr<quorvel::LibraryLock> lock_;
  std::exception_ptr lockFailure_;
};

/// Makes what a writing tool runs: each call in a turn of its own, which is over before the result leaves.
class WritingTurns {
 public:
  WritingTurns(std::shared_ptr<quorvel::ScriptLibrary> library, std::shared_ptr<quorvel::VersionStore> versions);

  /// `judge(arguments, library)` finds out what a call is about: it resolves the identifier and reads the arguments
  /// that need no text to be looked at, in the tool's own order, and throws what is wrong with them. `work(asked,
  /// turn)` does the work with what `judge` returned, and returns the tool's text. What was asked may refer to the
  /// arguments.
  ///
  /// A call is judged before it takes its turn, so that a bad one waits for nobody and leaves nothing on the disk. It
  /// is judged again with the lock in hand, as others may have renamed meanwhile what an identifier named, and the
  /// second judgement is the one that is worked on.
  template <class Judge, class Work>
  Tool::Run running(Judge judge, Work work) const {
    return [library = library_, versions = versions_, judge = std::move(judge),
            work = std::move(work)](const JSON::Object& arguments) {
      auto asked = judge(arguments, std::as_const(*library));
      WritingTurn turn(*library, *versions);
      if (turn.keepsOthersOut()) asked = judge(arguments, std::as_const(*library));
      return work(asked, turn);
    };
  }

 private:
  std::shared_ptr<quorvel::ScriptLibrary> library_;
  std::shared_ptr<quorvel::VersionStore> versions_;
};

}  // namespace kelvane
