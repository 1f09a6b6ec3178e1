#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include "quorvel/files/Descriptor.h"
#include "quorvel/files/OpenedRoot.h"

namespace quorvel {

/// The library's own folder in the hands of a call that holds the library's lock: opened once for the whole call, with
/// the text that the call kept last. The lock owns it, so that both end with the lock.
///
/// Only the thread that made it finds it; it is not to be used from several threads at once.
class HeldOwnFolder {
 public:
  /// From now on `of` gives it to this thread, until the last who holds the result lets go.
  static std::shared_ptr<HeldOwnFolder> hold(std::shared_ptr<const OpenedRoot> root, Descriptor folder);

  /// The one that this thread holds, if it lies in that opened root; else null.
  static std::shared_ptr<HeldOwnFolder> of(const OpenedRoot& root);

  HeldOwnFolder(std::shared_ptr<const OpenedRoot> root, Descriptor folder)
      : root_(std::move(root)), folder_(std::make_shared<const Descriptor>(std::move(folder))) {}

  const std::shared_ptr<const Descriptor>& folder() const noexcept { return folder_; }

  /// The history has this text for good, as a version of that script.
  void remember(std::string_view identifier, std::string_view text);
  bool remembers(std::string_view identifier, std::string_view text) const noexcept;

  /// To be called before the history changes: what is remembered may become that of another script.
  void forget() noexcept { isKept_ = false; }

 private:
  const std::shared_ptr<const OpenedRoot> root_;
  const std::shared_ptr<const Descriptor> folder_;
  bool isKept_ = false;
  std::string identifier_;
  std::string text_;
};

}  // namespace quorvel
