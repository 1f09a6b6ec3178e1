#include <malloc.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>

#include "benchmarks/Peers.h"
#include "protocol/JSON.h"

// What decoding and encoding cost, beside other JSON libraries: on the files that such libraries are usually compared
// on, where they are present, and on messages of MCP made here.
//
// Each library works in a fresh process of its own, so that none finds a heap that another has used. Ours and one peer
// work in turn, a few milliseconds each, and each turn gives one ratio: the peer's CPU time over ours. The median of
// the ratios is printed, one line each, separated by tabs:
//
//     json         decode  twitter  rapidjson  2.15     above 1: the peer takes longer
//     json-rate    decode  twitter  kelvane    512      megabytes of text in a second
//     json-memory  decode  twitter  kelvane    2.31     bytes that are held, for each byte of text
//
// Decoding is from text to a value that owns what it holds, and destroying that. Encoding is from such a value to text.

namespace {

namespace fs = std::filesystem;
using kelvane::JSON;
using kelvane::benchmarks::Peer;

/// What is decoded one by one, or encoded.
struct Row {
  std::string name;
  std::vector<std::string> texts;
};

/// What a client sends most: requests of 135 bytes, which differ.
Row calls() {
  Row row{"calls", {}};
  for (int i = 100; i < 200; ++i) {
    const std::string number = std::to_string(i);
    std::string text = R"({"jsonrpc":"2.0","id":)";
    text.append(number).append(R"(,"method":"tools/call","params":{"name":"read_script","arguments":{"id":"Talks of )");
    text.append(number).append(R"(/The long way home.md"}}})");
    row.texts.push_back(text);
  }
  return row;
}

/// A script of 200 KB on its way in, as an encoder writes it.
Row updates() {
  std::string script;
  while (script.size() < 200000) {
    script += "# A chapter\n\nWords that are read aloud, some of them \"quoted\", some with accents: déjà vu.\n\n";
  }
  const JSON request = JSON::Object{
      {"jsonrpc", "2.0"},
      {"id", 43},
      {"method", "tools/call"},
      {"params", JSON::Object{{"name", "update_script"},
                              {"arguments", JSON::Object{{"id", "Talks/The long way home.md"}, {"text", script}}}}}};
  return {"updates", {request.encoded()}};
}

/// The tree of a large library: 100,000 scripts in 5,000 folders.
Row tree() {
  JSON::Array folders;
  for (int folder = 0; folder < 5000; ++folder) {
    const std::string name = "Folder " + std::to_string(folder);
    JSON::Array scripts;
    for (int script = 0; script < 20; ++script) {
      const std::string title = "Script " + std::to_string(script);
      std::string id = name;
      id.append("/").append(title).append(".md");
      scripts.append(JSON::Object{{"id", id}, {"kind", "script"}, {"name", title}});
    }
    folders.append(JSON::Object{{"children", scripts}, {"id", name}, {"kind", "folder"}, {"name", name}});
  }
  return {"tree", {JSON(folders).encoded()}};
}

/// A file of the corpora; without a text if it is not here.
Row corpus(const char* name, const char* file) {
  const char* given = std::getenv("KELVANE_TEST_DATA");
  const fs::path data = given ? fs::path(given) : fs::path(KELVANE_SOURCE_DIR) / ".." / "shared" / "data";
  std::ifstream stream(data / "json-corpora" / file, std::ios::binary);
  if (!stream) return {name, {}};
  return {name, {std::string(std::istreambuf_iterator<char>(stream), {})}};
}

const std::pair<const char*, std::function<Row()>> rows[] = {
    {"twitter", [] { return corpus("twitter", "twitter.json"); }},
    {"citm", [] { return corpus("citm", "citm_catalog.json"); }},
    {"canada", [] { return corpus("canada", "canada.json"); }},
    {"calls", calls},
    {"updates", updates},
    {"tree", tree},
};

Row rowNamed(const std::string& name) {
  for (const auto& [known, make] : rows) {
    if (name != known) continue;
    Row row = make();
    // Some libraries read a little past the end, and copy a text that has no room there.
    for (std::string& text : row.texts) text.reserve(text.size() + 64);
    return row;
  }
  throw std::runtime_error("There is no row " + name + ".");
}

std::size_t bytesOf(const Row& row) {
  std::size_t bytes = 0;
  for (const std::string& text : row.texts) bytes += text.size();
  return bytes;
}

Peer peerNamed(const std::string& name) {
  for (Peer& peer : kelvane::benchmarks::peers()) {
    if (peer.name == name) return peer;
  }
  throw std::runtime_error("There is no peer " + name + ".");
}

