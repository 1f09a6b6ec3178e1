#pragma once

#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "quorvel/files/FileIdentity.h"
#include "quorvel/files/SystemCalls.h"
#include "quorvel/settings/FileError.h"

namespace quorvel {

/// A file, and copies of texts that it held, beside it: FILE and an ending, as in "config.before", then
/// "config.before-2" and so on. They are for their owner only, as the file may hold secrets.
///
/// A copy gets the first name that nothing has. A file that has such a name already is never changed; it counts as a
/// copy if it belongs to the user and only the user may read it.
class FileCopies {
 public:
  /// Which texts are to be kept.
  using IsWanted = std::function<bool(const std::string& text)>;

  FileCopies(std::filesystem::path file, std::string_view ending);
  FileCopies(std::filesystem::path file, std::string_view ending, IsWanted isWanted,
             const SystemCalls& calls = SystemCalls::ofTheSystem());

  /// If the text is wanted, returns when a copy that holds it is on the disk: one that is there, or a new one. Throws
  /// FileError: no copy was made then.
  void keep(const std::string& text);

  /// Throws what `keep` would throw, as far as that can be told without making anything.
  void tryKeeping(const std::string& text) const;

  /// Deletes the copy that the last `keep` made, if it made one. Should that fail, the copy stays.
  void takeBack() noexcept;

  /// The copy with the text that was kept last; none when that was taken back.
  const std::optional<std::filesystem::path>& last() const noexcept { return last_; }

  /// Whether one of the copies holds this text. False when they cannot be read.
  bool hold(const std::string& text) const;

  const std::filesystem::path& file() const noexcept { return file_; }
  const SystemCalls& calls() const noexcept { return calls_; }

 private:
  struct Found {
    std::string name;  // of the copy that holds a text, or the first that is free
    bool isThere;
  };

  Found find(int folder, const std::string& text) const;

  // Makes a copy with that free name, or the next one if it is taken meanwhile.
  void make(const std::string& text, int folder, Found& found);
  std::filesystem::path pathOf(const std::string& name) const;
  FileError notWritten(const std::string& name, const std::error_code& error) const;

  std::filesystem::path file_;
  std::string firstName_;
  IsWanted isWanted_;
  const SystemCalls& calls_;
  std::optional<std::filesystem::path> last_;
  std::optional<FileIdentity> made_;
};

}  // namespace quorvel
