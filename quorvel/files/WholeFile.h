#pragma once

#include <optional>
#include <string>

namespace quorvel {

/// All bytes from where the file stands to its end. Nothing, with the reason in errno, when they cannot be read.
std::optional<std::string> readToEnd(int file);

}  // namespace quorvel
