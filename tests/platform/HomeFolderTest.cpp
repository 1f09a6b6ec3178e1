#include "platform/HomeFolder.h"

#include <gtest/gtest.h>
#include <pwd.h>
#include <unistd.h>

#include <cstdlib>

#include "tests/support/ChildProcess.h"

namespace kelvane {
namespace {

std::string homeWith(const char* variable) {
  return tests::inChild([variable]() -> std::string {
    if (variable != nullptr) {
      ::setenv("HOME", variable, 1);
    } else {
      ::unsetenv("HOME");
    }
    ::setenv("XDG_CONFIG_HOME", "/elsewhere", 1);
    const auto home = homeFolder();
    return home ? home->native() : "none";
  });
}

TEST(HomeFolder, isTheAbsolutePathInHOME) {
  EXPECT_EQ(homeWith("/home/ada"), "/home/ada");
  EXPECT_EQ(homeWith("/"), "/");
}

TEST(HomeFolder, isTheOneInTheUserDatabaseIfHOMENamesNone) {
  const struct passwd* entry = ::getpwuid(::getuid());
  if (entry == nullptr) GTEST_SKIP() << "The user who runs this is in no user database.";
  for (const char* variable : {static_cast<const char*>(nullptr), "", "ada", "./home", "~"}) {
    EXPECT_EQ(homeWith(variable), entry->pw_dir) << (variable ? variable : "not set");
  }
}

TEST(HomeFolder, isMissingForAUserWhoIsNotInTheDatabase) {
  if (::geteuid() != 0) GTEST_SKIP() << "Only root can become a user of no database.";
  const uid_t unknown = 3'999'999'999;
  if (::getpwuid(unknown) != nullptr) GTEST_SKIP() << "The user database knows every user.";
  EXPECT_EQ(tests::inChild([]() -> std::string {
              ::unsetenv("HOME");
              if (::setuid(unknown) != 0) return "root's rights could not be given up";
              return homeFolder() ? "some" : "none";
            }),
            "none");
}

}  // namespace
}  // namespace kelvane
