#include <benchmark/benchmark.h>
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <stdexcept>
#include <string>

#include "benchmarks/LibraryTools.h"
#include "benchmarks/Ratios.h"

// What listing costs over folders of plain files, in real time, beside bare walks of the same folders.

namespace {

using kelvane::benchmarks::Folder;
using kelvane::benchmarks::put;
using kelvane::benchmarks::Tools;
namespace fs = std::filesystem;

/// 100,000 scripts in 5,000 folders.
const Folder& largeLibrary() {
  static const Folder folder;
  static const bool isMade = [] {
    for (int i = 0; i < 5000; ++i) {
      const fs::path below = folder.path() / ("Folder " + std::to_string(i));
      fs::create_directory(below);
      for (int j = 0; j < 20; ++j) put(below / ("Script " + std::to_string(j) + ".md"), "");
    }
    return true;
  }();
  (void)isMade;
  return folder;
}

/// The least that a walk costs: the entries' names and types, each folder opened relative to the one above.
std::size_t walk(int parent, const char* name) {
  const int descriptor = openat(parent, name, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  DIR* directory = fdopendir(descriptor);
  if (directory == nullptr) throw std::runtime_error("A folder could not be read.");
  std::size_t count = 0;
  while (const dirent* entry = readdir(directory)) {
    if (entry->d_name[0] == '.') continue;
    ++count;
    if (entry->d_type == DT_DIR) count += walk(descriptor, entry->d_name);
  }
  closedir(directory);
  return count;
}

void listing() {
  benchmark::RegisterBenchmark("list_scripts-100000/kelvane",
                               [](benchmark::State& state) {
                                 const Tools tools(largeLibrary().path());
                                 for (auto _ : state) benchmark::DoNotOptimize(tools.call("list_scripts", {}));
                               })
      ->UseRealTime()
      ->Unit(benchmark::kMillisecond);
  benchmark::RegisterBenchmark("list_scripts-100000/getdents",
                               [](benchmark::State& state) {
                                 for (auto _ : state)
                                   benchmark::DoNotOptimize(walk(AT_FDCWD, largeLibrary().path().c_str()));
                               })
      ->UseRealTime()
      ->Unit(benchmark::kMillisecond);
  benchmark::RegisterBenchmark("list_scripts-100000/std-filesystem",
                               [](benchmark::State& state) {
                                 for (auto _ : state) {
                                   std::size_t count = 0;
                                   for (const auto& entry : fs::recursive_directory_iterator(largeLibrary().path())) {
                                     count += entry.is_directory() ? 2 : 1;
                                   }
                                   benchmark::DoNotOptimize(count);
                                 }
                               })
      ->UseRealTime()
      ->Unit(benchmark::kMillisecond);
}

}  // namespace

int main(int argc, char** argv) {
  listing();
  return kelvane::benchmarks::runWithRatios(argc, argv);
}
