#pragma once

#include <memory>
#include <string_view>

namespace kelvane {

/// What the module asks of the place where an application's settings live: a domain, named like the application
/// ("org.example.Reader"), that holds values under keys. The module only reads. Declared here; the application defines
/// the two static operations over the store that it has, or `quorvel/settings` does over one file per domain.
class UserDefaults {
 public:
  UserDefaults() = default;
  UserDefaults(const UserDefaults&) = delete;
  UserDefaults& operator=(const UserDefaults&) = delete;
  virtual ~UserDefaults() = default;

  /// The Bool under the key, which is compared letter by letter; false when there is none, or a value that is not
  /// Bool-like. Never fails.
  virtual bool boolForKey(std::string_view key) const = 0;

  /// The settings of the application that this process is; nothing where the system has no place for them.
  static std::shared_ptr<const UserDefaults> standard();

  /// The settings of the domain with that name, whichever process asks; nothing for a name that no domain can have.
  static std::shared_ptr<const UserDefaults> suite(std::string_view name);
};

}  // namespace kelvane
