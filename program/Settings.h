#pragma once

#include "program/CommandLine.h"

namespace kelvane {

/// kelvane settings [show | enable | disable | allow-writes | read-only | library DIR]
void addSettings(CLI::App& program, Action& chosen);

}  // namespace kelvane
