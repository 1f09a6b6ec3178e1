#pragma once

#include "program/CommandLine.h"

namespace kelvane {

/// kelvane history [SCRIPT] [--library DIR]
void addHistory(CLI::App& program, Action& chosen);

}  // namespace kelvane
