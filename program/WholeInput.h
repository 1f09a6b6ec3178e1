#pragma once

#include <filesystem>
#include <string>

/// Long texts that a person gives to a command in a file or on standard input. Both may be pipes.
namespace kelvane {

/// All bytes of a file. Throws an error with complete sentences if it cannot be read, or has more than 256 MiB, which
/// is more than a script can hold. Linear in the file.
std::string contentsOf(const std::filesystem::path& file);

/// All bytes of standard input, in the same way.
std::string standardInput();

}  // namespace kelvane
