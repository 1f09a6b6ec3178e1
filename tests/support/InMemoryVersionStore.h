#pragma once

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/QuorvelLibrary.h"
#include "platform/Unicode.h"

namespace kelvane::tests {

/// A version history in memory, with the same contract as the one on disk. May be used from several threads at once.
class InMemoryVersionStore : public quorvel::VersionStore {
 public:
  using Clock = std::function<std::chrono::system_clock::time_point()>;

  struct Kept {
    quorvel::ScriptVersion version;
    std::string text;
  };

  explicit InMemoryVersionStore(Clock clock = std::chrono::system_clock::now) : clock_(std::move(clock)) {}

  std::optional<quorvel::ScriptVersion> snapshot(std::string_view text, const std::filesystem::path& script,
                                                 std::string_view label) override {
    if (text.empty()) return std::nullopt;
    const std::lock_guard guard(mutex_);
    const auto saved = std::chrono::floor<std::chrono::microseconds>(clock_());
    quorvel::ScriptVersion version{saved, std::string(label), unicode::wordCount(text)};
    kept_[script.native()].push_back({version, std::string(text)});
    return version;
  }

  std::vector<quorvel::ScriptVersion> versions(const std::filesystem::path& script) const override {
    std::vector<quorvel::ScriptVersion> versions;
    for (const Kept& kept : all(script)) versions.push_back(kept.version);
    std::reverse(versions.begin(), versions.end());
    return versions;
  }

  /// All saved versions of a script, oldest first.
  std::vector<Kept> all(const std::filesystem::path& script) const {
    const std::lock_guard guard(mutex_);
    const auto found = kept_.find(script.native());
    return found == kept_.end() ? std::vector<Kept>() : found->second;
  }

 private:
  Clock clock_;
  mutable std::mutex mutex_;
  std::map<std::string, std::vector<Kept>> kept_;
};

}  // namespace kelvane::tests
