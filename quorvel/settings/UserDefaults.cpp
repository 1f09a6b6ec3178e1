#include "platform/UserDefaults.h"

#include "quorvel/settings/FileDefaults.h"

namespace kelvane {

std::shared_ptr<const UserDefaults> UserDefaults::standard() {
  return suite(applicationDomain);
}

std::shared_ptr<const UserDefaults> UserDefaults::suite(std::string_view name) {
  return quorvel::FileDefaults::domain(name);
}

}  // namespace kelvane
