#pragma once

#include "program/CommandLine.h"

namespace kelvane {

/// kelvane serve [--library DIR] [--allow-writes]
void addServe(CLI::App& program, Action& chosen);

/// What AI clients start: kelvane. Serves as the settings say, and throws an error with complete sentences before it
/// reads anything when they say that it is switched off, or name no folder that can be read.
int serveBySettings();

}  // namespace kelvane
