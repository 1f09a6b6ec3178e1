#pragma once

#include <map>
#include <string>
#include <utility>
#include <vector>

namespace kelvane::tests {

/// The simplest model of a version history. For each identifier it has the versions of the script that has the
/// identifier now or had it last, oldest first, and the versions of the scripts that had it before.
template <class Version>
class ModelHistory {
 public:
  /// The versions of all scripts that ever had one identifier.
  struct Histories {
    std::vector<Version> present;
    std::vector<std::vector<Version>> earlier;
  };

  void keep(const std::string& identifier, Version version) {
    byIdentifier_[identifier].present.push_back(std::move(version));
  }

  void setAside(const std::string& identifier) {
    Histories& histories = byIdentifier_[identifier];
    if (!histories.present.empty()) histories.earlier.push_back(std::exchange(histories.present, {}));
  }

  void renameScript(const std::string& from, const std::string& to) {
    setAside(to);
    byIdentifier_[to].present = std::exchange(byIdentifier_[from].present, {});
  }

  void renameFolder(const std::string& from, const std::string& to) {
    std::map<std::string, Histories> moved;
    for (auto& [identifier, histories] : byIdentifier_) {
      if (identifier.starts_with(to + "/")) setAside(identifier);
      if (identifier.starts_with(from + "/")) moved[to + identifier.substr(from.size())] = std::exchange(histories, {});
    }
    for (auto& [identifier, histories] : moved) {
      Histories& target = byIdentifier_[identifier];
      target.present = histories.present;
      target.earlier.insert(target.earlier.end(), histories.earlier.begin(), histories.earlier.end());
    }
  }

  /// By identifier. Some have no versions.
  const std::map<std::string, Histories>& byIdentifier() const { return byIdentifier_; }

 private:
  std::map<std::string, Histories> byIdentifier_;
};

}  // namespace kelvane::tests
