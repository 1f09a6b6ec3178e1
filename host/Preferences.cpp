#include "host/Preferences.h"

#include "platform/Unicode.h"

namespace kelvane {

Preferences::Preferences(const UserDefaults* defaults)
    : isEnabled_(defaults != nullptr && defaults->boolForKey("mcpEnabled")),
      allowsWrites_(isEnabled_ && defaults->boolForKey("mcpAllowsWrites")) {
}

std::shared_ptr<const UserDefaults> Preferences::defaults(std::string_view bundleID,
                                                          std::optional<std::string_view> running) {
  if (running && unicode::equivalent(*running, bundleID)) return UserDefaults::standard();
  return UserDefaults::suite(bundleID);
}

}  // namespace kelvane
