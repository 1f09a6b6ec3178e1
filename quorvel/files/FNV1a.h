#pragma once

#include <cstdint>
#include <string_view>

namespace quorvel {

/// The 64-bit FNV-1a hash of the bytes, for file names: it needs one step for each byte. The names of temporary files
/// hold such hashes (TemporaryName.h) and the histories of format 1 did, so the function can never change. It is no
/// protection against somebody who looks for two equal hashes.
constexpr std::uint64_t fnv1a(std::string_view bytes) noexcept {
  std::uint64_t hash = 0xcbf29ce484222325;
  for (const char byte : bytes) hash = (hash ^ static_cast<unsigned char>(byte)) * 0x100000001b3;
  return hash;
}

}  // namespace quorvel
