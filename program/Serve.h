#pragma once

#include "program/CommandLine.h"

namespace kelvane {

/// kelvane serve [--library DIR] [--allow-writes]
void addServe(CLI::App& program, Action& chosen);

}  // namespace kelvane
