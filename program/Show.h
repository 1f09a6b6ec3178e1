#pragma once

#include "program/CommandLine.h"

namespace kelvane {

/// kelvane show SCRIPT VERSION [--library DIR]
void addShow(CLI::App& program, Action& chosen);

}  // namespace kelvane
