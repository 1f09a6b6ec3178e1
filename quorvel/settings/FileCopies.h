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

/// A file, and copies of old texts of it in the same folder: the file's name and an ending, such as "config.before",
/// then "config.before-2" and so on. Only the user can read and write a copy, because the file may hold secrets.
///
/// A copy gets the first name that is free. An existing file of such a name is never changed or replaced. It counts as
/// a copy if it belongs to the user and nobody else is permitted to read it.
///
///     FileCopies copies("/home/ada/.claude.json", ".before-kelvane");
///     copies.save(text);  // in "/home/ada/.claude.json.before-kelvane", unless that holds another text
///
/// Looking for a text takes time linear in the number of copies; only copies of the text's size are read. Not
/// thread-safe. Several objects and processes may save copies of one file at once.
class FileCopies {
 public:
  /// Whether a text is to be saved.
  using IsWanted = std::function<bool(const std::string& text)>;

  /// Copies of every text, or of the wanted ones. Touches no file. `calls` must outlive the object.
  FileCopies(std::filesystem::path file, std::string_view ending);
  FileCopies(std::filesystem::path file, std::string_view ending, IsWanted isWanted,
             const SystemCalls& calls = SystemCalls::ofTheSystem());

  /// Returns when a copy with this text is on the disk: an existing one, or a new one. Does nothing if the text is not
  /// wanted. Throws FileError if no copy can be made, also if there are 10,000 already, or if names that
  /// were free turn out to be taken a hundred times.
  void save(const std::string& text);

  /// Throws what `save` would throw, as far as that can be told, and makes nothing.
  void trySaving(const std::string& text) const;

  /// Deletes the copy that the last `save` made, if it made one. If that fails, the copy stays.
  void takeBack() noexcept;

  /// The copy that holds the text saved last. Empty if that text was not wanted, or its copy was taken back.
  const std::optional<std::filesystem::path>& last() const noexcept { return last_; }

  /// Whether a copy holds this text. False if the copies cannot be read. Does not throw.
  bool hold(const std::string& text) const;

  const std::filesystem::path& file() const noexcept { return file_; }
  const SystemCalls& calls() const noexcept { return calls_; }

 private:
  struct Found {
    std::string name;  // of the copy that holds the text, or the first free one
    bool isThere;
  };

  Found find(int folder, const std::string& text) const;

  // Makes a copy with that name, or with the next free one if another program uses it meanwhile.
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
