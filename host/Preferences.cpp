#include "host/Preferences.h"

#include "platform/Unicode.h"

namespace kelvane {

Preferences::Preferences(const UserDefaults* defaults)
    : isEnabled_(defaults != nullptr && defaults->boolForKey(enabledKey)),
      allowsWrites_(isEnabled_ && defaults->boolForKey(allowsWritesKey)) {
}

std::shared_ptr<const UserDefaults> Preferences::defaults(std::string_view domain,
                                                          std::optional<std::string_view> running) {
  if (running && unicode::equivalent(*running, domain)) return UserDefaults::standard();
  return UserDefaults::suite(domain);
}

}  // namespace kelvane
