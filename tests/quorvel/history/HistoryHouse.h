#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <chrono>
#include <filesystem>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "quorvel/history/History.h"
#include "quorvel/history/SQLite.h"
#include "tests/quorvel/history/OpenedDatabase.h"
#include "tests/support/Files.h"
#include "tests/support/Sentence.h"
#include "tests/support/TemporaryFolder.h"

namespace quorvel {

/// A library's folder and the history in it, with a clock that stands still until it is set.
class HistoryHouse : public ::testing::Test {
 protected:
  using Moment = std::chrono::system_clock::time_point;

  /// In a folder below this one.
  explicit HistoryHouse(const std::filesystem::path& parent = std::filesystem::temp_directory_path())
      : folder(parent) {}

  static constexpr std::chrono::milliseconds patience{50};

  std::filesystem::path pathOf(std::string_view identifier) const { return root / identifier; }

  std::string read(const std::filesystem::path& file) const { return kelvane::tests::bytesOf(file); }

  void write(const std::filesystem::path& file, std::string_view bytes) const {
    kelvane::tests::writeFile(file, bytes);
  }

  /// Puts a script on the disk.
  void put(std::string_view identifier, std::string_view text = "words") const { write(root / identifier, text); }

  void save(std::string_view text, std::string_view identifier, std::string_view label = "") {
    history.snapshot(text, pathOf(identifier), label);
  }

  /// The texts of a script's versions, oldest first, joined by blanks: a whole history at a glance.
  std::string story(std::string_view identifier, std::int64_t earlier = 0) const {
    return story(history, identifier, earlier);
  }

  static std::string story(const History& history, std::string_view identifier, std::int64_t earlier = 0) {
    std::string story;
    const auto entries = history.entries(identifier, earlier);
    for (auto entry = entries.rbegin(); entry != entries.rend(); ++entry) {
      const auto text = history.text(identifier, entry->version);
      story.append(story.empty() ? "" : " ").append(text.value_or("(none)"));
    }
    return story;
  }

  /// "Talk.md: 2" and "Talk.md (earlier 1): 3" for all scripts that have a history.
  std::vector<std::string> scripts() const {
    std::vector<std::string> lines;
    for (const HistoryOfScript& script : history.scripts()) {
      const std::string earlier = script.earlier == 0 ? "" : " (earlier " + std::to_string(script.earlier) + ")";
      lines.push_back(script.identifier + earlier + ": " + std::to_string(script.versions));
    }
    return lines;
  }

  /// What a query on the database itself answers.
  std::int64_t integer(std::string_view sql) const {
    return openedDatabase(database, sqlite::Connection::Access::reading, patience).integer(sql);
  }

  void change(std::string_view sql) const {
    openedDatabase(database, sqlite::Connection::Access::writing, patience).runAll(sql);
  }

  /// Every file and folder below the root, with the bytes of short files and the size and a hash of those of others.
  std::map<std::string, std::string> everything() const {
    std::map<std::string, std::string> all;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(root)) {
      const std::string bytes = entry.is_regular_file() ? read(entry.path()) : "(no file)";
      all[entry.path()] = bytes.size() < 100 ? bytes
                                             : std::to_string(bytes.size()) + " bytes, hash " +
                                                   std::to_string(std::hash<std::string>()(bytes));
    }
    return all;
  }

  static std::string sentenceOf(const std::function<void()>& attempt) {
    return kelvane::tests::sentenceOf<HistoryError>(attempt);
  }

  const kelvane::tests::TemporaryFolder folder;
  const std::filesystem::path root = folder.path();
  const std::filesystem::path database = root / ".kelvane/history.sqlite";
  const std::filesystem::path journal = root / ".kelvane/history.sqlite-journal";
  Moment now = Moment(std::chrono::milliseconds(1'700'000'000'123));
  History history{root, [this] { return now; }, patience};
};

}  // namespace quorvel
