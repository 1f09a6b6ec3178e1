#include "tests/end-to-end/Program.h"

#include <fcntl.h>
#include <grp.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <ostream>
#include <stdexcept>
#include <system_error>
#include <utility>

namespace kelvane::tests {
namespace {

constexpr uid_t nobody = 65534, unknown = 3'999'999'999;

[[noreturn]] void fail(const char* what) {
  throw std::system_error(errno, std::generic_category(), what);
}

void closeOnce(int& descriptor) {
  if (descriptor >= 0) ::close(descriptor);
  descriptor = -1;
}

// Beyond that, only what sanitizers and coverage want to know.
std::vector<std::string> environmentOf(const Start& start) {
  std::vector<std::string> environment = start.environment;
  environment.push_back("HOME=" + start.home.native());
  for (const char* name : {"ASAN_OPTIONS", "UBSAN_OPTIONS", "TSAN_OPTIONS", "GCOV_PREFIX", "GCOV_PREFIX_STRIP"}) {
    if (const char* value = std::getenv(name)) environment.push_back(std::string(name) + '=' + value);
  }
  return environment;
}

std::vector<char*> pointers(std::vector<std::string>& texts) {
  std::vector<char*> pointers;
  for (std::string& text : texts) pointers.push_back(text.data());
  pointers.push_back(nullptr);
  return pointers;
}

// A standard descriptor of the program: the end that it gets, and the one that the test keeps.
struct Stream {
  int child = -1;
  int test = -1;
  bool isOurs = false;  // the program's end is to be closed here once it runs
};

Stream stream(int wanted, bool isInput, bool inPackets) {
  if (wanted == Start::closed) return {};
  if (wanted != Start::piped) return {.child = wanted};
  int ends[2];
  if (::pipe2(ends, O_CLOEXEC | (inPackets ? O_DIRECT : 0)) != 0) fail("pipe2");
  if (!isInput) std::swap(ends[0], ends[1]);
  ::fcntl(ends[1], F_SETFL, ::fcntl(ends[1], F_GETFL) | O_NONBLOCK);
  return {ends[0], ends[1], true};
}

// Between fork and exec: only what is safe there. Ends the process.
[[noreturn]] void become(int program, char* const* arguments, char* const* environment, std::array<int, 3> streams,
                         const char* folder, const Start& start) {
  std::signal(SIGPIPE, SIG_DFL);
  std::signal(SIGXFSZ, SIG_DFL);
  // Above the standard ones first, so that none overwrites another.
  for (int& stream : streams) {
    if (stream >= 0) stream = ::fcntl(stream, F_DUPFD_CLOEXEC, 3);
  }
  for (int number = 0; number < 3; ++number) {
    const int stream = streams[static_cast<std::size_t>(number)];
    if (stream < 0) {
      ::close(number);
    } else if (::dup2(stream, number) < 0) {
      ::_exit(126);
    }
  }
  if (folder != nullptr && ::chdir(folder) != 0) ::_exit(126);
  if (start.largestFile) {
    const rlimit limit{*start.largestFile, *start.largestFile};
    if (::setrlimit(RLIMIT_FSIZE, &limit) != 0) ::_exit(126);
  }
  if ((start.asNobody || start.asUnknown) && ::geteuid() == 0) {
    const uid_t user = start.asUnknown ? unknown : nobody;
    if (::setgroups(0, nullptr) != 0 || ::setgid(user) != 0 || ::setuid(user) != 0) ::_exit(126);
  }
  ::fexecve(program, arguments, environment);  // by descriptor: its folder may be closed to nobody
  ::_exit(127);
}

void append(int& descriptor, std::string& text) {
  std::array<char, 65536> buffer;
  const ssize_t count = ::read(descriptor, buffer.data(), buffer.size());
  if (count > 0) text.append(buffer.data(), static_cast<std::size_t>(count));
  if (count == 0 || (count < 0 && errno != EAGAIN && errno != EINTR)) closeOnce(descriptor);
}

}  // namespace

std::ostream& operator<<(std::ostream& out, const Outcome& outcome) {
  return out << "status " << outcome.status << "\noutput: " << outcome.output << "\nerrors: " << outcome.errors;
}

Program::Program(const Start& start) {
  std::signal(SIGPIPE, SIG_IGN);
  const int program = ::open(start.program.c_str(), O_RDONLY | O_CLOEXEC);
  if (program < 0) fail(start.program.c_str());
  std::vector<std::string> arguments = {"kelvane"}, environment = environmentOf(start);
  arguments.insert(arguments.end(), start.arguments.begin(), start.arguments.end());
  const std::vector<char*> argumentPointers = pointers(arguments), environmentPointers = pointers(environment);
  const Stream input = stream(start.input, true, start.inputInPackets);
  const Stream output = stream(start.output, false, false), errors = stream(start.errors, false, false);
  id_ = ::fork();
  if (id_ < 0) fail("fork");
  if (id_ == 0) {
    become(program, argumentPointers.data(), environmentPointers.data(), {input.child, output.child, errors.child},
           start.folder.empty() ? nullptr : start.folder.c_str(), start);
  }
  ::close(program);
  for (const Stream& each : {input, output, errors}) {
    if (each.isOurs) ::close(each.child);
  }
  input_ = input.test;
  output_ = output.test;
  errors_ = errors.test;
}

Program::~Program() {
  for (int* descriptor : {&input_, &output_, &errors_}) closeOnce(*descriptor);
  if (id_ < 0) return;
  ::kill(id_, SIGKILL);
  ::waitpid(id_, nullptr, 0);
}

// Waits until there is output to gather, and gathers it, or until the input can be written to, if that is wanted.
void Program::gather(bool alsoWhenWritable) {
  std::array<pollfd, 3> waiting{
      {{output_, POLLIN, 0}, {errors_, POLLIN, 0}, {alsoWhenWritable ? input_ : -1, POLLOUT, 0}}};
  if (::poll(waiting.data(), waiting.size(), -1) < 0 && errno != EINTR) fail("poll");
  if (waiting[0].revents != 0) append(output_, outcome_.output);
  if (waiting[1].revents != 0) append(errors_, outcome_.errors);
}

bool Program::write(std::string_view bytes) {
  while (!bytes.empty()) {
    if (input_ < 0) return false;
    const ssize_t count = ::write(input_, bytes.data(), bytes.size());
    if (count >= 0) {
      bytes.remove_prefix(static_cast<std::size_t>(count));
    } else if (errno == EAGAIN) {
      gather(true);
    } else {
      closeOnce(input_);
    }
  }
  return true;
}

void Program::closeInput() {
  closeOnce(input_);
}

void Program::closeOutput() {
  closeOnce(output_);
}

std::optional<std::string> Program::line() {
  for (;;) {
    const std::size_t end = outcome_.output.find('\n', lineBegin_);
    if (end != std::string::npos) {
      std::string line = outcome_.output.substr(lineBegin_, end - lineBegin_);
      lineBegin_ = end + 1;
      return line;
    }
    if (output_ < 0) return std::nullopt;
    gather(false);
  }
}

Outcome Program::finish() {
  closeOnce(input_);
  while (output_ >= 0 || errors_ >= 0) gather(false);
  int status = 0;
  rusage usage{};
  if (::wait4(id_, &status, 0, &usage) != id_) fail("wait4");
  id_ = -1;
  outcome_.status = WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
  outcome_.peakKilobytes = usage.ru_maxrss;
  return std::move(outcome_);
}

Outcome run(const Start& start, std::string_view input) {
  Program program(start);
  program.write(input);
  return program.finish();
}

Outcome run(std::vector<std::string> arguments, std::string_view input) {
  return run(Start{.arguments = std::move(arguments)}, input);
}

bool isSanitized() {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  return true;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
  return true;
#else
  return false;
#endif
#else
  return false;
#endif
}

}  // namespace kelvane::tests
