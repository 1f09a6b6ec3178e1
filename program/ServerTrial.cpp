#include "program/ServerTrial.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <optional>
#include <stdexcept>
#include <string_view>
#include <system_error>
#include <utility>

#include "platform/StandardIO.h"
#include "protocol/JSON.h"
#include "protocol/Server.h"
#include "quorvel/files/Descriptor.h"
#include "quorvel/files/SystemCalls.h"
#include "quorvel/files/SystemReason.h"

namespace kelvane {
namespace {

using Clock = std::chrono::steady_clock;
using quorvel::Descriptor;

// What a client says first, and asks for its tools.
std::string greeting() {
  return R"({"jsonrpc":"2.0","id":1,"method":"initialize","params":{"protocolVersion":")" +
         std::string(Server::version) + R"(","capabilities":{},"clientInfo":{"name":"kelvane doctor","version":")" +
         std::string(Server::ownVersion) +
         R"("}}}
{"jsonrpc":"2.0","method":"notifications/initialized"}
{"jsonrpc":"2.0","id":2,"method":"tools/list"}
)";
}

struct Pipe {
  Descriptor reading;
  Descriptor writing;

  Pipe() {
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) != 0)
      throw std::runtime_error(quorvel::because("No pipe could be made", quorvel::lastError()));
    reading = Descriptor(ends[0]);
    writing = Descriptor(ends[1]);
  }
};

class SpawnActions {
 public:
  SpawnActions() { ::posix_spawn_file_actions_init(&actions_); }
  SpawnActions(const SpawnActions&) = delete;
  SpawnActions& operator=(const SpawnActions&) = delete;
  ~SpawnActions() { ::posix_spawn_file_actions_destroy(&actions_); }

  void give(const Descriptor& descriptor, int number) {
    ::posix_spawn_file_actions_adddup2(&actions_, descriptor.get(), number);
  }
  const posix_spawn_file_actions_t* get() const noexcept { return &actions_; }

 private:
  posix_spawn_file_actions_t actions_;
};

class Child {
 public:
  Child(const std::filesystem::path& program, std::vector<std::string> arguments, Clock::time_point deadline)
      : deadline_(deadline) {
    arguments.insert(arguments.begin(), program.native());
    std::vector<char*> pointers;
    pointers.reserve(arguments.size() + 1);
    for (std::string& argument : arguments) pointers.push_back(argument.data());
    pointers.push_back(nullptr);
    Pipe input, output, errors;
    SpawnActions actions;
    actions.give(input.reading, STDIN_FILENO);
    actions.give(output.writing, STDOUT_FILENO);
    actions.give(errors.writing, STDERR_FILENO);
    const int error = ::posix_spawn(&id_, program.c_str(), actions.get(), nullptr, pointers.data(), environ);
    if (error != 0) {
      throw std::runtime_error(quorvel::because("It could not be started", quorvel::systemError(error)));
    }
    input_ = std::move(input.writing);
    output_ = std::move(output.reading);
    errors_ = std::move(errors.reading);
  }
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;
  ~Child() {
    if (id_ < 0) return;
    ::kill(id_, SIGKILL);
    ::waitpid(id_, nullptr, 0);
  }

  // The text is shorter than what a pipe takes at once.
  void send(std::string_view text) {
    try {
      writeAll(input_.get(), text);
    } catch (const std::system_error&) {
      // It no longer reads. Its end tells why.
    }
    input_ = Descriptor();
  }

  // All that it prints, to its end.
  struct Result {
    std::string output;
    std::string errors;
    int status;
  };

  Result finish() {
    Result result{};
    while (output_ || errors_) {
      std::array<pollfd, 2> waiting{{{output_.get(), POLLIN, 0}, {errors_.get(), POLLIN, 0}}};
      const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline_ - Clock::now()).count();
      const int ready = left > 0 ? ::poll(waiting.data(), waiting.size(), static_cast<int>(left)) : 0;
      if (ready < 0 && errno == EINTR) continue;
      if (ready <= 0) throw std::runtime_error("It did not answer in time. Run the command again.");
      if (waiting[0].revents != 0) take(output_, result.output);
      if (waiting[1].revents != 0) take(errors_, result.errors);
    }
    while (::waitpid(id_, &result.status, 0) < 0 && errno == EINTR) continue;
    id_ = -1;
    return result;
  }

 private:
  static void take(Descriptor& from, std::string& text) {
    std::array<char, 65536> buffer;
    const ssize_t count = ::read(from.get(), buffer.data(), buffer.size());
    if (count > 0) text.append(buffer.data(), static_cast<std::size_t>(count));
    if (count == 0 || (count < 0 && errno != EINTR)) from = Descriptor();
  }

  Clock::time_point deadline_;
  pid_t id_ = -1;
  Descriptor input_, output_, errors_;
};

// The "result" of the reply with that id; empty if there is none.
std::optional<JSON> resultIn(std::string_view output, double id) {
  while (!output.empty()) {
    const std::size_t end = std::min(output.find('\n'), output.size());
    const std::optional<JSON> reply = JSON::decoded(output.substr(0, end));
    output.remove_prefix(std::min(end + 1, output.size()));
    if (!reply || (*reply)["id"] == nullptr || *(*reply)["id"] != JSON(id)) continue;
    const JSON* result = (*reply)["result"];
    return result != nullptr ? std::optional(*result) : std::nullopt;
  }
  return std::nullopt;
}

// Why a process that wrote nothing to standard error did not serve and end properly.
std::string failedEnd(int status) {
  if (WIFSIGNALED(status))
    return "It was ended by signal " + std::to_string(WTERMSIG(status)) + ". Run the command again.";
  return "It ended with status " + std::to_string(WEXITSTATUS(status)) + " instead of 0. Run the command again.";
}

}  // namespace

bool startsServer(const std::vector<std::string>& arguments) noexcept {
  // The command line skips "--" before a command.
  const auto command = std::find_if(arguments.begin(), arguments.end(), [](const auto& word) { return word != "--"; });
  return command == arguments.end() || *command == "serve";
}

std::size_t tryServer(const std::filesystem::path& program, const std::vector<std::string>& arguments,
                      std::chrono::milliseconds patience) {
  if (!startsServer(arguments))
    throw std::runtime_error("It was not started, because its arguments do not start a server. Remove them.");
  Child child(program, arguments, Clock::now() + patience);
  child.send(greeting());
  const Child::Result result = child.finish();
  if (!result.errors.empty()) throw std::runtime_error("It said: " + result.errors.substr(0, result.errors.find('\n')));
  if (result.status != 0) throw std::runtime_error(failedEnd(result.status));
  const auto introduction = resultIn(result.output, 1);
  const auto catalogue = resultIn(result.output, 2);
  const JSON* tools = catalogue ? (*catalogue)["tools"] : nullptr;
  if (!introduction || (*introduction)["serverInfo"] == nullptr || tools == nullptr || tools->items() == nullptr) {
    throw std::runtime_error("It did not answer as a server does. Install this program again.");
  }
  return tools->items()->size();
}

}  // namespace kelvane
