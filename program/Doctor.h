#pragma once

#include "program/CommandLine.h"

namespace kelvane {

/// kelvane doctor [--library DIR]
void addDoctor(CLI::App& program, Action& chosen);

}  // namespace kelvane
