#pragma once

#include <memory>
#include <optional>
#include <string_view>

#include "platform/QuorvelLibrary.h"

namespace kelvane {

/// The library and the history that the writing tools share. A tool copies it, checks its arguments against `library()`
/// and then waits for its `WritingTurn`, which alone can change anything.
///
/// Copies are cheap and own the same two objects. May be used from several threads at once if those two may.
class WritingTurns {
 public:
  /// Shares ownership of both. Neither may be null.
  WritingTurns(std::shared_ptr<quorvel::ScriptLibrary> library, std::shared_ptr<quorvel::VersionStore> versions);

  /// The library, for the checks that need no lock. Lives as long as this object.
  const quorvel::ScriptLibrary& library() const noexcept { return *library_; }

 private:
  friend class WritingTurn;

  std::shared_ptr<quorvel::ScriptLibrary> library_;
  std::shared_ptr<quorvel::VersionStore> versions_;
};

/// One call of a writing tool while it holds the library's lock. The lock is acquired by the constructor, which waits
/// as long as the library does, and released by the destructor. So no other writer changes the text between the moment
/// when it is read and the moment when it is replaced.
///
/// Use it in this order:
///
///     const auto id = requiredString("id", arguments);
///     scriptAt(id, turns.library());                    // a bad call is refused here and waits for no one
///     const auto note = requiredString("note", arguments);
///
///     WritingTurn turn(turns);                          // waits for the lock
///     const auto script = scriptAt(id, turn.library());  // others may have renamed it meanwhile
///     turn.keepPrevious(script, note);
///     turn.library().write(text, script);
///
/// Exceptions of the library and of the version store pass through unchanged. A turn belongs to one thread.
class WritingTurn {
 public:
  /// `turns` must outlive the turn. Throws the library's own exception if the lock is not available; nothing has been
  /// read or changed then.
  explicit WritingTurn(const WritingTurns& turns);
  WritingTurn(const WritingTurn&) = delete;
  WritingTurn& operator=(const WritingTurn&) = delete;

  /// The library, which may be changed as long as the turn lives.
  quorvel::ScriptLibrary& library() const noexcept { return library_; }

  /// Reads the script's present text and saves it as a version with that label. std::nullopt for an empty text, which
  /// is not saved.
  std::optional<quorvel::ScriptVersion> keep(const quorvel::ScriptItem& script, std::string_view label);

  /// The same with the label "Before — " and the note. Call it before each `write`; if it throws, do not write.
  void keepPrevious(const quorvel::ScriptItem& script, std::string_view note);

 private:
  quorvel::ScriptLibrary& library_;
  quorvel::VersionStore& versions_;
  std::unique_ptr<quorvel::LibraryLock> lock_;
};

}  // namespace kelvane
