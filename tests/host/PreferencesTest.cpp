#include "host/Preferences.h"

#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

namespace kelvane {
namespace {

using Values = std::map<std::string, bool, std::less<>>;
using Keys = std::vector<std::string>;

/// A store of Bools that records the keys that are read.
class FakeDefaults : public UserDefaults {
 public:
  explicit FakeDefaults(Values values) : values_(std::move(values)) {}

  bool boolForKey(std::string_view key) const override {
    read.emplace_back(key);
    const auto found = values_.find(key);
    return found != values_.end() && found->second;
  }

  mutable Keys read;

 private:
  Values values_;
};

/// The stores that this test program returns as the platform's, and the names of the suites that were requested.
struct Platform {
  std::shared_ptr<const UserDefaults> standard = std::make_shared<FakeDefaults>(Values{});
  std::map<std::string, std::shared_ptr<const UserDefaults>, std::less<>> suites;
  Keys asked;
};

Platform& platform() {
  static Platform instance;
  return instance;
}

}  // namespace

std::shared_ptr<const UserDefaults> UserDefaults::standard() {
  return platform().standard;
}

std::shared_ptr<const UserDefaults> UserDefaults::suite(std::string_view name) {
  platform().asked.emplace_back(name);
  const auto found = platform().suites.find(name);
  return found != platform().suites.end() ? found->second : nullptr;
}

namespace {

struct SwitchesCase {
  const char* description;
  Values values;
  bool isEnabled;
  bool allowsWrites;
  Keys read;
};

TEST(Preferences, readTheSecondSwitchOnlyIfTheFirstIsOn) {
  const SwitchesCase cases[] = {
      {"neither switch is set", {}, false, false, {"mcpEnabled"}},
      {"writes without the server", {{"mcpAllowsWrites", true}}, false, false, {"mcpEnabled"}},
      {"writes with the server off", {{"mcpEnabled", false}, {"mcpAllowsWrites", true}}, false, false, {"mcpEnabled"}},
      {"the server alone", {{"mcpEnabled", true}}, true, false, {"mcpEnabled", "mcpAllowsWrites"}},
      {"the server, writes off",
       {{"mcpEnabled", true}, {"mcpAllowsWrites", false}},
       true,
       false,
       {"mcpEnabled", "mcpAllowsWrites"}},
      {"both", {{"mcpEnabled", true}, {"mcpAllowsWrites", true}}, true, true, {"mcpEnabled", "mcpAllowsWrites"}},
      {"keys in other letters", {{"MCPEnabled", true}, {"mcpenabled", true}}, false, false, {"mcpEnabled"}},
  };
  for (const SwitchesCase& row : cases) {
    SCOPED_TRACE(row.description);
    const FakeDefaults defaults(row.values);
    const Preferences preferences(&defaults);
    EXPECT_EQ(preferences.isEnabled(), row.isEnabled);
    EXPECT_EQ(preferences.allowsWrites(), row.allowsWrites);
    EXPECT_EQ(defaults.read, row.read);
  }
}

TEST(Preferences, areOffWithoutAStore) {
  const Preferences preferences(nullptr);
  EXPECT_FALSE(preferences.isEnabled());
  EXPECT_FALSE(preferences.allowsWrites());
}

TEST(Preferences, doNotFollowLaterChangesOfTheStore) {
  auto defaults = std::make_unique<FakeDefaults>(Values{{"mcpEnabled", true}, {"mcpAllowsWrites", true}});
  const Preferences preferences(defaults.get());
  const Preferences copy = preferences;
  defaults.reset();
  EXPECT_EQ(copy, preferences);
  EXPECT_TRUE(copy.isEnabled() && copy.allowsWrites());
  EXPECT_NE(copy, Preferences(nullptr));
}

struct StoreCase {
  const char* description;
  std::string bundleID;
  std::optional<std::string_view> running;
  bool isStandard;
};

TEST(Preferences, useTheStandardStoreOnlyInTheApplicationItself) {
  const StoreCase cases[] = {
      {"the application", "org.example.Reader", "org.example.Reader", true},
      {"a command-line program", "org.example.Reader", std::nullopt, false},
      {"another application", "org.example.Reader", "org.example.Other", false},
      {"other letter case", "org.example.Reader", "org.example.reader", false},
      {"a longer name", "org.example.Reader", "org.example.Reader.helper", false},
      {"an empty name", "org.example.Reader", "", false},
      {"both empty", "", "", true},
      {"two spellings of one text", "org.example.Caf\u00E9", "org.example.Cafe\u0301", true},
      {"ours", std::string(Preferences::bundleID), Preferences::bundleID, true},
  };
  for (const StoreCase& row : cases) {
    SCOPED_TRACE(row.description);
    const auto suite = std::make_shared<FakeDefaults>(Values{});
    platform().suites = {{row.bundleID, suite}};
    platform().asked.clear();
    const auto store = Preferences::defaults(row.bundleID, row.running);
    EXPECT_EQ(store, row.isStandard ? platform().standard : suite);
    EXPECT_EQ(platform().asked, row.isStandard ? Keys{} : Keys{row.bundleID});
  }
}

TEST(Preferences, areOffIfThePlatformHasNoSuite) {
  platform().suites.clear();
  const auto store = Preferences::defaults("..", std::nullopt);
  EXPECT_EQ(store, nullptr);
  EXPECT_EQ(Preferences(store.get()), Preferences(nullptr));
}

TEST(Preferences, useADomainInReverseDNSForm) {
  EXPECT_EQ(Preferences::bundleID, "org.quorvel.Quorvel");
}

}  // namespace
}  // namespace kelvane
