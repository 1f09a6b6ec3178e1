#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace quorvel {

/// A path that stays beneath the folder that it starts from, whatever that folder is: relative, without a piece "..",
/// without NUL, and spelt in one way only, without empty pieces and ".". Nothing else can be in it, so it is checked
/// once, where an identifier comes in, and not again where it is used:
///
///     const auto path = PathBeneath::of("Scenes//End.md");   // "Scenes/End.md"; std::nullopt for "../End.md"
///     openBeneath(calls, root, *path, O_RDONLY);
///
/// What it names need not exist. Links on it are for openBeneath to refuse (Beneath.h). Paths are bytes.
class PathBeneath {
 public:
  /// The path of the folder itself: empty.
  PathBeneath() = default;

  /// std::nullopt if the path is absolute, or has a piece ".." or a NUL. Linear.
  static std::optional<PathBeneath> of(std::string_view path);

  /// The pieces with "/" between them; empty for the folder itself.
  const std::string& string() const& noexcept { return path_; }
  std::string string() && noexcept { return std::move(path_); }

  bool isTheFolderItself() const noexcept { return path_.empty(); }

  /// The last piece; empty for the folder itself.
  std::string_view name() const& noexcept;
  std::string_view name() && = delete;  // a view of a path that is gone

  /// The path without its last piece.
  PathBeneath parent() const;

  /// The path of an entry in what this names, whose name is `name` with `suffix` behind it. That is one piece: not
  /// empty, "." or "..", without "/" and NUL. One allocation.
  PathBeneath child(std::string_view name, std::string_view suffix = {}) const;

  /// Views of this path, from the first piece to the last.
  std::vector<std::string_view> pieces() const&;
  std::vector<std::string_view> pieces() && = delete;

  bool operator==(const PathBeneath&) const = default;

 private:
  std::string path_;
};

}  // namespace quorvel
