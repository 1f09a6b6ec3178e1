#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <functional>
#include <iostream>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "tests/end-to-end/Client.h"
#include "tests/end-to-end/Folder.h"
#include "tests/support/Random.h"
#include "tests/support/RowName.h"

namespace kelvane::tests {
namespace {

using testing::HasSubstr;

/// How many calls all clients of a test make together, so that more clients take no longer.
constexpr int callsOfAll = 64;

/// Calls until the library is not busy, which on a slow machine it may be for longer than a call waits.
Answer callPatiently(Client& client, std::string_view tool, const JSON::Object& arguments) {
  Answer answer;
  for (int time = 0; time < 20; ++time) {
    answer = client.call(tool, arguments);
    if (!answer.isError || answer.text.find("busy") == std::string::npos) break;
  }
  return answer;
}

std::vector<std::string> linesOf(const std::string& text) {
  std::vector<std::string> lines;
  for (std::size_t begin = 0; begin < text.size();) {
    const std::size_t end = std::min(text.find('\n', begin), text.size());
    if (end > begin) lines.push_back(text.substr(begin, end - begin));
    begin = end + 1;
  }
  return lines;
}

/// Of the item that the answer tells of.
std::string identifierIn(const Answer& answer) {
  const JSON item = JSON::decoded(answer.text).value_or(nullptr);
  const JSON* id = item["id"];
  return id == nullptr ? std::string() : std::string(*id->string());
}

struct Version {
  std::string name;
  std::size_t words;
};

/// As many servers as the parameter says, all on one library, each with a client on a thread of its own.
class Concurrency : public testing::TestWithParam<int> {
 protected:
  int clients() const { return GetParam(); }
  int calls() const { return callsOfAll / clients(); }

  /// Lets each client do this at the same time; servers must then end well.
  void atOnce(const std::function<void(Client& client, int number)>& work) {
    std::vector<std::unique_ptr<Client>> all;
    for (int number = 0; number < clients(); ++number) all.push_back(std::make_unique<Client>(library.text(), true));
    std::vector<std::thread> threads;
    for (int number = 0; number < clients(); ++number) {
      threads.emplace_back([&, number] {
        try {
          work(*all[static_cast<std::size_t>(number)], number);
          all[static_cast<std::size_t>(number)]->finish();
        } catch (const std::exception& error) {
          ADD_FAILURE() << "client " << number << ": " << error.what();
        }
      });
    }
    for (std::thread& thread : threads) thread.join();
  }

  /// The oldest first.
  std::vector<Version> versions(std::string_view id) {
    Client client(library.text());
    const Answer answer = client.call("list_versions", {{"id", id}});
    EXPECT_FALSE(answer.isError) << answer.text;
    const JSON list = JSON::decoded(answer.text).value_or(JSON::Array());
    std::vector<Version> versions;
    for (const JSON& version : *list.items()) {
      versions.push_back(
          {std::string(*version["name"]->string()), static_cast<std::size_t>(*version["words"]->number())});
    }
    std::reverse(versions.begin(), versions.end());
    client.finish();
    return versions;
  }

