#pragma once

#include <cstdint>
#include <string_view>

namespace quorvel {

/// FNV-1a, 64 bits. What is found by it stands on disks (the history's texts, the names of temporary files), so it can
/// never be another.
constexpr std::uint64_t fnv1a(std::string_view bytes) noexcept {
  std::uint64_t hash = 0xcbf29ce484222325;
  for (const char byte : bytes) hash = (hash ^ static_cast<unsigned char>(byte)) * 0x100000001b3;
  return hash;
}

}  // namespace quorvel
