// Random stories of all tools and of other programs over a real folder and its history, beside a model of both.
#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "protocol/RPCError.h"
#include "quorvel/history/History.h"
#include "quorvel/library/FolderLibrary.h"
#include "scripttools/ScriptTools.h"
#include "tests/quorvel/core/Texts.h"
#include "tests/quorvel/library/LibraryHouse.h"
#include "tests/quorvel/model/ModelTools.h"
#include "tests/quorvel/model/Stories.h"
#include "tests/support/Files.h"
#include "tests/support/Random.h"
#include "tests/support/TemporaryFolder.h"

namespace quorvel {
namespace {

using tests::ModelTools;
using tests::ModelVersion;
using tests::Reply;
using tests::shown;
using tests::Step;

constexpr std::size_t stepsOfAStory = 200;

ModelTools::Clock minuteByMinute() {
  return [next = std::chrono::system_clock::time_point(std::chrono::seconds(1'740'837'909))]() mutable {
    next += std::chrono::minutes(1);
    return next;
  };
}

/// How often each tool answered and failed.
using Tally = std::map<std::string, std::pair<std::size_t, std::size_t>>;

/// A real library and a model of it, both empty at first.
class World {
 public:
  /// On an old system the library must do without the calls that it prefers.
  World(bool isOld, Tally& tally) : tally_(tally) {
    if (isOld) calls_.lack({"openBeneath", "exchange", "renameToFreeName"}, ENOSYS);
  }

  /// The first difference between the two in a story; empty when there is none.
  std::string difference(const std::vector<Step>& story) {
    for (std::size_t index = 0; index < story.size(); ++index) {
      const std::string step = "step " + std::to_string(index) + ", " + story[index].described();
      if (const auto reply = take(story[index]); !reply.empty()) return step + reply;
      if (const auto found = filesThere(); found != model_.files) return step + differenceOf(found, model_.files);
    }
    return historyDifference();
  }

 private:
  using Files = std::map<std::string, std::optional<std::string>>;

  std::string take(const Step& step) {
    if (step.isFromOutside()) {
      if (const Files before = model_.files; applyFromOutside(step, model_)) follow(before);
      return {};
    }
    const Reply expected = model_.call(step.act, step.arguments);
    const Reply reply = call(step.act, step.arguments);
    ++(reply.failed ? tally_[step.act].second : tally_[step.act].first);
    if (reply == expected) return {};
    return ::testing::PrintToString(reply) + "\ninstead of\n" + ::testing::PrintToString(expected);
  }

  Reply call(const std::string& name, const kelvane::JSON::Object& arguments) const {
    for (const kelvane::Tool& tool : tools_) {
      if (tool.name() != name) continue;
      try {
        return {tool.run(arguments), false};
      } catch (const kelvane::RPCError& error) {
        return {error.message(), true};
      } catch (const std::exception& error) {
        return {error.what(), true};
      }
    }
    throw std::logic_error("No tool " + name);
  }

  /// Lets the disk follow what another program did in the model.
  void follow(const Files& before) const {
    for (const auto& [identifier, text] : before) {
      if (!model_.files.contains(identifier)) std::filesystem::remove_all(root_ / identifier);
    }
    for (const auto& [identifier, text] : model_.files) {
      if (!text) std::filesystem::create_directories(root_ / identifier);
    }
    for (const auto& [identifier, text] : model_.files) {
      const auto old = before.find(identifier);
      if (text && (old == before.end() || old->second != text)) {
        kelvane::tests::writeFile(root_ / identifier, *text);
      }
    }
  }

  Files filesThere() const {
    Files files;
    for (auto entry = std::filesystem::recursive_directory_iterator(root_); entry != decltype(entry)(); ++entry) {
      if (entry->path() == root_ / ".kelvane") {
        entry.disable_recursion_pending();
        continue;
      }
      auto& text = files[entry->path().native().substr(root_.native().size() + 1)];
      if (entry->is_directory()) continue;
      text = kelvane::tests::bytesOf(entry->path());
    }
    return files;
  }

  static std::string line(const std::string& identifier, const std::optional<std::string>& text) {
    return shown(identifier) + (text ? ": " + shown(*text) : " (folder)") + "\n";
  }

  static std::string differenceOf(const Files& found, const Files& expected) {
    std::string lines;
    for (const auto& [identifier, text] : found) {
      const auto other = expected.find(identifier);
      if (other == expected.end() || other->second != text) lines += "found " + line(identifier, text);
    }
    for (const auto& [identifier, text] : expected) {
      const auto other = found.find(identifier);
      if (other == found.end() || other->second != text) lines += "expected " + line(identifier, text);
    }
    return lines;
  }

  static std::string line(const std::string& identifier, std::size_t earlier, std::size_t number,
                          const ModelVersion& version) {
    return shown(identifier) + " " + std::to_string(earlier) + "." + std::to_string(number) + " at " +
           std::to_string(version.saved.time_since_epoch() / std::chrono::seconds(1)) + ", " + shown(version.label) +
           ", " + std::to_string(version.words) + " words: " + shown(version.text);
  }

  std::string historyDifference() const {
    std::vector<std::string> expected, found;
    for (const auto& [identifier, histories] : model_.history().byIdentifier()) {
      const auto expect = [&, &identifier = identifier](std::size_t earlier, const auto& versions) {
        for (std::size_t number = 1; number <= versions.size(); ++number) {
          expected.push_back(line(identifier, earlier, number, versions[number - 1]));
        }
      };
      expect(0, histories.present);
      for (std::size_t earlier = histories.earlier.size(); earlier > 0; --earlier) {
        expect(earlier, histories.earlier[earlier - 1]);
      }
    }
    for (const HistoryOfScript& script : history_->scripts()) {
      auto entries = history_->entries(script.identifier, script.earlier);
      for (auto entry = entries.rbegin(); entry != entries.rend(); ++entry) {
        const ModelVersion version{entry->saved, entry->label, entry->words,
                                   history_->text(script.identifier, entry->version).value_or("(none)")};
        found.push_back(line(script.identifier, static_cast<std::size_t>(entry->version.earlier),
                             static_cast<std::size_t>(entry->version.number), version));
      }
    }
    const auto [one, other] = std::mismatch(found.begin(), found.end(), expected.begin(), expected.end());
    if (one != found.end() || other != expected.end()) {
      return "the history has " + (one == found.end() ? "an end" : *one) + "\ninstead of " +
             (other == expected.end() ? "an end" : *other);
    }
    const auto problems = history_->problems();
    return problems.empty() ? "" : "the history has problems: " + ::testing::PrintToString(problems);
  }

  Tally& tally_;
  const kelvane::tests::TemporaryFolder folder_{kelvane::tests::folderInMemory()};
  const std::filesystem::path root_ = folder_.path();
  StagedCalls calls_;
  const std::shared_ptr<History> history_ = std::make_shared<History>(root_, minuteByMinute());
  const std::vector<kelvane::Tool> tools_ =
      kelvane::ScriptTools(std::make_shared<FolderLibrary>(root_, history_, FolderLibrary::Options{calls_}), history_)
          .tools(true);
  ModelTools model_{minuteByMinute()};
};

std::string difference(const std::vector<Step>& story, bool isOld, Tally& tally) {
  return World(isOld, tally).difference(story);
}

/// KELVANE_STORIES sets how many are told.
std::uint64_t storiesAskedFor() {
  const char* asked = std::getenv("KELVANE_STORIES");
  return asked ? std::strtoull(asked, nullptr, 10) : 25;
}

TEST(Tools, doToALibraryAndItsHistoryWhatTheModelSaysWhateverHappens) {
  const std::uint64_t first = kelvane::tests::firstSeed();
  Tally tally;
  for (std::uint64_t seed = first; seed < first + storiesAskedFor(); ++seed) {
    const auto story = tests::anyStory(seed, stepsOfAStory);
    const bool isOld = seed % 2 == 0;
    if (difference(story, isOld, tally).empty()) continue;
    Tally ignored;
    const auto fewest = tests::shrunk(
        story, [&](const std::vector<Step>& fewer) { return !difference(fewer, isOld, ignored).empty(); });
    std::string told;
    for (const Step& step : fewest) told += step.described();
    FAIL() << "KELVANE_SEED=" << seed << ":\n" << told << difference(fewest, isOld, ignored);
  }
  std::size_t answered = 0, failed = 0;
  for (const auto& [tool, counts] : tally) {
    std::cout << tool << ": " << counts.first << " answered, " << counts.second << " failed\n";
    answered += counts.first;
    failed += counts.second;
  }
  if (storiesAskedFor() < 10) return;  // a single one may leave a tool out
  EXPECT_EQ(tally.size(), 17u);
  EXPECT_GT(answered, failed / 2) << "Too little happened to show anything.";
}

}  // namespace
}  // namespace quorvel