  Folder library;
};

/// A word that tells one call of one client from all others.
std::string mark(int client, int call) {
  return "client-" + std::to_string(client) + "-call-" + std::to_string(call);
}

TEST_P(Concurrency, everyAppendIsInTheTextAndAddsOneVersion) {
  library.put("Talk.md", "start");
  atOnce([&](Client& client, int number) {
    for (int call = 0; call < calls(); ++call) {
      const std::string line = mark(number, call);
      const Answer answer =
          callPatiently(client, "append_to_script", {{"id", "Talk.md"}, {"text", line}, {"note", line}});
      EXPECT_FALSE(answer.isError) << answer.text;
    }
  });

  std::vector<std::string> lines = linesOf(library.bytes("Talk.md"));
  ASSERT_EQ(lines.size(), static_cast<std::size_t>(callsOfAll) + 1);
  EXPECT_EQ(lines.front(), "start");
  const std::vector<Version> kept = versions("Talk.md");
  ASSERT_EQ(kept.size(), static_cast<std::size_t>(callsOfAll));
  // The version that an append kept is called after it and holds what stood before its line.
  for (std::size_t index = 0; index < kept.size(); ++index) {
    EXPECT_EQ(kept[index].name, "Before — " + lines[index + 1]);
    EXPECT_EQ(kept[index].words, index + 1);
  }
  std::vector<int> next(static_cast<std::size_t>(clients()), 0);
  for (std::size_t index = 1; index < lines.size(); ++index) {
    for (int number = 0; number < clients(); ++number) {
      int& call = next[static_cast<std::size_t>(number)];
      if (lines[index] == mark(number, call)) ++call;
    }
  }
  EXPECT_EQ(next, std::vector<int>(static_cast<std::size_t>(clients()), calls())) << "a client's own order is kept";
}

TEST_P(Concurrency, everyReplacementKeepsTheTextThatItReplaced) {
  library.put("Talk.md", "start");
  // Each text is as many words as no other, so that the versions' counts tell which text they are.
  const auto wordsOf = [&](int number, int call) { return static_cast<std::size_t>(2 + call * clients() + number); };
  atOnce([&](Client& client, int number) {
    for (int call = 0; call < calls(); ++call) {
      std::string text = mark(number, call);
      for (std::size_t word = 1; word < wordsOf(number, call); ++word) text += " word";
      const Answer answer =
          callPatiently(client, "update_script", {{"id", "Talk.md"}, {"text", text}, {"note", mark(number, call)}});
      EXPECT_FALSE(answer.isError) << answer.text;
    }
  });

  const std::vector<Version> kept = versions("Talk.md");
  ASSERT_EQ(kept.size(), static_cast<std::size_t>(callsOfAll));
  std::map<std::string, std::size_t> wordsByLabel;
  for (int number = 0; number < clients(); ++number) {
    for (int call = 0; call < calls(); ++call) {
      wordsByLabel["Before — " + mark(number, call)] = wordsOf(number, call);
    }
  }
  std::size_t words = 1;  // of "start"
  for (const Version& version : kept) {
    EXPECT_EQ(version.words, words) << version.name;
    ASSERT_EQ(wordsByLabel.count(version.name), 1u) << version.name << " was not asked for, or kept twice";
    words = wordsByLabel[version.name];
    wordsByLabel.erase(version.name);
  }
  const std::string last = library.bytes("Talk.md");
  EXPECT_THAT(kept.back().name, HasSubstr(last.substr(0, last.find(' '))));
}

TEST_P(Concurrency, noNameIsTakenTwiceByThoseWhoCreate) {
  std::vector<std::vector<std::string>> made(static_cast<std::size_t>(clients()));
  atOnce([&](Client& client, int number) {
    for (int call = 0; call < calls(); ++call) {
      const bool isFolder = call % 4 == 3;
      const Answer answer =
          isFolder ? callPatiently(client, "create_folder", {{"name", "New"}})
                   : callPatiently(client, "create_script", {{"name", "New"}, {"text", mark(number, call)}});
      ASSERT_FALSE(answer.isError) << answer.text;
      const std::string id = identifierIn(answer);
      made[static_cast<std::size_t>(number)].push_back(id);
      if (!isFolder) {
        EXPECT_EQ(library.bytes(id), mark(number, call));
      }
    }
  });

  std::set<std::string> names, expected;
  for (const auto& each : made) names.insert(each.begin(), each.end());
  const int folders = callsOfAll / 4, scripts = callsOfAll - folders;
  for (int index = 1; index <= scripts; ++index) {
    expected.insert(index == 1 ? "New.md" : "New " + std::to_string(index) + ".md");
  }
  for (int index = 1; index <= folders; ++index) expected.insert(index == 1 ? "New" : "New " + std::to_string(index));
  EXPECT_EQ(names, expected);
}

TEST_P(Concurrency, noNameIsTakenTwiceByThoseWhoRename) {
  for (int number = 0; number < clients(); ++number) {
    library.put("Script " + mark(number, 0) + ".md", mark(number, 0));
  }
  // All want the same two names in turn, which leaves each with a number.
  atOnce([&](Client& client, int number) {
    std::string id = "Script " + mark(number, 0) + ".md";
    for (int call = 0; call < calls() / 2; ++call) {
      const Answer answer = callPatiently(client, "rename", {{"id", id}, {"name", call % 2 == 0 ? "Even" : "Odd"}});
      ASSERT_FALSE(answer.isError) << answer.text;
      id = identifierIn(answer);
      EXPECT_EQ(library.bytes(id), mark(number, 0));
    }
  });
  std::set<std::string> texts;
  for (const auto& entry : std::filesystem::directory_iterator(library.path())) {
    if (entry.is_regular_file()) texts.insert(library.bytes(entry.path().filename().native()));
  }
  EXPECT_EQ(texts.size(), static_cast<std::size_t>(clients()));
}

TEST_P(Concurrency, whoWritesWhileFoldersAreRenamedLosesNothing) {
  library.put("Left/Talk.md", "start");
  atOnce([&](Client& client, int number) {
    if (number == 0) {
      for (int call = 0; call < calls(); ++call) {
        const bool isLeft = call % 2 == 0;
        const Answer answer =
            callPatiently(client, "rename", {{"id", isLeft ? "Left" : "Right"}, {"name", isLeft ? "Right" : "Left"}});
        EXPECT_FALSE(answer.isError) << answer.text;
      }
      return;
    }
    for (int call = 0; call < calls(); ++call) {
      const std::string line = mark(number, call);
      for (int time = 0;; ++time) {
        const std::string id = time % 2 == 0 ? "Left/Talk.md" : "Right/Talk.md";
        const Answer answer = callPatiently(client, "append_to_script", {{"id", id}, {"text", line}, {"note", line}});
        if (!answer.isError) break;
        ASSERT_EQ(answer.text, "Nothing at \"" + id + "\"");
      }
    }
  });

  const std::string id = calls() % 2 == 0 ? "Left/Talk.md" : "Right/Talk.md";
  const std::vector<std::string> lines = linesOf(library.bytes(id));
  std::vector<std::string> expected = {"start"};
  for (int number = 1; number < clients(); ++number) {
    for (int call = 0; call < calls(); ++call) expected.push_back(mark(number, call));
  }
  EXPECT_THAT(lines, testing::UnorderedElementsAreArray(expected));
  const std::vector<Version> kept = versions(id);
  ASSERT_EQ(kept.size(), lines.size() - 1);
  for (std::size_t index = 0; index < kept.size(); ++index) EXPECT_EQ(kept[index].name, "Before — " + lines[index + 1]);
}

TEST_P(Concurrency, everythingAtOnceLosesNothing) {
  std::mt19937_64 seeds = seededGenerator();
  std::vector<std::mt19937_64> randoms;
  for (int number = 0; number < clients(); ++number) randoms.emplace_back(seeds());
  std::vector<std::vector<std::string>> appended(static_cast<std::size_t>(clients()));
  library.put("Shared.md", "# Shared\n\nstart\n");
  atOnce([&](Client& client, int number) {
    std::mt19937_64& random = randoms[static_cast<std::size_t>(number)];
    std::string own;
    for (int call = 0; call < calls(); ++call) {
      const std::string line = mark(number, call);
      Answer answer;
      switch (own.empty() ? 0 : below(6, random)) {
        case 0:
          answer = callPatiently(client, "create_script", {{"name", "Own"}, {"text", "# Own\n\nwords"}});
          if (!answer.isError) own = identifierIn(answer);
          break;
        case 1:
          answer = callPatiently(client, "rename", {{"id", own}, {"name", below(2, random) == 0 ? "One" : "Two"}});
          if (!answer.isError) own = identifierIn(answer);
          break;
        case 2:
          answer = callPatiently(client, "update_chapter", {{"id", own}, {"chapter", "1"}, {"text", line}});
          break;
        case 3:
          answer = callPatiently(client, "list_scripts", {});
          break;
        default:
          answer = callPatiently(client, "append_to_script", {{"id", "Shared.md"}, {"text", line}, {"note", line}});
          if (!answer.isError) appended[static_cast<std::size_t>(number)].push_back(line);
      }
      EXPECT_FALSE(answer.isError) << answer.text;
    }
  });
  const std::vector<std::string> lines = linesOf(library.bytes("Shared.md"));
  std::vector<std::string> expected = {"# Shared", "start"};
  for (const auto& each : appended) expected.insert(expected.end(), each.begin(), each.end());
  EXPECT_THAT(lines, testing::UnorderedElementsAreArray(expected));
  const std::vector<Version> kept = versions("Shared.md");
  ASSERT_EQ(kept.size(), lines.size() - 2);
  for (std::size_t index = 0; index < kept.size(); ++index) EXPECT_EQ(kept[index].name, "Before — " + lines[index + 2]);
}

TEST_P(Concurrency, whoIsKilledAmongOthersLosesNothingThatWasAcknowledged) {
  constexpr int lives = 4;
  std::mt19937_64 seeds = seededGenerator();
  std::vector<std::mt19937_64> randoms;
  for (int number = 0; number < clients(); ++number) randoms.emplace_back(seeds());
  std::vector<std::vector<std::string>> acknowledged(static_cast<std::size_t>(clients()));
  library.put("Talk.md", "start");
  const auto append = [](const std::string& line) {
    return JSON::Object{{"id", "Talk.md"}, {"text", line}, {"note", line}};
  };
  atOnce([&](Client&, int number) {
    for (int life = 0; life < lives; ++life) {
      Client client(library.text(), true);
      for (int call = 0; call < calls() / lives; ++call) {
        const std::string line = mark(number, life * calls() + call);
        const Answer answer = callPatiently(client, "append_to_script", append(line));
        EXPECT_FALSE(answer.isError) << answer.text;
        acknowledged[static_cast<std::size_t>(number)].push_back(line);
      }
      const std::string unanswered = "unanswered-" + std::to_string(number) + "-" + std::to_string(life);
      client.program().write(callRequest(0, "append_to_script", append(unanswered)) + '\n');
      const auto later = below(20'000, randoms[static_cast<std::size_t>(number)]);
      std::this_thread::sleep_for(std::chrono::microseconds(later));
      ::kill(client.program().id(), SIGKILL);
      EXPECT_EQ(client.program().finish().status, -SIGKILL);
    }
  });

  const std::vector<std::string> lines = linesOf(library.bytes("Talk.md"));
  ASSERT_FALSE(lines.empty());
  EXPECT_EQ(std::set<std::string>(lines.begin(), lines.end()).size(), lines.size()) << "a line is there twice";
  std::vector<std::string> answered(lines.begin() + 1, lines.end());
  std::erase_if(answered, [](const std::string& line) { return line.starts_with("unanswered"); });
  std::vector<std::string> expected;
  for (const auto& each : acknowledged) expected.insert(expected.end(), each.begin(), each.end());
  EXPECT_THAT(answered, testing::UnorderedElementsAreArray(expected));
  std::cout << lines.size() - 1 - answered.size() << " of " << lives * clients() << " were killed too late\n";

  // Each line that is there kept what stood before it. Who was killed in between kept it, too, and wrote nothing.
  std::size_t place = 1;
  for (const Version& version : versions("Talk.md")) {
    EXPECT_EQ(version.words, place) << version.name;
    if (place < lines.size() && version.name == "Before — " + lines[place]) {
      ++place;
    } else {
      EXPECT_THAT(version.name, HasSubstr("unanswered"));
    }
  }
  EXPECT_EQ(place, lines.size());
  Client next(library.text(), true);
  EXPECT_FALSE(next.call("append_to_script", append("end")).isError);
  next.finish();
  for (const auto& entry : std::filesystem::directory_iterator(library.path())) {
    EXPECT_THAT(entry.path().filename().native(), testing::AnyOf("Talk.md", ".kelvane"));
  }
}

TEST(Lock, ofAServerThatWasKilledIsFree) {
  const Folder library;
  library.put("Talk.md", "start");
  for (int time = 0; time < 10; ++time) {
    Program program({"serve", "--allow-writes", "--library", library.text()});
    for (int call = 0; call < 20; ++call) {
      program.write(callRequest(call, "append_to_script", {{"id", "Talk.md"}, {"text", "line"}, {"note", "n"}}) + '\n');
    }
    program.line();
    ::kill(program.id(), SIGKILL);
    EXPECT_EQ(program.finish().status, -SIGKILL);
  }
  Client client(library.text(), true);
  EXPECT_FALSE(client.call("append_to_script", {{"id", "Talk.md"}, {"text", "line"}, {"note", "n"}}).isError);
  client.finish();
}

INSTANTIATE_TEST_SUITE_P(Servers, Concurrency, testing::Values(2, 4, 8), RowName());

}  // namespace
}  // namespace kelvane::tests
