#pragma once

namespace kelvane::benchmarks {

/// The main function of a benchmark program. Benchmarks that are called "TASK/peer" are gathered by their task; after
/// the run a table says for each task how long the peers took relative to ours, "TASK/kelvane", by the medians of
/// their repetitions: of CPU time, or of real time where the benchmark measures that. More than 1 means that the peer
/// took longer. A second table says for tasks that are called "WHAT-of-SIZE" how the times grew from one size to
/// the next. Returns the program's exit status.
int runWithRatios(int argc, char** argv);

}  // namespace kelvane::benchmarks
