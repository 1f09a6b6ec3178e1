#include "quorvel/history/HeldOwnFolder.h"

namespace quorvel {
namespace {

std::weak_ptr<HeldOwnFolder>& latest() {
  thread_local std::weak_ptr<HeldOwnFolder> latest;
  return latest;
}

}  // namespace

std::shared_ptr<HeldOwnFolder> HeldOwnFolder::hold(std::shared_ptr<const OpenedRoot> root, Descriptor folder) {
  auto held = std::make_shared<HeldOwnFolder>(std::move(root), std::move(folder));
  latest() = held;
  return held;
}

std::shared_ptr<HeldOwnFolder> HeldOwnFolder::of(const OpenedRoot& root) {
  auto held = latest().lock();
  return held && held->root_.get() == &root ? held : nullptr;
}

void HeldOwnFolder::remember(std::string_view identifier, std::string_view text) {
  identifier_ = identifier;
  text_ = text;
  isSaved_ = true;
}

bool HeldOwnFolder::remembers(std::string_view identifier, std::string_view text) const noexcept {
  return isSaved_ && identifier_ == identifier && text_ == text;
}

}  // namespace quorvel
