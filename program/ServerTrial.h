#pragma once

#include <chrono>
#include <cstddef>
#include <filesystem>
#include <string>
#include <vector>

namespace kelvane {

/// Whether this program only serves when it is started with these arguments: none, or `serve` and its options,
/// each behind any number of "--". A server
/// starts no process and changes no settings, so it can be started to see whether it answers.
bool startsServer(const std::vector<std::string>& arguments) noexcept;

/// Starts this program as AI clients start it, with pipes to its standard input, output and error, greets it as a
/// client of the Model Context Protocol, asks for its tools, closes its input and waits for its end. The program is
/// killed if all that takes longer than `patience`. Returns how many tools it has.
///
/// Throws an error with complete sentences if the arguments are not those of a server (then nothing is started), or if
/// the program cannot be started, does not answer correctly in time, ends with a status other than 0, or writes to
/// standard error, which the error then quotes. The calling process must ignore SIGPIPE.
std::size_t tryServer(const std::filesystem::path& program, const std::vector<std::string>& arguments,
                      std::chrono::milliseconds patience);

}  // namespace kelvane
