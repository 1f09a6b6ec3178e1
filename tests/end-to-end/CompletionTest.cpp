#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <optional>

#include "tests/end-to-end/Home.h"

namespace kelvane::tests {
namespace {

class Completions : public Home {
 protected:
  Completions() {
    home.put("Scripts/Talks/Opening night.md", "one");
    home.put("Scripts/Closing.md", "two");
    printed({"settings", "library", at("Scripts")});
    printed({"call", "update_script", "id=Closing.md", "text=x", "note=n", "--allow-writes"});
  }

  std::string complete(std::vector<std::string> typed) const {
    typed.insert(typed.begin(), {"complete", "--"});
    return printed(std::move(typed));
  }
};

TEST_F(Completions, knowScriptsAndVersions) {
  EXPECT_EQ(complete({"history", ""}), "Talks/Opening night.md\nClosing.md\n");
  EXPECT_EQ(complete({"show", "C"}), "Closing.md\n");
  EXPECT_EQ(complete({"show", "Closing", ""}), "1\n");
  EXPECT_EQ(complete({"list", ""}), "Talks\n");
  EXPECT_EQ(complete({"connect", ""}), "claude\ncodex\n");
  EXPECT_EQ(complete({"call", "read_chapter", "c"}), "chapter=\n");
}

TEST_F(Completions, areEmptyWhereNothingIsKnown) {
  EXPECT_EQ(complete({"show", "Nowhere", ""}), "");
  EXPECT_EQ(complete({"history", "--library", at("nowhere"), ""}), "");
}

/// The same, at a real shell.
class ShellCompletions : public Completions {
 protected:
  ShellCompletions() {
    home.put("Scripts/Opera: one.md", "three");
    home.put("Scripts/Opera: two.md", "four");
    home.put("Scripts/Cost $5 \"a\" it's.md", "five");
    home.put("Other/Quiet.md", "six");
    printed({"call", "update_script", "id=Talks/Opening night.md", "text=x", "note=n", "--allow-writes"});
  }

  struct Case {
    const char* typed;      // behind the program's name, with a tab where it is typed
    const char* completed;  // the arguments that the program gets
  };
  static std::vector<Case> cases() {
    return {
        {"his\t", "<history>"},
        {"history Ta\t", "<history><Talks/Opening night.md>"},
        {"call read_script i\t", "<call><read_script><id=>"},
        {"history Talks/Opening\\ n\t", "<history><Talks/Opening night.md>"},
        {"history Op\to\t", "<history><Opera: one.md>"},
        {"history Opera:\\ o\t", "<history><Opera: one.md>"},
        {"history \"Talks/Opening n\t", "<history><Talks/Opening night.md>"},
        {"history 'Talks/Opening n\t", "<history><Talks/Opening night.md>"},
        {"history \"Opera: o\t", "<history><Opera: one.md>"},
        {"history \"Cost\t", "<history><Cost $5 \"a\" it's.md>"},
        {"history \"Cost \\$5 \\\"\t", "<history><Cost $5 \"a\" it's.md>"},
        {"history 'Cost $5 \"\t", "<history><Cost $5 \"a\" it's.md>"},
        {"history Cost\t", "<history><Cost $5 \"a\" it's.md>"},
        {"show Talks/Opening\\ night.md \t", "<show><Talks/Opening night.md><1>"},
        {"show \"Talks/Opening night.md\" \t", "<show><Talks/Opening night.md><1>"},
        {"history --library ~/Other Q\t", "<history><--library><~/Other><Quiet.md>"},
        {"history --library=Oth\tx", "<history><--library=Other/x>"},
        {"history --library Oth\tx", "<history><--library><Other/x>"},
        {"setup --client=cl\t", "<setup><--client=claude>"},
        {"history Nowhere\t", "<history><Nowhere>"},
    };
  }

  /// What the program is called with if this is typed at a shell. Empty if the shell cannot be tried here.
  std::optional<std::string> argumentsOf(const std::string& typed, const std::string& shell,
                                         std::vector<std::string> shellArguments, const std::string& before) const {
    const std::string setsid = "/usr/bin/setsid";
    if (!std::filesystem::exists(setsid) || !std::filesystem::exists("/bin/" + shell)) return std::nullopt;
    const int terminal = ::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    if (terminal < 0 || ::grantpt(terminal) != 0 || ::unlockpt(terminal) != 0) return std::nullopt;
    const int end = ::open(::ptsname(terminal), O_RDWR | O_NOCTTY | O_CLOEXEC);
    const std::string bin = std::filesystem::path(KELVANE_PROGRAM).parent_path();
    // The shell calls the program to complete a word, and notes what the finished line would call it with.
    home.put(".zshrc",
             before + "source <(command kelvane completions " + shell +
                 ")\ntilde='~'\nkelvane() { if [ \"$1\" = complete ]; then command kelvane \"$@\"; else printf '<%s>' "
                 "\"${@/#$HOME/$tilde}\" >~/typed; fi; }\n");
    home.put("typed", "");
    // Should a quotation be left open, the next quotation mark ends it, and then the shell.
    const std::string keys = "kelvane " + typed + "\nexit\n\"\nexit\n'\nexit\n";
    EXPECT_EQ(::write(terminal, keys.data(), keys.size()), static_cast<ssize_t>(keys.size()));
    shellArguments.insert(shellArguments.begin(), {"--ctty", "--wait", "/bin/" + shell});
    Start how = start(std::move(shellArguments));
    how.program = setsid;
    how.folder = home.path();
    how.input = end;
    how.environment.insert(how.environment.end(), {"PATH=" + bin + ":/usr/bin:/bin", "TERM=xterm", "LC_ALL=C.UTF-8"});
    run(how);
    ::close(end);
    ::close(terminal);
    return home.bytes("typed");
  }
};

TEST_F(ShellCompletions, workInBash) {
  for (const auto& [typed, completed] : cases()) {
    const auto arguments = argumentsOf(typed, "bash", {"--noprofile", "--rcfile", at(".zshrc"), "-i"}, "");
    if (!arguments) GTEST_SKIP() << "bash or terminals are not here";
    EXPECT_EQ(*arguments, completed) << typed;
  }
}

TEST_F(ShellCompletions, workInZsh) {
  for (const auto& [typed, completed] : cases()) {
    const auto arguments = argumentsOf(typed, "zsh", {"-i"}, "autoload -Uz compinit; compinit -u\n");
    if (!arguments) GTEST_SKIP() << "zsh or terminals are not here";
    EXPECT_EQ(*arguments, completed) << typed;
  }
}

}  // namespace
}  // namespace kelvane::tests
