#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/end-to-end/Client.h"
#include "tests/end-to-end/Folder.h"

namespace kelvane::tests {

/// A person's home that goes at the test's end, with a folder of scripts in it, and the program as it runs there.
class Home : public testing::Test {
 protected:
  Home() { std::filesystem::create_directories(home / "Scripts"); }

  Start start(std::vector<std::string> arguments) const {
    return {.arguments = std::move(arguments), .home = home.path(), .environment = {"TZ=Asia/Kolkata"}};
  }

  Outcome kelvane(std::vector<std::string> arguments) const { return run(start(std::move(arguments))); }

  /// For what has to succeed in silence on standard error: what it printed.
  std::string printed(std::vector<std::string> arguments) const {
    const Outcome outcome = kelvane(std::move(arguments));
    EXPECT_EQ(outcome.status, 0) << outcome;
    EXPECT_EQ(outcome.errors, "");
    return outcome.output;
  }

  /// A path in the home, as it is typed.
  std::string at(std::string_view name) const { return (home / name).native(); }

  static constexpr const char* settingsFile = ".config/kelvane/org.quorvel.Quorvel.json";

  Folder home;
};

}  // namespace kelvane::tests
