#pragma once

#include "program/CommandLine.h"

namespace kelvane {

/// kelvane call TOOL [NAME=VALUE ...] [--library DIR] [--allow-writes]
void addCall(CLI::App& program, Action& chosen);

}  // namespace kelvane
