// What requests cost, counted instead of timed, so that a dearer one is seen on a machine that is busy with other
// things, too: the instructions under callgrind and the system calls under strace. Two runs of the program that differ
// only in how often they are asked tell what one request costs, without the start.
//
//     kelvane_counts PROGRAM RECORD          counts, and writes what it found to the file RECORD
//     kelvane_counts PROGRAM RECORD --check  counts, compares with RECORD, ends with 1 where something has changed
//
// A record holds for one compiler and one kind of processor. With another one a check compares nothing and says so.
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <iostream>
#include <iterator>
#include <map>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "benchmarks/Files.h"
#include "protocol/JSON.h"

namespace {

using kelvane::JSON;
using kelvane::benchmarks::Folder;
using kelvane::benchmarks::put;
namespace fs = std::filesystem;

constexpr double tolerance = 0.02;  // of instructions; system calls must be the same

#if defined(__clang__)
constexpr std::string_view compiler = "Clang " __clang_version__;
#else
constexpr std::string_view compiler = "GCC " __VERSION__;
#endif
#if defined(__x86_64__)
constexpr std::string_view processor = "x86-64";
#else
constexpr std::string_view processor = "another processor";
#endif

std::string madeBy() {
  return "by " + std::string(compiler) + " for " + std::string(processor);
}

std::string bytesOf(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) throw std::runtime_error(path.string() + " cannot be read.");
  return std::string(std::istreambuf_iterator<char>(file), {});
}

/// One argument of a shell's command.
std::string quoted(const std::string& argument) {
  std::string text = "'";
  for (const char c : argument) text += c == '\'' ? "'\\''" : std::string(1, c);
  return text + "'";
}

void runInShell(const std::string& command) {
  if (std::system(command.c_str()) != 0) throw std::runtime_error("This failed: " + command);
}

// What only some processors have is left out, so that libc's functions are the same everywhere.
constexpr const char* anyProcessor =
    "GLIBC_TUNABLES=glibc.cpu.hwcaps=-AVX,-AVX2,-AVX512F,-AVX512VL,-AVX512BW,-ERMS,-FSRM,-SSSE3,-SSE4_1,-SSE4_2 ";

std::int64_t instructionsOf(const std::string& command, const Folder& scratch) {
  const std::string log = scratch.path() / "callgrind.log";
  runInShell(std::string(anyProcessor) +
             "valgrind --tool=callgrind --callgrind-out-file=/dev/null --log-file=" + quoted(log) + " " + command);
  std::istringstream text(bytesOf(log));
  for (std::string line; std::getline(text, line);) {
    const std::size_t at = line.find("Collected : ");
    if (at != std::string::npos) return std::stoll(line.substr(at + 12));
  }
  throw std::runtime_error("callgrind counted nothing:\n" + text.str());
}

std::int64_t systemCallsOf(const std::string& command, const Folder& scratch) {
  const std::string trace = scratch.path() / "trace";
  runInShell("strace -f -qq -e signal=none -o " + quoted(trace) + " " + command);
  std::istringstream text(bytesOf(trace));
  std::int64_t calls = 0;
  for (std::string line; std::getline(text, line);) {
    const std::string call = line.substr(std::min(line.find_first_not_of("0123456789 "), line.size()));
    const bool getsMemory = call.starts_with("brk(") || call.starts_with("mmap(") || call.starts_with("munmap(") ||
                            call.starts_with("mremap(") || call.starts_with("madvise(");
    if (!getsMemory) ++calls;
  }
  return calls;
}

std::string request(int id, const std::string& method, const JSON::Object& params) {
  return JSON(JSON::Object{{"jsonrpc", "2.0"}, {"id", id}, {"method", method}, {"params", params}}).encoded() + "\n";
}

std::string toolCall(int id, const std::string& tool, const JSON::Object& arguments) {
  return request(id, "tools/call", {{"name", tool}, {"arguments", arguments}});
}

std::string words(std::size_t size) {
  constexpr std::string_view line = "Words that are read aloud, some of them \"quoted\", some with accents: déjà vu.\n";
  std::string text = "# A chapter\n\n";
  while (text.size() < size) text += line;
  return text;
}

/// A folder of scripts, and what a client asks about it.
struct Conversation {
  std::string name;
  std::function<void(const fs::path& library, int size)> fill;
  std::function<std::string(int id)> ask;
  int few = 0;               // requests of the one run
  int many = 0;              // of the other
  bool isPerScript = false;  // then these are how many scripts there are, and each run asks once
};

