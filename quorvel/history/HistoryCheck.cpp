#include "quorvel/history/HistoryCheck.h"

#include "quorvel/files/LibraryError.h"
#include "quorvel/history/HistoryTexts.h"

namespace quorvel {
namespace {

using sqlite::Connection;

/// A query for the scripts whose history breaks a rule, and how the sentence about each of them goes on.
struct Rule {
  std::string_view violations;
  std::string_view sentence;
};

constexpr Rule rules[] = {
    {"SELECT identifier FROM scripts WHERE NOT EXISTS (SELECT 1 FROM versions WHERE script = scripts.id)",
     "is listed without a version"},
    {"SELECT identifier FROM scripts WHERE (SELECT max(number) <> count(*) FROM versions WHERE script = scripts.id)",
     "lacks a version: their numbers have a gap"},
    {"SELECT identifier FROM scripts GROUP BY identifier HAVING max(earlier) <> sum(earlier > 0)",
     "lacks an earlier script: their numbers have a gap"},
    {"SELECT DISTINCT identifier FROM scripts JOIN versions ON script = scripts.id LEFT JOIN texts ON texts.id = text"
     " WHERE length(bytes) IS NOT size",
     "has a version whose text is missing or has another size"},
};

void checkFile(Connection& connection, std::vector<std::string>& problems) {
  auto check = connection.prepare("PRAGMA integrity_check");
  while (check.next()) {
    const std::string answer = check.bytes(0);
    if (answer != "ok") problems.push_back("The file of the version history is damaged: " + answer + ".");
  }
}

void checkRules(Connection& connection, std::vector<std::string>& problems) {
  for (const Rule& rule : rules) {
    auto violations = connection.prepare(rule.violations);
    while (violations.next()) {
      const std::string script = inQuotes(violations.bytes(0));
      problems.push_back("The history of " + script + ' ' + std::string(rule.sentence) + '.');
    }
  }
  if (connection.integer("SELECT EXISTS (SELECT 1 FROM versions WHERE script NOT IN (SELECT id FROM scripts))") != 0) {
    problems.push_back("The version history has versions of a script that it does not list.");
  }
}

void checkTexts(Connection& connection, std::vector<std::string>& problems) {
  const TextHash hash = textHashIn(connection);
  auto texts = connection.prepare("SELECT id, hash, bytes FROM texts");
  while (texts.next()) {
    if (hash(texts.bytes(2)) == texts.integer(1)) continue;
    problems.push_back("Text " + std::to_string(texts.integer(0)) +
                       " of the version history has other bytes than were kept.");
  }
}

}  // namespace

std::vector<std::string> historyProblems(Connection& connection) {
  std::vector<std::string> problems;
  checkFile(connection, problems);
  if (!problems.empty()) return problems;
  checkRules(connection, problems);
  checkTexts(connection, problems);
  return problems;
}

}  // namespace quorvel
