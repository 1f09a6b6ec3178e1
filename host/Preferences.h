#pragma once

#include <memory>
#include <optional>
#include <string_view>

#include "platform/UserDefaults.h"

namespace kelvane {

/// The person's two switches, as they stood when the value was made.
class Preferences {
 public:
  /// The domain in which the application keeps its settings.
  static constexpr std::string_view bundleID = "org.quorvel.Quorvel";

  /// The keys of the two switches there, for whoever writes them.
  static constexpr std::string_view enabledKey = "mcpEnabled";
  static constexpr std::string_view allowsWritesKey = "mcpAllowsWrites";

  /// Reads the first and, only when that is on, the second. Both switches are off for no store, and each for a key that
  /// is not set. The store is not kept.
  explicit Preferences(const UserDefaults* defaults);

  /// Whether AI clients may be served at all.
  bool isEnabled() const noexcept { return isEnabled_; }

  /// Whether they may change the library; never true while `isEnabled` is false.
  bool allowsWrites() const noexcept { return allowsWrites_; }

  /// The store that holds the settings of a domain, which is `bundleID` for the application's: the process's own when
  /// `running`, its bundle identifier, is that domain, else the suite of that name. Nothing where the platform has no
  /// such store; it may be handed to the constructor all the same. `running` is nothing for a process without an
  /// identifier, such as a command-line program.
  static std::shared_ptr<const UserDefaults> defaults(std::string_view domain, std::optional<std::string_view> running);

  bool operator==(const Preferences&) const = default;

 private:
  bool isEnabled_;
  bool allowsWrites_;
};

}  // namespace kelvane
