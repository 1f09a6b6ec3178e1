#pragma once

#include <string>

#include "program/CommandLine.h"

namespace kelvane {

/// The manual page kelvane(1), in the man(7) macros of roff, made from the table of commands. Linear in the table.
std::string manualPage(Commands commands);

}  // namespace kelvane
