#pragma once

#include <memory>
#include <optional>
#include <string_view>

#include "platform/UserDefaults.h"

namespace kelvane {

/// The user's two switches: whether AI clients are served, and whether they may write. A snapshot, which does not
/// follow later changes of the settings.
///
///     const Preferences preferences(Preferences::defaults(Preferences::bundleID, std::nullopt).get());
///     if (preferences.isEnabled()) serve(tools.tools(preferences.allowsWrites()));
class Preferences {
 public:
  /// The domain in which the application keeps its settings.
  static constexpr std::string_view bundleID = UserDefaults::applicationDomain;

  /// The keys of the two switches in that domain, for programs that write them.
  static constexpr std::string_view enabledKey = "mcpEnabled";
  static constexpr std::string_view allowsWritesKey = "mcpAllowsWrites";

  /// Reads the first switch and, only if that is on, the second. Both are off if `defaults` is null. The store is not
  /// used after the constructor returns. Throws only what the store throws.
  explicit Preferences(const UserDefaults* defaults);

  /// Whether AI clients are served at all.
  bool isEnabled() const noexcept { return isEnabled_; }

  /// Whether AI clients may change the library. Never true if `isEnabled` is false.
  bool allowsWrites() const noexcept { return allowsWrites_; }

  /// The settings of a domain; pass `bundleID` for those of the application. `running` is the identifier of the running
  /// process, or std::nullopt if it has none, like a command-line program. If it is canonically equivalent to the
  /// domain, the result is `UserDefaults::standard()`, otherwise `UserDefaults::suite(domain)`. Null if the platform
  /// has no such store; the constructor accepts that.
  static std::shared_ptr<const UserDefaults> defaults(std::string_view domain, std::optional<std::string_view> running);

  bool operator==(const Preferences&) const = default;

 private:
  bool isEnabled_;
  bool allowsWrites_;
};

}  // namespace kelvane
