#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include <functional>
#include <vector>

#include "benchmarks/LibraryTools.h"
#include "benchmarks/Ratios.h"

// What a call of a tool that writes costs over a folder of plain files, in real time, at growing sizes. Beside it stand
// the same call in a folder in memory, where flushing costs nothing, so that the rest is the disk's share; and
// "flushing", a program of a few lines that makes the same bytes as durable.

namespace {

using kelvane::JSON;
using kelvane::benchmarks::Folder;
using kelvane::benchmarks::put;
using kelvane::benchmarks::Tools;
namespace fs = std::filesystem;

/// A call that is to be measured: a script's text, and what is asked for in each round.
struct Task {
  std::string name;
  std::string text;
  std::string tool;
  std::function<JSON::Object(std::size_t round)> arguments;  // beside the "id"
};

/// Where files are in memory; the temporary folder where the system has no such place.
fs::path memory() {
  return fs::is_directory("/dev/shm") ? "/dev/shm" : fs::temp_directory_path();
}

void run(benchmark::State& state, const Task& task, const fs::path& parent) {
  const Folder folder(parent);
  put(folder.path() / "script.md", task.text);
  const Tools tools(folder.path());
  std::size_t round = 0;
  for (auto _ : state) {
    state.PauseTiming();
    JSON::Object arguments = task.arguments(round++);
    arguments.set("id", "script.md");
    state.ResumeTiming();
    benchmark::DoNotOptimize(tools.call(task.tool, arguments));
  }
}

/// Puts a file in the place of another durably, and makes a record of the old text durable first.
void replaceDurably(const fs::path& root, std::string_view text) {
  const auto writeFlushed = [](const fs::path& file, std::string_view bytes) {
    const int descriptor = open(file.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (write(descriptor, bytes.data(), bytes.size()) != static_cast<ssize_t>(bytes.size()) || fsync(descriptor) != 0 ||
        close(descriptor) != 0) {
      throw std::runtime_error("A file could not be written.");
    }
  };
  const auto flushFolder = [&root] {
    const int descriptor = open(root.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fsync(descriptor) != 0 || close(descriptor) != 0) throw std::runtime_error("A folder could not be flushed.");
  };
  // A rollback journal's commit: the journal, its folder, the database, the folder again once the journal is gone.
  writeFlushed(root / "journal", "pages");
  flushFolder();
  writeFlushed(root / "record", text);
  fs::remove(root / "journal");
  flushFolder();
  // The text itself.
  writeFlushed(root / "temporary", text);
  fs::rename(root / "temporary", root / "script.md");
  flushFolder();
}

void measure(const std::function<void(benchmark::State&)>& body, const std::string& name) {
  benchmark::RegisterBenchmark(name.c_str(), body)->UseRealTime()->Unit(benchmark::kMicrosecond);
}

void measure(const Task& task) {
  measure([task](benchmark::State& state) { run(state, task, fs::temp_directory_path()); }, task.name + "/kelvane");
  measure([task](benchmark::State& state) { run(state, task, memory()); }, task.name + "/in-memory");
  measure(
      [task](benchmark::State& state) {
        const Folder folder;
        for (auto _ : state) replaceDurably(folder.path(), task.text);
      },
      task.name + "/flushing");
}

std::string prose(std::size_t size) {
  std::string text;
  while (text.size() < size) text += "These are words that a person wrote and reads aloud. ";
  text.resize(size);
  return text;
}

std::string chapters(std::size_t count) {
  std::string text;
  for (std::size_t chapter = 1; chapter <= count; ++chapter) {
    text.append("# Chapter ").append(std::to_string(chapter)).append("\n\nA few words.\n\n");
  }
  return text;
}

void writing() {
  for (const std::size_t kilobytes : {10U, 100U, 1000U}) {
    const std::string size = "-of-" + std::to_string(kilobytes) + "KB";
    const std::string text = prose(kilobytes * 1000);
    measure({"update_script" + size, text, "update_script", [text](std::size_t round) {
               return JSON::Object{{"note", "again"}, {"text", text + std::to_string(round)}};
             }});
    measure({"append_to_script" + size, text, "append_to_script", [](std::size_t) {
               return JSON::Object{{"note", "more"}, {"text", "And one more line."}};
             }});
  }
  for (const std::size_t count : {1000U, 10000U, 100000U}) {
    const std::string first = "1", last = std::to_string(count);
    measure({"move_chapter-of-" + last, chapters(count), "move_chapter", [first, last](std::size_t round) {
               const bool isForth = round % 2 == 0;
               return JSON::Object{{"chapter", isForth ? first : last}, {"to", isForth ? last : first}};
             }});
  }
}

/// A script with that many versions. In memory, because making them durable takes long.
const Folder& scriptWithVersions(std::size_t count) {
  static std::map<std::size_t, std::unique_ptr<Folder>> folders;
  auto& folder = folders[count];
  if (folder) return *folder;
  folder = std::make_unique<Folder>(memory());
  put(folder->path() / "script.md", prose(1000));
  const Tools tools(folder->path());
  for (std::size_t made = 0; made < count; ++made) {
    tools.call("save_version", {{"id", "script.md"}, {"note", "a point"}});
  }
  return *folder;
}

void listing() {
  for (const std::size_t count : {100U, 1000U, 10000U}) {
    measure(
        [count](benchmark::State& state) {
          const Tools tools(scriptWithVersions(count).path());
          for (auto _ : state) benchmark::DoNotOptimize(tools.call("list_versions", {{"id", "script.md"}}));
        },
        "list_versions-of-" + std::to_string(count) + "/kelvane");
  }
}

}  // namespace

int main(int argc, char** argv) {
  writing();
  listing();
  return kelvane::benchmarks::runWithRatios(argc, argv);
}
