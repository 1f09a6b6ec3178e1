#include <filesystem>
#include <fstream>
#include <iostream>
#include <stdexcept>

#include "benchmarks/performance/Charts.h"
#include "benchmarks/performance/Page.h"

// Writes docs/PERFORMANCE.md and its charts from the figures of one run.
//
//     kelvane_performance FIGURES DOCS

namespace {

namespace fs = std::filesystem;
using namespace kelvane::benchmarks;

/// A chart of nothing is not written.
void write(const fs::path& file, const std::string& text) {
  if (text.empty()) return;
  if (!(std::ofstream(file, std::ios::binary) << text << std::flush))
    throw std::runtime_error(file.string() + " cannot be written.");
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) {
    std::cerr << "It takes: FIGURES DOCS\n";
    return 2;
  }
  try {
    const Record record(argv[1]);
    const fs::path docs = argv[2], charts = docs / "performance";
    fs::create_directories(charts);
    const struct {
      const char* name;
      std::string (*draw)(const Record&, const Palette&);
    } drawn[] = {{"floors", floorsChart}, {"growth", growthChart}, {"json", jsonChart}};
    for (const auto& [name, draw] : drawn) {
      write((charts / name).concat(".svg"), draw(record, lightPalette()));
      write((charts / name).concat("-dark.svg"), draw(record, darkPalette()));
    }
    write(docs / "PERFORMANCE.md", performancePage(record));
    return 0;
  } catch (const std::exception& error) {
    std::cerr << error.what() << '\n';
    return 1;
  }
}
