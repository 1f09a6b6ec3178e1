#pragma once

#include "program/CommandLine.h"

namespace kelvane {

/// kelvane restore SCRIPT VERSION [--library DIR]
void addRestore(CLI::App& program, Action& chosen);

}  // namespace kelvane
