#include <benchmark/benchmark.h>
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <stdexcept>

#include "benchmarks/Ratios.h"
#include "quorvel/library/FolderLibrary.h"
#include "quorvel/library/History.h"
#include "scripttools/ScriptTools.h"

// What a call of a tool costs over folders of plain files, in real time. Listing is measured beside bare walks of the
// same folders; writing beside "flushing", a program of a few lines that makes the same bytes as durable: the ratio
// that is printed for it is the share of the disk in what the tool takes.

namespace {

using kelvane::JSON;
using kelvane::Tool;
namespace fs = std::filesystem;

/// A folder that goes with the program.
class Folder {
 public:
  explicit Folder(const fs::path& parent = fs::temp_directory_path()) {
    std::string pattern = (parent / "kelvane-benchmark-XXXXXX").string();
    if (mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("There is no room for a temporary folder.");
    path_ = pattern;
  }
  Folder(const Folder&) = delete;
  Folder& operator=(const Folder&) = delete;
  ~Folder() {
    std::error_code ignored;
    fs::remove_all(path_, ignored);
  }
  const fs::path& path() const { return path_; }

 private:
  fs::path path_;
};

void put(const fs::path& file, std::string_view text) {
  std::ofstream stream(file, std::ios::binary);
  stream.write(text.data(), static_cast<std::streamsize>(text.size()));
  if (!stream.flush()) throw std::runtime_error("A script could not be written.");
}

/// The tools over a folder, called by their names.
class Tools {
 public:
  explicit Tools(const fs::path& root) {
    const auto history = std::make_shared<quorvel::History>(root);
    const auto library = std::make_shared<quorvel::FolderLibrary>(root, history);
    for (Tool& tool : kelvane::ScriptTools(library, history).tools(true)) tools_.emplace(tool.name(), tool);
  }
  std::string call(const std::string& name, const JSON::Object& arguments) const {
    return tools_.at(name).run(arguments);
  }

 private:
  std::map<std::string, Tool> tools_;
};

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

std::string prose(std::size_t size) {
  std::string text;
  while (text.size() < size) text += "These are words that a person wrote and reads aloud. ";
  text.resize(size);
  return text;
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

void writing() {
  for (const std::size_t size : {std::size_t{10000}, std::size_t{100000}, std::size_t{1000000}}) {
    const std::string task = "update_script-" + std::to_string(size / 1000) + "KB";
    benchmark::RegisterBenchmark(
        (task + "/kelvane").c_str(),
        [size](benchmark::State& state) {
          const Folder folder;
          put(folder.path() / "script.md", prose(size));
          const Tools tools(folder.path());
          std::size_t round = 0;
          for (auto _ : state) {
            tools.call("update_script",
                       {{"id", "script.md"}, {"note", "again"}, {"text", prose(size).append(std::to_string(round++))}});
          }
        })
        ->UseRealTime()
        ->Unit(benchmark::kMicrosecond);
    benchmark::RegisterBenchmark((task + "/flushing").c_str(),
                                 [size](benchmark::State& state) {
                                   const Folder folder;
                                   for (auto _ : state) replaceDurably(folder.path(), prose(size));
                                 })
        ->UseRealTime()
        ->Unit(benchmark::kMicrosecond);
  }
  benchmark::RegisterBenchmark(
      "append_to_script/kelvane",
      [](benchmark::State& state) {
        const Folder folder;
        put(folder.path() / "script.md", prose(4000));
        const Tools tools(folder.path());
        for (auto _ : state) {
          tools.call("append_to_script", {{"id", "script.md"}, {"note", "more"}, {"text", "And one more line."}});
        }
      })
      ->UseRealTime()
      ->Unit(benchmark::kMicrosecond)
      ->Iterations(200);
}

void chaptersAndVersions() {
  for (const int count : {1000, 10000}) {
    benchmark::RegisterBenchmark(("move_chapter-of-" + std::to_string(count) + "/kelvane").c_str(),
                                 [count](benchmark::State& state) {
                                   const Folder folder;
                                   std::string text;
                                   for (int i = 1; i <= count; ++i) {
                                     text.append("# Chapter ").append(std::to_string(i)).append("\n\nA few words.\n\n");
                                   }
                                   put(folder.path() / "script.md", text);
                                   const Tools tools(folder.path());
                                   bool isForth = true;
                                   for (auto _ : state) {
                                     tools.call("move_chapter", {{"id", "script.md"},
                                                                 {"chapter", isForth ? "1" : std::to_string(count)},
                                                                 {"to", isForth ? std::to_string(count) : "1"}});
                                     isForth = !isForth;
                                   }
                                 })
        ->UseRealTime()
        ->Unit(benchmark::kMicrosecond);
  }
  for (const int count : {1000, 10000}) {
    benchmark::RegisterBenchmark(
        ("list_versions-of-" + std::to_string(count) + "/kelvane").c_str(),
        [count](benchmark::State& state) {
          static std::map<int, std::unique_ptr<Folder>> folders;
          auto& folder = folders[count];
          if (!folder) {
            // In memory where the system has such a place: making so many versions durable takes long.
            folder = std::make_unique<Folder>(fs::is_directory("/dev/shm") ? "/dev/shm" : fs::temp_directory_path());
            put(folder->path() / "script.md", prose(1000));
            const Tools tools(folder->path());
            for (int i = 0; i < count; ++i) {
              tools.call("save_version", {{"id", "script.md"}, {"note", "a point"}});
            }
          }
          const Tools tools(folder->path());
          for (auto _ : state) {
            benchmark::DoNotOptimize(tools.call("list_versions", {{"id", "script.md"}}));
          }
        })
        ->UseRealTime()
        ->Unit(benchmark::kMicrosecond);
  }
}

}  // namespace

int main(int argc, char** argv) {
  listing();
  writing();
  chaptersAndVersions();
  return kelvane::benchmarks::runWithRatios(argc, argv);
}
