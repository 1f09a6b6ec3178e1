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
  struct Place {
    std::vector<Version> present;
    std::vector<std::vector<Version>> earlier;
  };

  void keep(const std::string& identifier, Version version) {
    places_[identifier].present.push_back(std::move(version));
  }

  void beginAnew(const std::string& identifier) {
    Place& place = places_[identifier];
    if (!place.present.empty()) place.earlier.push_back(std::exchange(place.present, {}));
  }

  void renameScript(const std::string& from, const std::string& to) {
    beginAnew(to);
    places_[to].present = std::exchange(places_[from].present, {});
  }

  void renameFolder(const std::string& from, const std::string& to) {
    std::map<std::string, Place> moved;
    for (auto& [identifier, place] : places_) {
      if (identifier.starts_with(to + "/")) beginAnew(identifier);
      if (identifier.starts_with(from + "/")) moved[to + identifier.substr(from.size())] = std::exchange(place, {});
    }
    for (auto& [identifier, place] : moved) {
      Place& target = places_[identifier];
      target.present = place.present;
      target.earlier.insert(target.earlier.end(), place.earlier.begin(), place.earlier.end());
    }
  }

  /// By identifier. Some have no versions.
  const std::map<std::string, Place>& places() const { return places_; }

 private:
  std::map<std::string, Place> places_;
};

}  // namespace kelvane::tests