double secondsOfThisProcess() {
  timespec now{};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

/// What one peer does with one row.
std::function<void()> work(const Peer& peer, const Row& row, bool isDecoding) {
  if (isDecoding) {
    return [&peer, &row] {
      for (const std::string& text : row.texts) {
        if (!peer.decode(text)) throw std::runtime_error(peer.name + " refused " + row.name);
      }
    };
  }
  std::vector<std::function<std::size_t()>> encoders;
  for (const std::string& text : row.texts) encoders.push_back(peer.encoder(text));
  return [encoders] {
    for (const auto& encode : encoders) {
      if (encode() == 0) throw std::runtime_error("Nothing was written.");
    }
  };
}

std::size_t heldBytes() {
  const struct mallinfo2 now = mallinfo2();
  return now.uordblks + now.hblkhd;
}

/// The bytes that the values of a row hold, for each byte of text.
double memory(const Peer& peer, const Row& row) {
  std::vector<std::function<std::size_t()>> values(row.texts.size());
  const std::size_t before = heldBytes();
  for (std::size_t i = 0; i < values.size(); ++i) values[i] = peer.encoder(row.texts[i]);
  return static_cast<double>(heldBytes() - before) / static_cast<double>(bytesOf(row));
}

/// The life of a process that works: for each byte on its standard input it takes a turn, and writes how many seconds
/// of CPU time the work took in it.
void serve(const Peer& peer, const Row& row, const std::string& task) {
  if (task == "memory") {
    const double answer = memory(peer, row);
    write(STDIN_FILENO, &answer, sizeof answer);
    return;
  }
  const std::function<void()> run = work(peer, row, task == "decode");
  constexpr double turn = 0.004;
  int times = 1;
  const auto once = [&] {
    const double start = secondsOfThisProcess();
    for (int i = 0; i < times; ++i) run();
    return secondsOfThisProcess() - start;
  };
  while (once() < turn) times *= 2;
  for (char question; read(STDIN_FILENO, &question, 1) == 1;) {
    const double answer = once() / times;
    if (write(STDIN_FILENO, &answer, sizeof answer) != sizeof answer) return;
  }
}

/// Such a process, as its parent sees it.
class Worker {
 public:
  Worker(const std::string& peer, const std::string& row, const std::string& task) {
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) throw std::runtime_error("No pair of sockets.");
    process_ = fork();
    if (process_ < 0) throw std::runtime_error("No process.");
    if (process_ == 0) {
      dup2(ends[1], STDIN_FILENO);
      execl("/proc/self/exe", "json_peers", "--worker", peer.c_str(), row.c_str(), task.c_str(), nullptr);
      _exit(1);
    }
    close(ends[1]);
    socket_ = ends[0];
  }
  Worker(const Worker&) = delete;
  Worker& operator=(const Worker&) = delete;
  ~Worker() {
    close(socket_);
    waitpid(process_, nullptr, 0);
  }

  double answer() {
    double answer = 0;
    if (write(socket_, "?", 1) != 1 || read(socket_, &answer, sizeof answer) != sizeof answer) {
      throw std::runtime_error("A process has ended early.");
    }
    return answer;
  }

 private:
  int socket_ = -1;
  pid_t process_ = -1;
};

double median(std::vector<double> values) {
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  return *middle;
}

void print(const char* what, const std::string& task, const std::string& row, const std::string& peer, double figure) {
  std::printf("%s\t%s\t%s\t%s\t%.3g\n", what, task.c_str(), row.c_str(), peer.c_str(), figure);
  std::fflush(stdout);
}

void compare(const std::vector<Peer>& peers, const std::string& row, const std::string& task, std::size_t bytes) {
  constexpr int turns = 31;
  Worker ours(peers.front().name, row, task);
  std::vector<double> ourTimes;
  for (std::size_t i = 1; i < peers.size(); ++i) {
    Worker other(peers[i].name, row, task);
    std::vector<double> ratios;
    for (int turn = 0; turn < turns; ++turn) {
      ourTimes.push_back(ours.answer());
      ratios.push_back(other.answer() / ourTimes.back());
    }
    print("json", task, row, peers[i].name, median(ratios));
  }
  for (int turn = 0; turn < turns; ++turn) ourTimes.push_back(ours.answer());
  print("json-rate", task, row, peers.front().name, static_cast<double>(bytes) / median(ourTimes) / 1e6);
}

}  // namespace

/// `json_peers [ROW]…`: all rows, or those that are named.
int main(int argc, char** argv) try {
  const std::vector<std::string> arguments(argv + 1, argv + argc);
  if (arguments.size() == 4 && arguments[0] == "--worker") {
    serve(peerNamed(arguments[1]), rowNamed(arguments[2]), arguments[3]);
    return 0;
  }
  std::vector<std::string> names = arguments;
  if (names.empty()) {
    for (const auto& [name, make] : rows) names.emplace_back(name);
  }
  const std::vector<Peer> peers = kelvane::benchmarks::peers();
  for (const std::string& name : names) {
    const std::size_t bytes = bytesOf(rowNamed(name));
    if (bytes == 0) {
      std::fprintf(stderr, "%s is not here, so it is left out. KELVANE_TEST_DATA names the folder of json-corpora.\n",
                   name.c_str());
      continue;
    }
    for (const char* task : {"decode", "encode"}) compare(peers, name, task, bytes);
    for (const Peer& peer : peers)
      print("json-memory", "decode", name, peer.name, Worker(peer.name, name, "memory").answer());
  }
} catch (const std::exception& error) {
  std::fprintf(stderr, "%s\n", error.what());
  return 1;
}
