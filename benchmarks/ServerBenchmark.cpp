#include <benchmark/benchmark.h>

#include "benchmarks/Ratios.h"
#include "protocol/Server.h"

// What the protocol itself costs a request: `Server::handle` with tools that do next to nothing. The floor, "copy", is
// a copy of the reply.

namespace {

using kelvane::JSON;
using kelvane::Server;
using kelvane::Tool;

const Server& server() {
  static const Server instance = [] {
    std::vector<Tool> tools;
    for (int i = 0; i < 17; ++i) {
      tools.emplace_back(
          "tool_" + std::to_string(i), "What a client's model reads about this tool.",
          kelvane::schema({{"id", "Identifier of the script"}, {"text", "The text"}}, {"id", "text"}),
          [](const JSON::Object& arguments) { return std::string(kelvane::requiredString("text", arguments)); });
    }
    return Server("kelvane", std::move(tools));
  }();
  return instance;
}

void registerBenchmark(const std::string& task, const std::string& line) {
  benchmark::RegisterBenchmark((task + "/kelvane").c_str(), [line](benchmark::State& state) {
    for (auto _ : state) benchmark::DoNotOptimize(server().handle(line));
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * line.size()));
  });
  benchmark::RegisterBenchmark((task + "/copy").c_str(), [reply = server().handle(line)](benchmark::State& state) {
    for (auto _ : state) {
      auto copy = reply;
      benchmark::DoNotOptimize(copy);
    }
  });
}

std::string call(std::size_t textSize) {
  return R"({"jsonrpc":"2.0","id":7,"method":"tools/call","params":{"name":"tool_9","arguments":{"id":"a.md","text":")" +
         std::string(textSize, 'x') + R"("}}})";
}

}  // namespace

int main(int argc, char** argv) {
  registerBenchmark("ping", R"({"jsonrpc":"2.0","id":1,"method":"ping"})");
  registerBenchmark("initialize",
                    R"({"jsonrpc":"2.0","id":0,"method":"initialize","params":{"protocolVersion":"2025-06-18",)"
                    R"("capabilities":{},"clientInfo":{"name":"client","version":"1.0"}}})");
  registerBenchmark("tools-list", R"({"jsonrpc":"2.0","id":2,"method":"tools/list"})");
  for (const std::size_t size : {std::size_t{10}, std::size_t{4096}, std::size_t{1} << 20}) {
    registerBenchmark("call-" + std::to_string(size), call(size));
  }
  registerBenchmark("parse-error", R"({"jsonrpc":"2.0",)");
  return kelvane::benchmarks::runWithRatios(argc, argv);
}
