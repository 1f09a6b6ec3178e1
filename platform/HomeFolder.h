#pragma once

#include <filesystem>
#include <optional>

namespace kelvane {

/// The folder of the person whose process this is: what HOME says when that is an absolute path, else what the user
/// database says. Nothing where neither names one.
///
/// Everything that a person set up is found from here, and no other variable has a say: AI clients start servers with
/// HOME but without the XDG variables, so that a place that depended on those would be another one for the server than
/// for the terminal in which it was set up.
std::optional<std::filesystem::path> homeFolder();

}  // namespace kelvane
