#pragma once

#include <string>

#include "benchmarks/performance/Record.h"

namespace kelvane::benchmarks {

/// The text of docs/PERFORMANCE.md: first what a person feels, then the tables. The charts are beside it, in the folder
/// `performance`. What was not measured is left out.
std::string performancePage(const Record& record);

}  // namespace kelvane::benchmarks
