#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "benchmarks/Peers.h"
#include "benchmarks/Ratios.h"
#include "protocol/JSON.h"

// Decoding JSON text into a tree that owns what it holds, and encoding such a tree, beside other libraries in one run:
// on the files that JSON libraries are usually compared on, where they are present, and on messages of MCP made here.

namespace {

using kelvane::JSON;
namespace fs = std::filesystem;

struct Text {
  std::string name;
  std::string content;
};

/// What a client sends most: a small request.
std::string smallRequest() {
  return R"({"jsonrpc":"2.0","id":42,"method":"tools/call","params":{"name":"read_script",)"
         R"("arguments":{"id":"Talks/The long way home.md"}}})";
}

/// A script of about 200 KB on its way in, as an encoder writes it.
std::string largeRequest() {
  std::string text;
  while (text.size() < 200000) {
    text += "# A chapter\n\nWords that are read aloud, some of them \"quoted\", some with accents: déjà vu.\n\n";
  }
  return JSON(JSON::Object{{"jsonrpc", "2.0"},
                           {"id", 43},
                           {"method", "tools/call"},
                           {"params", JSON::Object{{"name", "update_script"},
                                                   {"arguments", JSON::Object{{"id", "Talks/The long way home.md"},
                                                                              {"note", "tightened the intro"},
                                                                              {"text", text}}}}}})
      .encoded();
}

/// The tree of a large library: 100,000 scripts in 5,000 folders.
std::string libraryTree() {
  JSON::Array folders;
  for (int folder = 0; folder < 5000; ++folder) {
    const std::string name = "Folder " + std::to_string(folder);
    JSON::Array scripts;
    for (int script = 0; script < 20; ++script) {
      const std::string title = "Script " + std::to_string(script);
      scripts.append(JSON::Object{{"id", name + "/" + title + ".md"}, {"kind", "script"}, {"name", title}});
    }
    folders.append(JSON::Object{{"children", scripts}, {"id", name}, {"kind", "folder"}, {"name", name}});
  }
  return JSON(folders).encoded();
}

std::vector<Text> texts() {
  std::vector<Text> all = {
      {"small-request", smallRequest()}, {"200KB-request", largeRequest()}, {"library-tree", libraryTree()}};
  const char* given = std::getenv("KELVANE_TEST_DATA");
  const fs::path data = given ? fs::path(given) : fs::path(KELVANE_SOURCE_DIR) / ".." / "shared" / "data";
  for (const char* name : {"twitter.json", "citm_catalog.json", "canada.json"}) {
    std::ifstream file(data / "json-corpora" / name, std::ios::binary);
    if (file) {
      all.push_back({name, std::string(std::istreambuf_iterator<char>(file), {})});
    } else {
      std::fprintf(stderr, "%s is not here, so it is left out; KELVANE_TEST_DATA names the folder of json-corpora.\n",
                   name);
    }
  }
  return all;
}

void registerBenchmarks(const std::vector<Text>& all) {
  for (const Text& text : all) {
    for (const auto& peer : kelvane::benchmarks::peers()) {
      benchmark::RegisterBenchmark(
          ("decode/" + text.name + "/" + peer.name).c_str(),
          [&content = text.content, decode = peer.decode](benchmark::State& state) {
            for (auto _ : state) {
              if (!decode(content)) state.SkipWithError("The text was refused.");
            }
            state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * content.size()));
          });
    }
  }
  for (const Text& text : all) {
    for (const auto& peer : kelvane::benchmarks::peers()) {
      benchmark::RegisterBenchmark(("encode/" + text.name + "/" + peer.name).c_str(),
                                   [&content = text.content, encoder = peer.encoder](benchmark::State& state) {
                                     const auto encode = encoder(content);
                                     std::size_t written = 0;
                                     for (auto _ : state) benchmark::DoNotOptimize(written += encode());
                                     state.SetBytesProcessed(static_cast<std::int64_t>(written));
                                   });
    }
  }
}

}  // namespace

int main(int argc, char** argv) {
  const std::vector<Text> all = texts();
  registerBenchmarks(all);
  return kelvane::benchmarks::runWithRatios(argc, argv);
}
