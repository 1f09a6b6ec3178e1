#include "benchmarks/servers/Libraries.h"

#include <sqlite3.h>

#include <memory>
#include <stdexcept>

#include "benchmarks/Files.h"

namespace kelvane::benchmarks {
namespace {

namespace fs = std::filesystem;

void runSQL(const fs::path& library, const std::string& statements) {
  sqlite3* opened = nullptr;
  const int error = sqlite3_open((library / ".kelvane" / "history.sqlite").c_str(), &opened);
  const std::unique_ptr<sqlite3, int (*)(sqlite3*)> database(opened, sqlite3_close);
  if (error != SQLITE_OK || sqlite3_exec(opened, statements.c_str(), nullptr, nullptr, nullptr) != SQLITE_OK)
    throw std::runtime_error(std::string("The history cannot be filled: ").append(sqlite3_errmsg(opened)));
}

// The numbers from 2 to `count`, as the table `n` with the column `i`.
std::string numbers(std::size_t count) {
  return "WITH RECURSIVE n(i) AS (SELECT 2 UNION ALL SELECT i + 1 FROM n WHERE i < " + std::to_string(count) + ") ";
}

}  // namespace

fs::path memoryFolder() {
  return fs::is_directory("/dev/shm") ? "/dev/shm" : fs::temp_directory_path();
}

std::string prose(std::size_t size) {
  constexpr std::string_view line = "Words that are read aloud, some of them \"quoted\", some with accents: déjà vu.\n";
  std::string text = "# A chapter\n\n";
  while (text.size() < size) text += line;
  text.resize(size);
  // No character is cut in two.
  while (static_cast<unsigned char>(text.back()) >= 0x80) text.pop_back();
  text.resize(size, '.');
  return text;
}

std::string chapters(std::size_t count, std::size_t size) {
  std::string text;
  for (std::size_t chapter = 1; chapter <= count; ++chapter) {
    text.append("# Chapter ").append(std::to_string(chapter)).append("\n\n");
    do text += "A few words that are read aloud.\n";
    while (text.size() < size / count * chapter);
    text += '\n';
  }
  return text;
}

void addLibrary(const fs::path& library, std::size_t scripts) {
  for (std::size_t script = 0; script < scripts; ++script) {
    const fs::path folder = library / "All" / ("Folder " + std::to_string(script / 20));
    if (script % 20 == 0) fs::create_directories(folder);
    put(folder / ("Script " + std::to_string(script) + ".md"), "");
  }
}

void addScripts(const fs::path& library, std::size_t scripts) {
  for (std::size_t script = 0; script < scripts; ++script)
    put(library / ("Script " + std::to_string(script) + ".md"), "");
}

void addVersions(const fs::path& library, std::size_t versions) {
  runSQL(library, "BEGIN;" + numbers(versions) +
                      "INSERT INTO texts (id, hash, bytes)"
                      " SELECT 1000 + i, random(), CAST('The words of version ' || i AS BLOB) FROM n;" +
                      numbers(versions) +
                      "INSERT INTO versions (script, number, saved, label, words, size, text)"
                      " SELECT script, i, saved + i, label, 5, length(bytes), 1000 + i"
                      " FROM n, versions, texts WHERE number = 1 AND texts.id = 1000 + i;"
                      "COMMIT");
}

void addHistories(const fs::path& library, std::size_t scripts) {
  runSQL(library, "BEGIN;" + numbers(scripts) +
                      "INSERT INTO scripts (id, identifier, earlier)"
                      " SELECT 1000 + i, CAST('All/Script ' || i || '.md' AS BLOB), 0 FROM n;" +
                      numbers(scripts) +
                      "INSERT INTO versions (script, number, saved, label, words, size, text)"
                      " SELECT 1000 + i, 1, saved, label, words, size, text FROM n, versions WHERE number = 1;"
                      "COMMIT");
}

}  // namespace kelvane::benchmarks
