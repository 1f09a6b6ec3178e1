#pragma once

#include <functional>
#include <string>
#include <vector>

namespace kelvane::benchmarks {

/// A JSON library at work on one text.
struct Peer {
  std::string name;
  /// Makes a tree of the text and destroys it; false when the text is refused.
  std::function<bool(const std::string& text)> decode;
  /// A tree of the text, and what writes it as compact text and returns the length of that.
  std::function<std::function<std::size_t()>(const std::string& text)> encoder;
};

/// Ours first, then every peer that was there when this was built.
std::vector<Peer> peers();

}  // namespace kelvane::benchmarks
