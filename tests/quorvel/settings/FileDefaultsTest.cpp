#include "quorvel/settings/FileDefaults.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "host/Preferences.h"
#include "quorvel/settings/FileChange.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/Files.h"
#include "tests/support/Sentence.h"
#include "tests/support/TemporaryFolder.h"

namespace quorvel {
namespace {

namespace fs = std::filesystem;
using kelvane::Preferences;
using kelvane::UserDefaults;
using kelvane::tests::TemporaryFolder;

void put(const fs::path& file, std::string_view text) {
  kelvane::tests::writeFile(file, text);
}

std::string got(const fs::path& file) {
  return kelvane::tests::bytesOf(file, "no file");
}

/// A home folder of its own, for as long as the test runs.
class Home {
 public:
  Home() {
    if (const char* home = std::getenv("HOME")) before_ = home;
    ::setenv("HOME", folder_.path().c_str(), 1);
  }
  ~Home() { before_ ? ::setenv("HOME", before_->c_str(), 1) : ::unsetenv("HOME"); }

  const fs::path& path() const { return folder_.path(); }
  fs::path settings(const std::string& domain = "org.quorvel.Quorvel") const {
    return path() / ".config/kelvane" / (domain + ".json");
  }

 private:
  TemporaryFolder folder_;
  std::optional<std::string> before_;
};

struct BoolCase {
  const char* value;
  bool isTrue;
};

TEST(FileDefaults, boolLikeValuesAreBools) {
  const BoolCase cases[] = {
      {"true", true},
      {"false", false},
      {"null", false},
      {"1", true},
      {"0", false},
      {"-0", false},
      {"0.0", false},
      {"0e9", false},
      {"-1", true},
      {"0.001", true},
      {"1e-999", true},
      {"2", true},
      {R"("YES")", true},
      {R"("yes")", true},
      {R"("yikes")", true},
      {R"("Y")", true},
      {R"("true")", true},
      {R"("T")", true},
      {R"("tomorrow")", true},
      {R"("1")", true},
      {R"("9 lives")", true},
      {R"("01")", true},
      {R"("-1")", true},
      {R"("+1")", true},
      {R"("-0001")", true},
      {R"("+00yes")", true},
      {R"("  \t 1")", true},
      {R"("\u00a0\u3000Y")", true},
      {R"("\u0059")", true},
      {R"("0")", false},
      {R"("000")", false},
      {R"("-0")", false},
      {R"("on")", false},
      {R"("")", false},
      {R"("  ")", false},
      {R"("-")", false},
      {R"("NO")", false},
      {R"("false")", false},
      {R"("x1")", false},
      {R"("--1")", false},
      {R"("+-1")", false},
      {R"("- 1")", false},
      {R"("0 1")", false},
      {R"("\n1")", false},
      {R"("\u06611")", false},
      {R"("\u0665")", false},
      {R"("Y\u0301")", false},
      {R"(["1"])", false},
      {"[true]", false},
      {R"({"value": true})", false},
  };
  const TemporaryFolder folder;
  const fs::path file = folder.path() / "s.json";
  for (const BoolCase& row : cases) {
    put(file, std::string(R"({"other": true, "key": )") + row.value + "}");
    const FileDefaults defaults(file);
    EXPECT_EQ(defaults.problem(), std::nullopt) << row.value;
    EXPECT_EQ(defaults.boolForKey("key"), row.isTrue) << row.value;
    EXPECT_FALSE(defaults.boolForKey("Key")) << row.value;
  }
}

TEST(FileDefaults, theLastOfEqualKeysCounts) {
  const TemporaryFolder folder;
  const fs::path file = folder.path() / "s.json";
  put(file, R"({"a": true, "b": "x", "a": false, "\u0062": "y"})");
  EXPECT_FALSE(FileDefaults(file).boolForKey("a"));
  EXPECT_EQ(FileDefaults(file).textForKey("b"), "y");
}

TEST(FileDefaults, onlyAStringIsReadAsAString) {
  const TemporaryFolder folder;
  const fs::path file = folder.path() / "s.json";
  put(file, R"({"a": "/home/\u00e9 \"x\"", "b": 1, "c": true, "d": null, "e": ""})");
  const FileDefaults defaults(file);
  EXPECT_EQ(defaults.textForKey("a"), "/home/\u00e9 \"x\"");
  EXPECT_EQ(defaults.textForKey("e"), "");
  for (const char* key : {"b", "c", "d", "f"}) EXPECT_EQ(defaults.textForKey(key), std::nullopt) << key;
}

struct FileCase {
  const char* description;
  const char* text;
};

TEST(FileDefaults, aMissingOrEmptyFileHasNoSettings) {
  const TemporaryFolder folder;
  const fs::path file = folder.path() / "none" / "s.json";
  EXPECT_FALSE(FileDefaults(file).boolForKey("a"));
  EXPECT_EQ(FileDefaults(file).problem(), std::nullopt);
  EXPECT_FALSE(fs::exists(file.parent_path()));
  put(file, "");
  EXPECT_FALSE(FileDefaults(file).boolForKey("a"));
  EXPECT_EQ(FileDefaults(file).problem(), std::nullopt);
}

TEST(FileDefaults, aDamagedFileHasNoSettingsAndIsCopiedBeforeAChange) {
  const FileCase cases[] = {
      {"cut short", R"({"mcpEnabled": true, "mcpAl)"},
      {"a comment", "{\n  // switches\n  \"mcpEnabled\": true\n}\n"},
      {"an array", R"([{"mcpEnabled": true}])"},
      {"a text", R"("mcpEnabled")"},
      {"null", "null"},
      {"blanks", " \n"},
      {"zeros, as a disk may leave after a power failure", "\x01\x01\x01"},
      {"not UTF-8", "{\"mcpEnabled\": true, \"x\": \"\xFF\"}"},
      {"two objects", R"({"mcpEnabled": true} {})"},
  };
  for (const FileCase& row : cases) {
    SCOPED_TRACE(row.description);
    const TemporaryFolder folder;
    const fs::path file = folder.path() / "s.json";
    put(file, row.text);
    FileDefaults defaults(file);
    EXPECT_FALSE(defaults.boolForKey("mcpEnabled"));
    EXPECT_EQ(defaults.textForKey("mcpEnabled"), std::nullopt);
    EXPECT_EQ(defaults.problem(),
              "The settings in \"" + file.native() +
                  "\" are damaged, so all of them are off. Fix the file, or set them again, which saves a copy of it.");
    EXPECT_EQ(got(file), row.text);

    EXPECT_EQ(defaults.set("a", true), file.native() + ".damaged");
    EXPECT_EQ(got(file), "{\n  \"a\": true\n}\n");
    EXPECT_EQ(got(file.native() + ".damaged"), row.text);
    EXPECT_EQ(defaults.problem(), std::nullopt);
    EXPECT_TRUE(defaults.boolForKey("a"));
    EXPECT_EQ(defaults.set("b", true), std::nullopt);

    put(file, "again");
    EXPECT_EQ(defaults.set("a", true), file.native() + ".damaged-2");
    put(file, "and again");
    EXPECT_EQ(defaults.set("a", true), file.native() + ".damaged-3");
    EXPECT_EQ(got(file.native() + ".damaged"), row.text);
    EXPECT_EQ(got(file.native() + ".damaged-2"), "again");
    EXPECT_EQ(got(file.native() + ".damaged-3"), "and again");
  }
}

TEST(FileDefaults, aDamagedFileIsCopiedOnceAndOnlyIfTheChangeSucceeds) {
  const TemporaryFolder folder;
  const fs::path file = folder.path() / "s.json";
  put(file, "damaged");
  ::chmod(file.c_str(), 0444);
  ::chmod(folder.path().c_str(), 0777);
  ASSERT_TRUE(::geteuid() != 0 || ::chown(file.c_str(), 65534, 65534) == 0);
  EXPECT_EQ(kelvane::tests::inChild([&]() -> std::string {
              kelvane::tests::becomeNobody();
              FileDefaults(file).set("a", true);
              return "set";
            }),
            "threw: \"" + file.native() +
                "\" could not be written, because the system does not permit it. Check who may read and write there.");
  EXPECT_FALSE(fs::exists(file.native() + ".damaged"));
  ::chmod(file.c_str(), 0644);
  for (int time = 0; time < 2; ++time) {
    put(file, "damaged");
    EXPECT_EQ(FileDefaults(file).set("a", true), file.native() + ".damaged");
  }
  EXPECT_FALSE(fs::exists(file.native() + ".damaged-2"));
}

TEST(FileDefaults, anUnreadableFileHasNoSettingsAndIsNotOverwritten) {
  const TemporaryFolder folder;
  const fs::path file = folder.path() / "s.json";
  fs::create_directory(file);
  FileDefaults defaults(file);
  const std::string sentence = '"' + file.native() + "\" is not a file. Move it away and try again.";
  EXPECT_FALSE(defaults.boolForKey("a"));
  EXPECT_EQ(defaults.problem(), sentence);
  EXPECT_EQ(kelvane::tests::sentenceOf<FileError>([&] { defaults.set("a", true); }), sentence);
}

TEST(FileDefaults, aChangeLeavesEveryOtherByte) {
  const struct {
    const char* description;
    const char* before;
    const char* after;
  } cases[] = {
      {"the first setting", "", "{\n  \"key\": true\n}\n"},
      {"another one in place", "{\"key\": \"no\", \"x\": 1.50}", "{\"key\": true, \"x\": 1.50}"},
      {"what others wrote", "{\r\n\t\"n\": 12345678901234567890,\r\n\t\"deep\": {\"a\": [1, {}]}\r\n}\r\n",
       "{\r\n\t\"n\": 12345678901234567890,\r\n\t\"deep\": {\"a\": [1, {}]},\r\n\t\"key\": true\r\n}\r\n"},
      {"the last of equal keys", R"({"key": 0, "key": 0})", R"({"key": 0, "key": true})"},
  };
  for (const auto& row : cases) {
    const TemporaryFolder folder;
    const fs::path file = folder.path() / "s.json";
    put(file, row.before);
    FileDefaults defaults(file);
    EXPECT_EQ(defaults.set("key", true), std::nullopt);
    EXPECT_EQ(got(file), row.after) << row.description;
    EXPECT_TRUE(defaults.boolForKey("key")) << row.description;
    EXPECT_TRUE(FileDefaults(file).boolForKey("key")) << row.description;
  }
}

TEST(FileDefaults, aSettingThatAnotherProgramChangedSinceStays) {
  const TemporaryFolder folder;
  const fs::path file = folder.path() / "s.json";
  FileDefaults one(file);
  FileDefaults other(file);
  one.set("a", true);
  other.set("b", "text \"\\\n\u00e9");
  one.set("c", false);
  EXPECT_TRUE(one.boolForKey("a"));
  EXPECT_EQ(one.textForKey("b"), "text \"\\\n\u00e9");
  EXPECT_FALSE(other.boolForKey("c"));
  EXPECT_EQ(got(file), "{\n  \"a\": true,\n  \"b\": \"text \\\"\\\\\\u000a\u00e9\",\n  \"c\": false\n}\n");
}

TEST(FileDefaults, aStringThatIsNotUTF8IsRefused) {
  const TemporaryFolder folder;
  const fs::path file = folder.path() / "s.json";
  FileDefaults defaults(file);
  EXPECT_THROW(defaults.set("libraryFolder", "/home/\xFF"), FileError);
  EXPECT_FALSE(fs::exists(file));
}

TEST(FileDefaults, newFoldersAndFilesAreForTheOwnerOnlyAndAModeStays) {
  const Home home;
  const auto defaults = FileDefaults::domain("org.example.Reader");
  ASSERT_NE(defaults, nullptr);
  EXPECT_EQ(defaults->file(), home.settings("org.example.Reader"));
  defaults->set("a", true);
  const auto mode = [](const fs::path& path) {
    struct stat status {};
    return ::stat(path.c_str(), &status) == 0 ? status.st_mode & 07777U : 0;
  };
  EXPECT_EQ(mode(home.path() / ".config"), 0700U);
  EXPECT_EQ(mode(home.path() / ".config/kelvane"), 0700U);
  EXPECT_EQ(mode(defaults->file()), 0600U);
  ::chmod(defaults->file().c_str(), 0644);
  defaults->set("a", false);
  EXPECT_EQ(mode(defaults->file()), 0644U);
}

TEST(FileDefaults, aLinkStaysALink) {
  const Home home;
  fs::create_directories(home.path() / "dotfiles");
  fs::create_directories(home.settings().parent_path());
  fs::create_symlink("../../dotfiles/kelvane.json", home.settings());
  FileDefaults(home.settings()).set("a", true);
  EXPECT_TRUE(fs::is_symlink(home.settings()));
  EXPECT_EQ(got(home.path() / "dotfiles/kelvane.json"), "{\n  \"a\": true\n}\n");
}

TEST(FileDefaults, theFolderThatCannotBeMadeIsNamed) {
  const Home home;
  put(home.path() / ".config", "a file");
  const auto defaults = FileDefaults::domain("org.example.Reader");
  EXPECT_FALSE(defaults->boolForKey("a"));
  EXPECT_EQ(kelvane::tests::sentenceOf<FileError>([&] { defaults->set("a", true); }),
            "The folder \"" + (home.path() / ".config/kelvane").native() + "\" could not be made, because \"" +
                (home.path() / ".config").native() + "\" is not a folder. Move it away and try again.");
  EXPECT_EQ(got(home.path() / ".config"), "a file");
}

TEST(UserDefaults, aDomainThatIsNotAFileNameIsRefused) {
  const Home home;
  for (const std::string& name :
       {std::string(""), std::string("."), std::string(".."), std::string(".hidden"), std::string("a/b"),
        std::string("/"), std::string("../x"), std::string("a\0b", 3), std::string("\0", 1)}) {
    EXPECT_EQ(UserDefaults::suite(name), nullptr) << ::testing::PrintToString(name);
    EXPECT_EQ(Preferences(UserDefaults::suite(name).get()), Preferences(nullptr));
  }
  for (const char* name : {"a", "org.example.Reader", "a b", "a..b", "\u00e9", "a\\b", "-"}) {
    EXPECT_NE(UserDefaults::suite(name), nullptr) << name;
  }
  EXPECT_TRUE(fs::is_empty(home.path()));
}

TEST(UserDefaults, thereAreNoneWithoutAHomeFolder) {
  if (::geteuid() != 0) GTEST_SKIP() << "Only root can become a user of no database.";
  EXPECT_EQ(kelvane::tests::inChild([]() -> std::string {
              ::unsetenv("HOME");
              if (::setuid(3'999'999'999) != 0) return "root's rights could not be given up";
              return UserDefaults::standard() || UserDefaults::suite("a") ? "some" : "none";
            }),
            "none");
}

TEST(UserDefaults, everyProcessReadsTheSwitchesOfTheApplication) {
  const Home home;
  put(home.settings(), R"({"mcpEnabled": "YES", "mcpAllowsWrites": 1})");
  put(home.settings("org.example.Reader"), R"({"mcpEnabled": true})");
  const struct {
    const char* description;
    std::string_view bundleID;
    std::optional<std::string_view> running;
    bool isEnabled;
    bool allowsWrites;
  } cases[] = {
      {"the application", Preferences::bundleID, Preferences::bundleID, true, true},
      {"a program without an identifier", Preferences::bundleID, std::nullopt, true, true},
      {"another application", Preferences::bundleID, "org.example.Reader", true, true},
      {"another domain", "org.example.Reader", std::nullopt, true, false},
      {"a domain that is not there", "org.example.None", std::nullopt, false, false},
  };
  for (const auto& row : cases) {
    const Preferences preferences(Preferences::defaults(row.bundleID, row.running).get());
    EXPECT_EQ(preferences.isEnabled(), row.isEnabled) << row.description;
    EXPECT_EQ(preferences.allowsWrites(), row.allowsWrites) << row.description;
  }
}

TEST(UserDefaults, theXDGVariablesDoNotMoveThem) {
  const Home home;
  const std::string answer = kelvane::tests::inChild([&]() -> std::string {
    for (const char* name : {"XDG_CONFIG_HOME", "XDG_DATA_HOME", "XDG_CONFIG_DIRS"}) ::setenv(name, "/elsewhere", 1);
    return FileDefaults::domain("a")->file().native();
  });
  EXPECT_EQ(answer, home.settings("a").native());
}

}  // namespace
}  // namespace quorvel
