#pragma once

#include <string_view>

namespace kelvane {

/// Stops the process: prints "Fatal error: ", the message and a line feed to standard error, then aborts.
/// For broken invariants only, that is for defects of this program or of the library it was linked with; whatever
/// a client, a file or a person can cause is an exception or an empty optional instead.
[[noreturn]] void fatalError(std::string_view message) noexcept;

}  // namespace kelvane
