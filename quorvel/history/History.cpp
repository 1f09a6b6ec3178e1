#include "quorvel/history/History.h"

#include <algorithm>
#include <cstdint>
#include <limits>
#include <system_error>
#include <utility>

#include "platform/FileSystem.h"
#include "platform/Unicode.h"
#include "quorvel/files/LibraryError.h"
#include "quorvel/files/WholeFile.h"
#include "quorvel/history/HeldOwnFolder.h"
#include "quorvel/history/HistoryCheck.h"
#include "quorvel/history/HistoryRenames.h"
#include "quorvel/history/HistoryTexts.h"
#include "quorvel/history/OwnFolder.h"

namespace quorvel {
namespace {

using sqlite::Connection;
using Moment = std::chrono::system_clock::time_point;

std::int64_t stored(Moment moment) {
  return std::chrono::floor<std::chrono::microseconds>(moment.time_since_epoch()).count();
}

Moment moment(std::int64_t stored) {
  return Moment(std::chrono::duration_cast<Moment::duration>(std::chrono::microseconds(stored)));
}

/// What `work` answers on a connection that reads; `otherwise` when the library has no history.
template <typename Answer, typename Work>
Answer reading(const HistoryFile& file, Answer otherwise, Work work) {
  try {
    const auto root = file.findRoot();
    if (!root) return otherwise;
    auto connection = file.reading(root);
    if (!connection) return otherwise;
    interpretRenames(*connection, root->folder());
    return work(*connection);
  } catch (const sqlite::Error& error) {
    throw file.failure(error, HistoryUse::reading);
  } catch (const std::system_error& error) {
    throw HistoryFailure::refused(error.code().value(), HistoryUse::reading);
  }
}

std::shared_ptr<const OpenedRoot> openedRoot(const HistoryFile& file) {
  try {
    return file.openRoot();
  } catch (const std::system_error& error) {
    throw HistoryFailure::refused(error.code().value(), HistoryUse::writing);
  }
}

/// Does `work` on a connection that writes, all of it or nothing. The root in whose history that was.
template <typename Work>
std::shared_ptr<const OpenedRoot> writing(const HistoryFile& file, Work work) {
  try {
    auto root = file.openRoot();
    if (const auto held = HeldOwnFolder::of(*root)) held->forget();
    Connection connection = file.writing(root);
    settleRenames(connection, root->folder());
    work(connection);
    HistoryFile::commit(connection, *root);
    return root;
  } catch (const sqlite::Error& error) {
    throw file.failure(error, HistoryUse::writing);
  } catch (const std::system_error& error) {
    throw HistoryFailure::refused(error.code().value(), HistoryUse::writing);
  }
}

std::optional<std::int64_t> scriptID(Connection& connection, std::string_view identifier, std::int64_t earlier) {
  auto found = connection.prepare("SELECT id FROM scripts WHERE identifier = ? AND earlier = ?", identifier, earlier);
  if (!found.next()) return std::nullopt;
  return found.integer(0);
}

std::int64_t madeScriptID(Connection& connection, std::string_view identifier) {
  if (const auto id = scriptID(connection, identifier, 0)) return *id;
  connection.run("INSERT INTO scripts (identifier, earlier) VALUES (?, 0)", identifier);
  return connection.lastInserted();
}

std::vector<HistoryOfScript> histories(sqlite::Statement rows) {
  std::vector<HistoryOfScript> histories;
  while (rows.next()) histories.push_back({rows.bytes(0), rows.integer(1), rows.integer(2), moment(rows.integer(3))});
  return histories;
}

/// Numbers have no gaps, so the newest version's is how many there are.
constexpr std::string_view selectHistories =
    "SELECT identifier, earlier, number, saved FROM scripts JOIN versions ON script = scripts.id"
    " AND number = (SELECT max(number) FROM versions WHERE script = scripts.id)";

/// What stands behind the root in a path; nothing unless the path leads below the root.
std::optional<std::string> below(const std::filesystem::path& root, const std::filesystem::path& path) {
  std::string_view above = root.native();
  while (above.ends_with('/')) above.remove_suffix(1);
  std::string_view rest = path.native();
  if (!rest.starts_with(above)) return std::nullopt;
  rest.remove_prefix(above.size());
  if (rest.size() < 2 || rest.front() != '/') return std::nullopt;
  return std::string(rest.substr(1));
}

/// Nothing may be written there by a tool, so that no version of it could ever be restored.
bool isInOwnFolder(std::string_view identifier) {
  return identifier.substr(0, identifier.find('/')) == ownFolderName;
}

}  // namespace

History::History(std::filesystem::path root, Clock clock, std::chrono::milliseconds patience, const SystemCalls& calls)
    : root_(std::move(root)),
      file_(kelvane::filesystem::standardized(root_), patience, historyMigrations(), calls),
      clock_(std::move(clock)) {
  sqlite::prepareProcess();
}

std::string History::identifier(const std::filesystem::path& script) const {
  if (auto identifier = below(root_, script)) return *identifier;
  if (auto identifier = below(file_.root(), script)) return *identifier;
  throw HistoryError(inQuotes(script.native()) + " is not inside the library.");
}

std::optional<ScriptVersion> History::snapshot(std::string_view text, const std::filesystem::path& script,
                                               std::string_view label) {
  const std::string identifier = this->identifier(script);
  if (isInOwnFolder(identifier))
    throw HistoryError("No version of " + inQuotes(identifier) +
                       " was saved, because it belongs to the folder that the library keeps its history in. Leave that "
                       "folder to the library.");
  if (text.empty()) return std::nullopt;
  if (text.size() > largestText)
    throw HistoryError(tooLarge("No version of " + inQuotes(identifier) + " was saved", "the text").what());
  ScriptVersion version{{}, std::string(label), kelvane::unicode::wordCount(text)};
  const auto root = writing(file_, [&](Connection& connection) {
    const std::int64_t saved = stored(clock_());
    const std::int64_t id = madeScriptID(connection, identifier);
    connection.run(
        "INSERT INTO versions (script, number, saved, label, words, size, text)"
        " VALUES (?1, (SELECT coalesce(max(number), 0) + 1 FROM versions WHERE script = ?1), ?2, ?3, ?4, ?5, ?6)",
        id, saved, label, static_cast<std::int64_t>(version.words), static_cast<std::int64_t>(text.size()),
        saveText(connection, text));
    version.saved = moment(saved);
  });
  if (const auto held = HeldOwnFolder::of(*root)) held->remember(identifier, text);
  return version;
}

std::vector<ScriptVersion> History::versions(const std::filesystem::path& script) const {
  std::vector<ScriptVersion> versions;
  for (HistoryEntry& entry : entries(identifier(script))) {
    versions.push_back({entry.saved, std::move(entry.label), entry.words});
  }
  return versions;
}

std::vector<HistoryEntry> History::entries(std::string_view identifier, std::int64_t earlier) const {
  return reading(file_, std::vector<HistoryEntry>(), [&](Connection& connection) {
    std::vector<HistoryEntry> entries;
    const auto id = scriptID(connection, identifier, earlier);
    if (!id) return entries;
    auto rows = connection.prepare(
        "SELECT number, saved, label, words, size FROM versions WHERE script = ? ORDER BY number DESC", *id);
    while (rows.next()) {
      entries.push_back({{earlier, rows.integer(0)},
                         moment(rows.integer(1)),
                         rows.bytes(2),
                         static_cast<std::size_t>(rows.integer(3)),
                         static_cast<std::size_t>(rows.integer(4))});
    }
    return entries;
  });
}

std::optional<std::string> History::text(std::string_view identifier, VersionNumber version) const {
  return reading(file_, std::optional<std::string>(), [&](Connection& connection) -> std::optional<std::string> {
    const auto id = scriptID(connection, identifier, version.earlier);
    if (!id) return std::nullopt;
    auto row = connection.prepare(
        "SELECT bytes FROM versions LEFT JOIN texts ON texts.id = text WHERE script = ? AND number = ?", *id,
        version.number);
    if (!row.next()) return std::nullopt;
    std::string text = row.bytes(0);
    if (text.empty()) throw HistoryFailure::damaged(HistoryUse::reading);
    return text;
  });
}

std::vector<HistoryOfScript> History::scripts() const {
  return reading(file_, std::vector<HistoryOfScript>(), [](Connection& connection) {
    return histories(
        connection.prepare(std::string(selectHistories).append(" ORDER BY identifier, earlier > 0, earlier DESC")));
  });
}

std::vector<HistoryOfScript> History::scripts(std::string_view identifier) const {
  return reading(file_, std::vector<HistoryOfScript>(), [&](Connection& connection) {
    return histories(connection.prepare(
        std::string(selectHistories).append(" WHERE identifier = ? ORDER BY earlier > 0, earlier DESC"), identifier));
  });
}

std::vector<TimeLineEntry> History::timeLine(std::chrono::system_clock::time_point since, std::size_t most) const {
  return reading(file_, std::vector<TimeLineEntry>(), [&](Connection& connection) {
    constexpr std::size_t mostRows = std::numeric_limits<std::int64_t>::max();
    auto rows = connection.prepare(
        "SELECT identifier, earlier, number, saved, label, words, size, (SELECT words FROM versions AS before"
        " WHERE before.script = versions.script AND before.number = versions.number - 1)"
        " FROM versions JOIN scripts ON scripts.id = script WHERE saved >= ?"
        " ORDER BY saved DESC, script DESC, number DESC LIMIT ?",
        stored(since), static_cast<std::int64_t>(std::min(most, mostRows)));
    std::vector<TimeLineEntry> entries;
    while (rows.next()) {
      TimeLineEntry each{rows.bytes(0), {}, std::nullopt};
      each.entry = {{rows.integer(1), rows.integer(2)},
                    moment(rows.integer(3)),
                    rows.bytes(4),
                    static_cast<std::size_t>(rows.integer(5)),
                    static_cast<std::size_t>(rows.integer(6))};
      if (each.entry.version.number > 1) each.wordsBefore = static_cast<std::size_t>(rows.integer(7));
      entries.push_back(std::move(each));
    }
    return entries;
  });
}

bool History::hasVersionWith(std::string_view text, std::string_view identifier) const {
  if (text.empty()) return true;
  const auto root = file_.findRoot();
  const auto held = root ? HeldOwnFolder::of(*root) : nullptr;
  if (held && held->remembers(identifier, text)) return true;
  return reading(file_, false, [&](Connection& connection) {
    const auto id = scriptID(connection, identifier, 0);
    const auto textID = findText(connection, text);
    if (!id || !textID) return false;
    // The newest first: a text that is asked for was usually saved a moment ago. An EXISTS would ignore the order.
    auto version = connection.prepare(
        "SELECT 1 FROM versions WHERE script = ? AND text = ? ORDER BY number DESC LIMIT 1", *id, *textID);
    return version.next();
  });
}

bool History::setAside(std::string_view identifier) {
  const bool isKnown = reading(file_, false, [&](Connection& connection) {
    return hasPendingRenames(connection) || scriptID(connection, identifier, 0);
  });
  bool begins = false;
  if (isKnown) writing(file_, [&](Connection& connection) { begins = makeEarlier(connection, identifier); });
  return begins;
}

void History::undoSetAside(std::string_view identifier) noexcept {
  try {
    writing(file_, [&](Connection& connection) { makePresent(connection, identifier); });
  } catch (...) {  // it stays that of an earlier script, where it can be listed and restored from
  }
}

PendingRename History::willRename(std::string_view from, std::string_view to) {
  const auto root = openedRoot(file_);
  const auto rename = [&] {
    try {
      return plannedRename(root->folder(), from, to);
    } catch (const std::system_error& error) {
      throw HistoryFailure::refused(error.code().value(), HistoryUse::writing);
    }
  }();
  const bool isConcerned = rename && reading(file_, false, [&](Connection& connection) {
                             return hasPendingRenames(connection) || concernsHistory(connection, *rename);
                           });
  if (!isConcerned) return {};
  std::int64_t record = 0;
  writing(file_, [&](Connection& connection) { record = recordRename(connection, *rename); });
  return {file_, root, record};
}

std::vector<std::string> History::problems() const {
  try {
    return reading(file_, std::vector<std::string>(), historyProblems);
  } catch (const HistoryError& error) {
    return {error.what()};
  }
}

PendingRename::PendingRename(PendingRename&& other) noexcept
    : file_(std::exchange(other.file_, nullptr)), root_(std::move(other.root_)), record_(other.record_) {
}

PendingRename::~PendingRename() {
  if (!file_) return;
  try {
    Connection connection = file_->writing(root_);
    settleRenames(connection, root_->folder());
    HistoryFile::commit(connection, *root_);
  } catch (...) {  // the record stays, and the next writer does the same
  }
}

void PendingRename::done() noexcept {
  const HistoryFile* file = std::exchange(file_, nullptr);
  if (!file) return;
  try {
    Connection connection = file->writing(root_);
    finishRename(connection, record_);
    HistoryFile::commit(connection, *root_);
  } catch (...) {  // the record stays, and says the same to whoever reads it
  }
}

}  // namespace quorvel
