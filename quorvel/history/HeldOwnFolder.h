#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include "quorvel/files/Descriptor.h"
#include "quorvel/files/OpenedRoot.h"

namespace quorvel {

/// The library's own folder, opened once for a call that holds the library's lock, and the text that the call saved
/// last. The lock owns it, so it ends with the lock.
///
/// Only the thread that made it finds it. Not for use from several threads at once.
class HeldOwnFolder {
 public:
  /// From now on, `of` returns the result to this thread, until its last owner releases it.
  static std::shared_ptr<HeldOwnFolder> hold(std::shared_ptr<const OpenedRoot> root, Descriptor folder);

  /// What this thread holds for that opened root, or null.
  static std::shared_ptr<HeldOwnFolder> of(const OpenedRoot& root);

  HeldOwnFolder(std::shared_ptr<const OpenedRoot> root, Descriptor folder)
      : root_(std::move(root)), folder_(std::make_shared<const Descriptor>(std::move(folder))) {}

  const std::shared_ptr<const Descriptor>& folder() const noexcept { return folder_; }

  /// Notes that the history has this text on the disk, as a version of that script. Copies it.
  void remember(std::string_view identifier, std::string_view text);
  bool remembers(std::string_view identifier, std::string_view text) const noexcept;

  /// Call this before the history changes, because the version may become that of another script.
  void forget() noexcept { isSaved_ = false; }

 private:
  const std::shared_ptr<const OpenedRoot> root_;
  const std::shared_ptr<const Descriptor> folder_;
  bool isSaved_ = false;
  std::string identifier_;
  std::string text_;
};

}  // namespace quorvel
