#pragma once

#include <chrono>
#include <cstddef>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace kelvane {

/// One change of a script, as the page shows it.
struct ReviewedChange {
  std::string identifier;
  std::string restoreCommand;  ///< What puts the old text back.
  std::chrono::system_clock::time_point saved;
  std::string label;       ///< What the change was, or what the version was called.
  std::string_view old;    ///< The text of that version.
  std::string_view fresh;  ///< The text that came after it.
  bool isGone = false;     ///< The script has no text after it, because it is gone.
};

/// What changed in a library, as one self-contained HTML page (HTML Living Standard): the time line beside the changes,
/// each with its words marked, its size before and after, and the command that puts the old text back.
///
///     ReviewPage page("/home/me/Scripts", std::chrono::system_clock::now());
///     for (const ReviewedChange& change : newestFirst) page.add(change);
///     write(page.html());
///
/// The page loads nothing and works from a file. Whatever texts and names contain is shown as its characters: all of it
/// is escaped, and a Content-Security-Policy lets only the page's own script run. The page's size is proportional to
/// what changed; a change that is longer than a few screens is cut, and says so.
class ReviewPage {
 public:
  /// What every page begins with, so that a program can tell one from a file of another kind.
  static constexpr std::string_view beginning = "<!DOCTYPE html>\n<!-- Made by kelvane review -->\n";

  ReviewPage(std::string_view library, std::chrono::system_clock::time_point now);

  /// Adds a change, which must not be newer than the one before. Linear in the texts. Keeps no view of them.
  void add(const ReviewedChange& change);

  /// The page. Linear in it.
  std::string html() const;

 private:
  void addToTimeLine(const ReviewedChange& change, const std::string& name, std::size_t before, std::size_t after);

  std::string library_;
  std::chrono::system_clock::time_point now_;
  std::size_t count_ = 0;
  std::string day_;                                        // that the time line is at
  std::string timeLine_;                                   // HTML
  std::string changes_;                                    // HTML
  std::map<std::string, std::vector<std::size_t>> words_;  // of each script, newest first
};

}  // namespace kelvane
