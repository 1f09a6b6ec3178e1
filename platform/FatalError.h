#pragma once

#include <string_view>

namespace kelvane {

/// Stops the process: prints "Fatal error: ", the message and a line feed to standard error, then aborts.
///
/// Only for broken invariants, that is, for defects of this program or of a library that it is linked with. Anything
/// that a client, a file or a person can cause is an exception or an empty optional instead.
[[noreturn]] void fatalError(std::string_view message) noexcept;

}  // namespace kelvane
