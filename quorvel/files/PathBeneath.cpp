#include "quorvel/files/PathBeneath.h"

#include <algorithm>

namespace quorvel {
namespace {

// Tells `take` each piece of a path, the empty ones too, until it answers false. Whether it never did.
template <class Take>
bool eachPiece(std::string_view path, Take take) {
  for (std::size_t begin = 0; begin < path.size();) {
    const std::size_t end = std::min(path.find('/', begin), path.size());
    if (!take(path.substr(begin, end - begin))) return false;
    begin = end + 1;
  }
  return true;
}

}  // namespace

std::optional<PathBeneath> PathBeneath::of(std::string_view path) {
  if (path.starts_with('/') || path.find('\0') != std::string_view::npos) return std::nullopt;
  PathBeneath beneath;
  beneath.path_.reserve(path.size());
  const bool staysBeneath = eachPiece(path, [&](std::string_view piece) {
    if (piece.empty() || piece == ".") return true;
    if (!beneath.path_.empty()) beneath.path_.push_back('/');
    beneath.path_.append(piece);
    return piece != "..";
  });
  if (!staysBeneath) return std::nullopt;
  return beneath;
}

std::string_view PathBeneath::name() const& noexcept {
  return std::string_view(path_).substr(path_.rfind('/') + 1);  // npos + 1 is 0
}

PathBeneath PathBeneath::parent() const {
  PathBeneath parent;
  const std::size_t slash = path_.rfind('/');
  if (slash != std::string::npos) parent.path_ = path_.substr(0, slash);
  return parent;
}

PathBeneath PathBeneath::child(std::string_view name, std::string_view suffix) const {
  PathBeneath child;
  child.path_.reserve(path_.size() + 1 + name.size() + suffix.size());
  child.path_ = path_;
  if (!path_.empty()) child.path_.push_back('/');
  child.path_.append(name).append(suffix);
  return child;
}

std::vector<std::string_view> PathBeneath::pieces() const& {
  std::vector<std::string_view> pieces;
  eachPiece(path_, [&](std::string_view piece) { return pieces.push_back(piece), true; });
  return pieces;
}

}  // namespace quorvel
