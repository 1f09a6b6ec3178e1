#pragma once

#include <memory>
#include <string_view>

namespace kelvane {

/// A read-only view of an application's settings: values under string keys, grouped in domains. A domain is named like
/// the application, such as "org.example.Reader".
///
/// An application derives from this class and defines the two static operations over the store that it has. A program
/// links one definition of them: its own, or the one in `quorvel/settings`, which keeps each domain in a file. The
/// module calls them through `Preferences::defaults` only, and never writes a setting.
///
/// # Example
///
///     class RegistryDefaults final : public kelvane::UserDefaults {
///      public:
///       bool boolForKey(std::string_view key) const override { return registry_.flag(key).value_or(false); }
///       …
///     };
///
///     std::shared_ptr<const UserDefaults> UserDefaults::standard() { return std::make_shared<RegistryDefaults>(); }
class UserDefaults {
 public:
  /// The domain of the application whose scripts are served.
  static constexpr std::string_view applicationDomain = "org.quorvel.Quorvel";

  UserDefaults() = default;
  UserDefaults(const UserDefaults&) = delete;
  UserDefaults& operator=(const UserDefaults&) = delete;
  virtual ~UserDefaults() = default;

  /// The Bool under the key, compared byte for byte. False if there is no such key, or if its value does not stand for
  /// a Bool; the store decides which values do. Must not throw for a missing or damaged store: that reads as false.
  ///
  /// The module calls it on the thread that makes a `Preferences`, and at no other time.
  virtual bool boolForKey(std::string_view key) const = 0;

  /// The settings of the running application. Null if the system has no place for them.
  static std::shared_ptr<const UserDefaults> standard();

  /// The settings of the named domain, whichever application is running. Null if no domain can have that name. A domain
  /// without settings is not null: all its keys are false.
  static std::shared_ptr<const UserDefaults> suite(std::string_view name);
};

}  // namespace kelvane