struct Cost {
  double instructions = 0;
  double systemCalls = 0;
};

/// What one run costs that asks so often over so many scripts. Each run has a library of its own.
Cost costOf(const fs::path& program, const Conversation& conversation, int requests, int scripts) {
  const auto run = [&](const auto& count) {
    const Folder scratch;
    const fs::path library = scratch.path() / "Library";
    fs::create_directory(library);
    conversation.fill(library, scripts);
    std::string asked;
    for (int id = 1; id <= requests; ++id) asked += conversation.ask(id);
    put(scratch.path() / "requests", asked);
    const auto cost = count(quoted(program) + " serve --allow-writes --library " + quoted(library) + " <" +
                                quoted(scratch.path() / "requests") + " >" + quoted(scratch.path() / "replies"),
                            scratch);
    const std::string replies = bytesOf(scratch.path() / "replies");
    if (std::count(replies.begin(), replies.end(), '\n') != requests ||
        replies.find("\"error\"") != std::string::npos || replies.find("\"isError\":true") != std::string::npos)
      throw std::runtime_error("\"" + conversation.name + "\" was not answered as it should be:\n" +
                               replies.substr(0, 2000));
    return static_cast<double>(cost);
  };
  return {run(instructionsOf), run(systemCallsOf)};
}

Cost costOfOne(const fs::path& program, const Conversation& conversation) {
  const auto cost = [&](int number) {
    return conversation.isPerScript ? costOf(program, conversation, 1, number)
                                    : costOf(program, conversation, number, 1);
  };
  const Cost more = cost(conversation.many);
  if (conversation.few == conversation.many) return more;
  const Cost less = cost(conversation.few);
  const double difference = conversation.many - conversation.few;
  return {(more.instructions - less.instructions) / difference, (more.systemCalls - less.systemCalls) / difference};
}

void fillWithScripts(const fs::path& library, int scripts) {
  for (int number = 1; number <= scripts; ++number) {
    const fs::path folder = library / ("Folder " + std::to_string(number % 20));
    fs::create_directory(folder);
    put(folder / ("Script " + std::to_string(number) + ".md"), "words");
  }
}

std::function<void(const fs::path&, int)> fillWithOne(const fs::path& script, std::size_t size) {
  return [=](const fs::path& library, int) {
    fs::create_directories((library / script).parent_path());
    put(library / script, words(size));
  };
}

std::function<std::string(int)> reading(const std::string& script) {
  return [=](int id) { return toolCall(id, "read_script", {{"id", script}}); };
}

std::function<std::string(int)> updating(std::size_t size) {
  return [text = words(size)](int id) {
    return toolCall(id, "update_script",
                    {{"id", "Talk.md"}, {"text", text + std::to_string(id)}, {"note", "tightened the intro"}});
  };
}

std::vector<Conversation> conversations() {
  const std::string deep = "Talks/2026/Autumn/Talk.md";
  const auto ping = [](int id) { return request(id, "ping", {}); };
  const auto list = [](int id) { return toolCall(id, "list_scripts", {}); };
  return {
      {"start, to the reply to a ping", fillWithOne("Talk.md", 4096), ping, 1, 1},
      {"ping", fillWithOne("Talk.md", 4096), ping, 100, 1100},
      {"read_script of 4 KB", fillWithOne("Talk.md", 4096), reading("Talk.md"), 20, 220},
      {"read_script of 4 KB, three folders down", fillWithOne(deep, 4096), reading(deep), 20, 220},
      {"list_scripts, for each of its scripts", fillWithScripts, list, 1000, 3000, true},
      {"update_script of 10 KB", fillWithOne("Talk.md", 10000), updating(10000), 5, 25},
      {"update_script of 200 KB", fillWithOne("Talk.md", 200000), updating(200000), 5, 15},
  };
}

// --- JSON ---

/// What `kelvane_counts --decode FILE TIMES` and `--encode FILE TIMES` do, to be counted.
int runCoding(const std::string& task, const fs::path& file, int times) {
  const std::string text = bytesOf(file);
  const auto value = JSON::decoded(text);
  if (!value) return 1;
  std::size_t size = 0;
  for (int time = 0; time < times; ++time)
    size += task == "--decode" ? JSON::decoded(text) != std::nullopt : value->encoded().size();
  return size == 0 && times > 0 ? 1 : 0;
}

