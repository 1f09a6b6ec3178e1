#pragma once

#include <filesystem>
#include <optional>

namespace kelvane {

/// The home folder of the user who runs this process: the value of HOME if that is an absolute path, otherwise the one
/// in the user database. std::nullopt if neither names one. The folder need not exist.
///
/// Settings and the AI clients' files are found from here, and no other variable matters. AI clients start servers with
/// HOME but without the XDG variables. If a path depended on those, the server would not find what was set up in a
/// terminal.
///
/// Throws only std::bad_alloc. Reads the environment, so it must not run while another thread changes it.
std::optional<std::filesystem::path> homeFolder();

}  // namespace kelvane
