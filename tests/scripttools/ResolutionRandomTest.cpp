// Random identifiers in random trees of folders, scripts and links, compared with a second implementation that goes
// piece by piece through the standard library's paths.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <list>
#include <map>
#include <random>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

#include "platform/FileSystem.h"
#include "protocol/RPCError.h"
#include "scripttools/Resolution.h"
#include "tests/support/InMemoryScriptLibrary.h"
#include "tests/support/Random.h"
#include "tests/support/TemporaryFolder.h"

namespace kelvane::tests {
namespace {

using namespace std::string_literals;
using quorvel::ScriptItem;
using std::filesystem::path;

constexpr std::size_t trees = 60, identifiersInATree = 200;
constexpr std::size_t mostLinks = 40;

bool isFolder(const path& entry) {
  std::error_code ignored;
  return std::filesystem::is_directory(entry, ignored);
}

/// The standardized path with its links followed. A piece that leads to too many links stays, and so does what follows
/// it.
path followed(const path& asked) {
  path reached = "/";
  const path plain = asked.lexically_normal();
  for (auto piece = std::next(plain.begin()); piece != plain.end(); ++piece) {
    if (piece->empty()) continue;  // a slash at the end
    const path before = reached;
    std::list<path> left = {*piece};
    for (std::size_t links = 0; !left.empty() && links <= mostLinks;) {
      const path next = left.front();
      left.pop_front();
      if (next.empty() || next == "." || next == "/") continue;
      const path parent = reached;
      reached = next == ".." ? reached.parent_path() : reached / next;
      std::error_code noLink;
      const path target = next == ".." || reached.native().find('\0') != std::string::npos
                              ? path()
                              : std::filesystem::read_symlink(reached, noLink);
      if (target.empty()) continue;
      if (++links > mostLinks) {
        reached = before;
        for (; piece != plain.end(); ++piece) reached /= *piece;
        return reached.has_filename() ? reached : reached.parent_path();
      }
      reached = target.is_absolute() ? path("/") : parent;
      left.insert(left.begin(), target.begin(), target.end());
    }
  }
  return reached;
}

std::string quoted(const std::string& identifier) {
  return "\"" + identifier + "\"";
}

/// Whether the system cannot open the root joined with the path: then nothing can be there, whatever links are on it.
bool isTooLong(const path& asked, const path& root) {
  std::size_t size = root.native().size();
  for (const path& piece : asked) {
    if (!piece.empty() && piece != ".") size += 1 + piece.native().size();
  }
  return size > filesystem::longestPath;
}

/// The expected result: "folder ID", "script ID", or the message.
std::string expected(const std::string& identifier, const path& root) {
  const path asked(identifier);
  if (asked.is_absolute() || std::find(asked.begin(), asked.end(), "..") != asked.end())
    return quoted(identifier) + " is not inside the library";
  if (isTooLong(asked, root)) return "Nothing at " + quoted(identifier);
  const path resolved = followed(root / asked), home = followed(root);
  const auto [end, ignored] = std::mismatch(home.begin(), home.end(), resolved.begin(), resolved.end());
  if (end != home.end()) return quoted(identifier) + " is not inside the library";
  std::error_code missing;
  const auto status = std::filesystem::status(resolved, missing);
  if (resolved.native().find('\0') != std::string::npos || !std::filesystem::exists(status))
    return "Nothing at " + quoted(identifier);
  const std::string relative = resolved == home ? "" : resolved.lexically_relative(home).native();
  if (std::filesystem::is_directory(status)) return "folder " + relative;
  if (resolved.extension() != ".md") return quoted(identifier) + " is not a script";
  return "script " + relative;
}

std::string found(const std::string& identifier, const quorvel::ScriptLibrary& library) {
  try {
    const ScriptItem item = itemAt(identifier, library);
    const path file(item.identifier);
    const bool isFolder = item.kind == ScriptItem::Kind::folder;
    const path name = isFolder ? file.filename() : file.stem();
    EXPECT_EQ(item.name, item.identifier.empty() ? library.root().filename() : name);
    return (isFolder ? "folder " : "script ") + item.identifier;
  } catch (const RPCError& error) {
    return error.message();
  }
}

class Tree {
 public:
  explicit Tree(std::mt19937_64& random) : random_(random) {
    std::filesystem::create_directory(root);
    std::filesystem::create_directory(root.native() + "2");
    folders_ = {root, root.native() + "2"};
    for (std::size_t entry = 0; entry < 25; ++entry) grow();
  }

