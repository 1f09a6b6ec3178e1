#pragma once

#include "program/CommandLine.h"

namespace kelvane {

/// kelvane connect claude|codex [--config FILE] [--dry-run]
void addConnect(CLI::App& program, Action& chosen);

/// kelvane disconnect claude|codex [--config FILE] [--dry-run]
void addDisconnect(CLI::App& program, Action& chosen);

}  // namespace kelvane
