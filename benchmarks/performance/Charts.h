#pragma once

#include <string>

#include "benchmarks/performance/Drawing.h"
#include "benchmarks/performance/Record.h"

/// The charts of a record, each as a whole SVG file. What was not measured is left out; the text is empty where that is
/// everything.
namespace kelvane::benchmarks {

/// The ratios to the floors, with what each must not exceed.
std::string floorsChart(const Record& record, const Palette& palette);

/// The time of every tool as one thing grows, a field for each such thing.
std::string growthChart(const Record& record, const Palette& palette);

/// The time of the JSON peers over ours.
std::string jsonChart(const Record& record, const Palette& palette);

}  // namespace kelvane::benchmarks
