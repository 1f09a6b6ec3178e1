#pragma once

#include <chrono>
#include <cstddef>
#include <filesystem>
#include <string>
#include <vector>

namespace kelvane {

/// Whether this program does nothing but serve when it is started with these arguments: none, or `serve` and its
/// options. A server starts no process and changes no settings, so it can be started to see whether it answers.
bool areOfAServer(const std::vector<std::string>& arguments) noexcept;

/// Starts this program as AI clients start it, with pipes to its standard input, output and error, greets it as a
/// client of the Model Context Protocol, asks for its tools, closes its input and waits for its end; it is killed when
/// all that takes longer than `patience`. Returns how many tools it has.
///
/// Throws an error with complete sentences when the arguments are not those of a server (nothing is started then), the
/// program cannot be started, does not answer in time or not as it should, ends with another status than 0, or writes
/// to standard error, which is quoted then. The calling process has to ignore SIGPIPE.
std::size_t handshake(const std::filesystem::path& program, const std::vector<std::string>& arguments,
                      std::chrono::milliseconds patience);

}  // namespace kelvane