  /// A path of existing and missing names, with slashes, dots and other things that clients send.
  std::string identifier() {
    std::string text = oneIn(30) ? "/" : "";
    for (std::size_t pieces = oneIn(20) ? below(2'000, random_) : 1 + below(6, random_); pieces > 0; --pieces) {
      text += oneIn(12) ? oneOf(odd, random_) : oneOf(names, random_);
      if (pieces > 1 || oneIn(4)) text += oneIn(5) ? oneOf(between, random_) : "/";
    }
    return text;
  }

  const TemporaryFolder folder{folderInMemory()};
  const path root = folder.path() / "Library";

 private:
  void grow() {
    const path in = oneOf(folders_, random_);
    const path entry = in / oneOf(names, random_);
    std::error_code taken;
    if (!isFolder(in) || std::filesystem::exists(std::filesystem::symlink_status(entry, taken))) return;
    // A link may lead to where other tests and other people have their files.
    if (!std::filesystem::canonical(in).native().starts_with(folder.path().native())) return;
    switch (below(4, random_)) {
      case 0:
        std::filesystem::create_directory(entry);
        folders_.push_back(entry);
        return;
      case 1:
        std::ofstream(entry).close();
        return;
      default:
        std::filesystem::create_symlink(target(), entry);
        if (isFolder(entry)) folders_.push_back(entry);
    }
  }

  path target() {
    path to = oneIn(3) ? oneOf(folders_, random_) : path();
    for (std::size_t pieces = below(4, random_); pieces > 0 || to.empty(); pieces -= pieces > 0 ? 1 : 0) {
      to /= oneIn(3) ? ".." : oneIn(8) ? "." : oneOf(names, random_);
    }
    return to;
  }

  bool oneIn(std::size_t count) { return below(count, random_) == 0; }

  static inline const std::vector<std::string> names = {"a", "b", "c", "d", "a.md", "b.md", "c.txt", ".md", "\xFF.md"};
  static inline const std::vector<std::string> odd = {
      ".", "..", "...", "", "a\0.md"s, "\0"s, "..\0"s, " ", ".a", "A.MD", std::string(300, 'n'), "Library", "Library2"};
  static inline const std::vector<std::string> between = {"//", "/./", "/.//./", "///", "/././/"};

  std::mt19937_64& random_;
  std::vector<path> folders_;
};

std::string kindOf(const std::string& outcome) {
  for (const char* kind : {"folder ", "script ", "Nothing at ", "is not a script"}) {
    if (outcome.find(kind) != std::string::npos) return kind;
  }
  return "is not inside";
}

TEST(ResolutionOfAnyIdentifier, matchesAPieceByPieceResolution) {
  auto random = seededGenerator();
  std::map<std::string, std::size_t> kinds;
  std::size_t same = 0;
  for (std::size_t number = 0; number < trees; ++number) {
    Tree tree(random);
    const InMemoryScriptLibrary library(tree.root);
    for (std::size_t count = 0; count < identifiersInATree; ++count) {
      const std::string identifier = tree.identifier();
      const std::string outcome = expected(identifier, tree.root);
      ASSERT_EQ(found(identifier, library), outcome) << ::testing::PrintToString(identifier);
      ++kinds[kindOf(outcome)];
      if (kindOf(outcome) == "is not inside") continue;
      if (isTooLong(identifier, tree.root)) {
        EXPECT_THROW(locate(identifier, library), RPCError);
        continue;
      }
      // If the file exists, both paths lead to the same file. If not, both name the same missing file.
      const std::string located = locate(identifier, library);
      EXPECT_EQ(located, followed(tree.root / identifier));
      std::error_code missing;
      const path there = std::filesystem::canonical(tree.root / identifier, missing);
      if (missing || identifier.find('\0') != std::string::npos) continue;
      EXPECT_EQ(located, there);
      ++same;
    }
  }
  for (const auto& [kind, count] : kinds) std::cout << kind << ": " << count << '\n';
  EXPECT_EQ(kinds.size(), 5U);
  EXPECT_GT(same, trees) << "Too little was there to show anything.";
}

}  // namespace
}  // namespace kelvane::tests
