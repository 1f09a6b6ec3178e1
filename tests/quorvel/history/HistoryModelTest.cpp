// Random histories beside a simple model of them: versions, renames, scripts that go and begin anew, and deaths.
#include <algorithm>

#include "tests/quorvel/history/HistoryHouse.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/ModelHistory.h"
#include "tests/support/Random.h"

namespace quorvel {
namespace {

using kelvane::tests::below;

/// "F/a.md 0: one two" and "F/a.md 1: one", a line for each history that has versions.
std::string line(const std::string& identifier, std::size_t earlier, const std::vector<std::string>& texts) {
  std::string line = identifier + " " + std::to_string(earlier) + ":";
  for (const std::string& text : texts) line += " " + text;
  return line;
}

using Model = kelvane::tests::ModelHistory<std::string>;

std::vector<std::string> linesOf(const Model& model) {
  std::vector<std::string> lines;
  for (const auto& [identifier, histories] : model.byIdentifier()) {
    if (!histories.present.empty()) lines.push_back(line(identifier, 0, histories.present));
    for (std::size_t i = histories.earlier.size(); i > 0; --i)
      lines.push_back(line(identifier, i, histories.earlier[i - 1]));
  }
  return lines;
}

struct Step;

class HistoryModel : public HistoryHouse {
 protected:
  void take(const Step& step, const std::string& text);
  std::string difference(const std::vector<Step>& steps);
  std::vector<Step> shrunk(std::vector<Step> steps);

  std::vector<std::string> lines() const {
    std::vector<std::string> lines;
    for (const HistoryOfScript& script : history.scripts()) {
      std::vector<std::string> texts;
      for (std::int64_t number = 1; number <= script.versions; ++number) {
        texts.push_back(history.text(script.identifier, {script.earlier, number}).value_or("(none)"));
      }
      lines.push_back(line(script.identifier, static_cast<std::size_t>(script.earlier), texts));
    }
    return lines;
  }

  bool isThere(const std::string& identifier) const { return std::filesystem::exists(root / identifier); }

  /// Whether somebody died around a rename and no writer has been there since. What others do to the files then may
  /// make it impossible to tell what had happened.
  bool isPending() const {
    return std::filesystem::exists(database) && integer("SELECT count(*) FROM pendingRenames") > 0;
  }

  /// The rename, and whether the process survived; it may die before or after the rename itself.
  bool rename(const std::string& from, const std::string& to, std::size_t fate) {
    enum Fate { dieBefore, dieAfter, survive };
    const std::string end = kelvane::tests::inChild([&]() -> std::string {
      PendingRename pending = history.willRename(from, to);
      if (fate == dieBefore) kelvane::tests::dieAtOnce();
      std::filesystem::rename(root / from, root / to);
      if (fate == dieAfter) kelvane::tests::dieAtOnce();
      pending.done();
      return "survived";
    });
    EXPECT_EQ(end, fate >= survive ? "survived" : "killed by signal 9");
    return fate != dieBefore;
  }

  Model model;
};

/// What is done in a step. Whatever the files do not allow at that moment is left out, so that any selection of steps
/// is a story too.
struct Step {
  enum Kind { create, touch, deleteFolder, keep, renameScript, renameFolder } kind = keep;
  std::string one;
  std::string other;
  std::size_t fate = 0;

  std::string text() const {
    static const char* const kinds[] = {"create", "touch",         "delete folder of",
                                        "keep",   "rename script", "rename folder"};
    return std::string(kinds[kind]) + " " + one + " " + other + " " + std::to_string(fate) + "\n";
  }
};

std::vector<Step> anyStory(std::size_t length) {
  auto random = kelvane::tests::seededGenerator();
  const std::string folders[] = {"F", "F0", "G", "%"};
  const std::string names[] = {"a.md", "b.md", "_.md"};
  constexpr Step::Kind kinds[] = {Step::create, Step::touch,        Step::deleteFolder, Step::keep,
                                  Step::keep,   Step::renameScript, Step::renameScript, Step::renameFolder};
  std::vector<Step> steps(length);
  for (Step& step : steps) {
    step.kind = kinds[below(std::size(kinds), random)];
    step.fate = below(6, random);
    const std::string folder = folders[below(std::size(folders), random)];
    const std::string above = below(5, random) == 0 ? "" : folder + "/";
    step.one = above + names[below(std::size(names), random)];
    step.other = above + names[below(std::size(names), random)];
    if (step.kind == Step::renameFolder) step.one = folder, step.other = folders[below(std::size(folders), random)];
    if (step.kind == Step::deleteFolder) step.one = folder;
  }
  return steps;
}

void HistoryModel::take(const Step& step, const std::string& text) {
  const auto& [kind, one, other, fate] = step;
  switch (kind) {
    case Step::create:  // by a tool
      if (isThere(one)) return;
      history.setAside(one);
      model.setAside(one);
      return put(one);
    case Step::touch:  // from outside: made or deleted
      if (isPending()) return;
      return isThere(one) ? static_cast<void>(std::filesystem::remove(pathOf(one))) : put(one);
    case Step::deleteFolder:  // from outside
      if (!isPending()) std::filesystem::remove_all(root / one);
      return;
    case Step::keep:
      if (!isThere(one)) return;
      HistoryHouse::save(text, one);
      return model.keep(one, text);
    case Step::renameScript:
    case Step::renameFolder:
      if (!isThere(one) || isThere(other) || !rename(one, other, fate)) return;
      return kind == Step::renameScript ? model.renameScript(one, other) : model.renameFolder(one, other);
  }
}

/// The first difference between the history and the model in a story; empty when there is none.
std::string HistoryModel::difference(const std::vector<Step>& steps) {
  for (const auto& entry : std::filesystem::directory_iterator(root)) std::filesystem::remove_all(entry.path());
  model = {};
  for (std::size_t i = 0; i < steps.size(); ++i) {
    take(steps[i], "t" + std::to_string(i));
    const auto expected = linesOf(model);
    const auto found = lines();
    if (found != expected) {
      return "after step " + std::to_string(i) + ": " + ::testing::PrintToString(found) + " instead of " +
             ::testing::PrintToString(expected);
    }
  }
  return {};
}

/// The story without the stretches that it fails without, too.
std::vector<Step> HistoryModel::shrunk(std::vector<Step> steps) {
  for (std::size_t stretch = steps.size() / 2; stretch > 0; stretch /= 2) {
    for (std::size_t begin = 0; begin + stretch <= steps.size();) {
      std::vector<Step> fewer = steps;
      const auto first = fewer.begin() + static_cast<std::ptrdiff_t>(begin);
      fewer.erase(first, first + static_cast<std::ptrdiff_t>(stretch));
      difference(fewer).empty() ? static_cast<void>(begin += stretch) : steps.swap(fewer);
    }
  }
  return steps;
}

TEST_F(HistoryModel, matchesTheHistoryAfterEveryOperation) {
  const std::vector<Step> steps = anyStory(250);
  if (difference(steps).empty()) {
    EXPECT_THAT(history.problems(), ::testing::IsEmpty());
    EXPECT_GT(linesOf(model).size(), 3U) << "Too little happened to show anything.";
    return;
  }
  const std::vector<Step> fewest = shrunk(steps);
  std::string story;
  for (const Step& step : fewest) story += step.text();
  FAIL() << story << difference(fewest);
}

}  // namespace
}  // namespace quorvel
