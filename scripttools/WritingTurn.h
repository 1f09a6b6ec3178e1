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

/// One call of a writing tool, holding the library's lock. Tools reach the operations that change the library or its
/// versions only through a turn.
///
/// The lock is acquired by the constructor, which waits as long as the library does, and released by the destructor. So
/// the text that is read is the text that is replaced. If the lock is not available, the call still succeeds when it
/// changes nothing: the first operation that would save, create, rename or write throws the lock's own exception, and
/// nothing has been changed.
///
/// Exceptions of the library and of the version store pass through. A turn belongs to one thread.
class WritingTurn {
 public:
  /// Both must outlive the turn. Does not throw if the lock is not available.
  WritingTurn(quorvel::ScriptLibrary& library, quorvel::VersionStore& versions);
  WritingTurn(const WritingTurn&) = delete;
  WritingTurn& operator=(const WritingTurn&) = delete;

  /// Whether the library could be locked. Also true for a library that has no lock.
  bool isLocked() const noexcept { return lockFailure_ == nullptr; }

  /// A script's whole text, which is about to be replaced by one derived from it. Needs no lock.
  std::string read(const quorvel::ScriptItem& script) const;

  /// Saves a text as a version of the script. std::nullopt for an empty text, which is not saved and needs no lock.
  std::optional<quorvel::ScriptVersion> snapshot(std::string_view text, const quorvel::ScriptItem& script,
                                                 std::string_view label);

  /// Reads the script's present text and saves it as a version, labelled "Before — " and the note. An empty text is not
  /// saved, and that is not a failure. Call it before each `write`; if it throws, do not write.
  void keepPrevious(const quorvel::ScriptItem& script, std::string_view note);

  /// The library's operations of the same names. They throw the lock's exception if the library is not locked.
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

/// Makes the functions that writing tools run. Each call gets a turn of its own, which ends before the result is
/// returned.
class WritingTurns {
 public:
  /// Shares ownership of both with every function that it makes. Neither may be null.
  WritingTurns(std::shared_ptr<quorvel::ScriptLibrary> library, std::shared_ptr<quorvel::VersionStore> versions);

  /// A function for `Tool` that runs `resolve` and then `work`:
  ///
  /// - `resolve(arguments, library)` resolves the identifiers and reads every argument that can be checked without the
  ///   script's text. It throws the first fault, in the tool's own order, and returns the request. The request may
  ///   refer to the arguments.
  /// - `work(request, turn)` carries the request out and returns the tool's result.
  ///
  /// `resolve` runs before the lock is acquired, so that a bad call waits for no one and leaves nothing on the disk. It
  /// runs again while the lock is held, because another process may have renamed the item meanwhile; `work` gets the
  /// second request. Without the lock there is no second run.
  ///
  ///     turns.running(NewName::resolved, [](const NewName& request, WritingTurn& turn) {
  ///       return JSON(itemSummary(turn.rename(request.item, request.name))).encoded();
  ///     });
  template <class Resolve, class Work>
  Tool::Run running(Resolve resolve, Work work) const {
    return [library = library_, versions = versions_, resolve = std::move(resolve),
            work = std::move(work)](const JSON::Object& arguments) {
      auto request = resolve(arguments, std::as_const(*library));
      WritingTurn turn(*library, *versions);
      if (turn.isLocked()) request = resolve(arguments, std::as_const(*library));
      return work(request, turn);
    };
  }

 private:
  std::shared_ptr<quorvel::ScriptLibrary> library_;
  std::shared_ptr<quorvel::VersionStore> versions_;
};

}  // namespace kelvane