Cost costOfCoding(const std::string& self, const std::string& task, const fs::path& file) {
  const auto run = [&](int times) {
    const Folder scratch;
    return static_cast<double>(
        instructionsOf(quoted(self) + " --" + task + " " + quoted(file) + " " + std::to_string(times), scratch));
  };
  return {(run(5) - run(1)) / 4, 0};
}

std::vector<fs::path> corpora() {
  const char* given = std::getenv("KELVANE_TEST_DATA");
  const fs::path data = given ? fs::path(given) : fs::path(KELVANE_SOURCE_DIR) / ".." / "shared" / "data";
  std::vector<fs::path> files;
  for (const char* name : {"twitter.json", "citm_catalog.json", "canada.json"}) {
    if (fs::exists(data / "json-corpora" / name)) files.push_back(data / "json-corpora" / name);
  }
  return files;
}

// --- The record ---

/// Each line: instructions, system calls, what it is about.
std::map<std::string, Cost> readRecord(const fs::path& path, std::string& header) {
  std::istringstream text(bytesOf(path));
  std::getline(text, header);
  std::map<std::string, Cost> record;
  for (std::string line; std::getline(text, line);) {
    std::istringstream fields(line);
    Cost cost;
    std::string name;
    if (fields >> cost.instructions >> cost.systemCalls && std::getline(fields >> std::ws, name)) record[name] = cost;
  }
  return record;
}

std::string lineOf(const std::string& name, const Cost& cost) {
  char numbers[64];
  std::snprintf(numbers, sizeof numbers, "%12.0f %8.2f  ", cost.instructions, cost.systemCalls);
  return numbers + name;
}

bool isAsRecorded(const Cost& cost, const Cost& recorded) {
  return std::abs(cost.instructions - recorded.instructions) <= tolerance * recorded.instructions &&
         cost.systemCalls == recorded.systemCalls;
}

int count(const std::string& self, const fs::path& program, const fs::path& path, bool isCheck) {
  const std::string header = "instructions, system calls, of what; " + madeBy();
  std::string recordedHeader = header;
  const auto recorded = isCheck ? readRecord(path, recordedHeader) : std::map<std::string, Cost>();
  if (recordedHeader != header) {
    std::cout << path.filename().string()
              << " was counted with another compiler or processor, so nothing is compared.\n"
              << "It says: " << recordedHeader << "\nThis is: " << header << '\n';
    return 0;
  }
  std::string found = header + '\n';
  int changed = 0;
  const auto take = [&](const std::string& name, const Cost& cost) {
    const std::string line = lineOf(name, cost);
    found += line + '\n';
    std::cout << line;
    if (isCheck) {
      const auto before = recorded.find(name);
      const bool isSame = before != recorded.end() && isAsRecorded(cost, before->second);
      if (!isSame) ++changed;
      if (before == recorded.end())
        std::cout << "   NOT RECORDED";
      else if (!isSame)
        std::cout << "   CHANGED; recorded:" << lineOf("", before->second);
    }
    std::cout << std::endl;
  };
  for (const Conversation& conversation : conversations()) take(conversation.name, costOfOne(program, conversation));
  const std::vector<fs::path> files = corpora();
  for (const std::string task : {"decode", "encode"}) {
    for (const fs::path& file : files) take(task + " " + file.filename().string(), costOfCoding(self, task, file));
  }
  if (files.empty())
    std::cout << "The JSON corpora are not here; KELVANE_TEST_DATA names the folder of json-corpora.\n";
  if (!isCheck) put(path, found);
  if (changed > 0)
    std::cout << changed << " of these cost more or less than recorded. If that is wanted, run: ./run counts\n";
  return changed == 0 ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
  const std::vector<std::string> arguments(argv + 1, argv + argc);
  try {
    if (arguments.size() == 3 && (arguments[0] == "--decode" || arguments[0] == "--encode"))
      return runCoding(arguments[0], arguments[1], std::stoi(arguments[2]));
    const bool isCheck = arguments.size() == 3 && arguments[2] == "--check";
    if (arguments.size() != 2 && !isCheck) throw std::runtime_error("It takes: PROGRAM RECORD [--check]");
    return count(argv[0], arguments[0], arguments[1], isCheck);
  } catch (const std::exception& error) {
    std::cerr << error.what() << '\n';
    return 2;
  }
}
