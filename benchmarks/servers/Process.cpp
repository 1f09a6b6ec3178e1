#include "benchmarks/servers/Process.h"

#include <fcntl.h>
#include <poll.h>
#include <sched.h>
#include <spawn.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <fstream>
#include <stdexcept>

namespace kelvane::benchmarks {
namespace {

// Large enough that a reply of any size takes few reads, small enough to stay in the processor's cache.
std::array<char, 256 * 1024> buffer;

void must(bool isTrue, const char* what) {
  if (!isTrue) throw std::runtime_error(what);
}

void moveTo(int cpu) {
  cpu_set_t set;
  CPU_ZERO(&set);
  CPU_SET(static_cast<std::size_t>(cpu), &set);
  must(sched_setaffinity(0, sizeof set, &set) == 0, "The client cannot be moved to a CPU.");
}

std::size_t kilobytesIn(const std::string& file, std::string_view field) {
  std::ifstream lines(file);
  for (std::string line; std::getline(lines, line);) {
    if (line.starts_with(field)) return std::stoul(line.substr(field.size())) * 1024;
  }
  throw std::runtime_error("The system does not say how much memory a process has.");
}

std::size_t readSome(int descriptor) {
  ssize_t count = 0;
  do count = read(descriptor, buffer.data(), buffer.size());
  while (count < 0 && errno == EINTR);
  must(count > 0, "The server ended before it answered.");
  return static_cast<std::size_t>(count);
}

}  // namespace

std::vector<Placement> placements() {
  cpu_set_t set;
  must(sched_getaffinity(0, sizeof set, &set) == 0, "The system does not say which CPUs there are.");
  std::vector<int> cpus;
  for (int cpu = 0; cpu < CPU_SETSIZE; ++cpu) {
    if (CPU_ISSET(static_cast<std::size_t>(cpu), &set)) cpus.push_back(cpu);
  }
  if (cpus.size() < 2) return {{cpus.front(), cpus.front()}};
  return {{cpus.back(), cpus.back()}, {cpus.front(), cpus.back()}};
}

Process::Process(const std::vector<std::string>& command, Placement placement, std::vector<std::string> environment) {
  int input[2], output[2];
  must(pipe2(input, O_CLOEXEC) == 0 && pipe2(output, O_CLOEXEC) == 0, "No pipe could be made.");
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, input[0], STDIN_FILENO);
  posix_spawn_file_actions_adddup2(&actions, output[1], STDOUT_FILENO);
  std::vector<char*> arguments, variables;
  for (const std::string& argument : command) arguments.push_back(const_cast<char*>(argument.c_str()));
  for (std::string& variable : environment) variables.push_back(variable.data());
  for (char** variable = environ; *variable != nullptr; ++variable) variables.push_back(*variable);
  arguments.push_back(nullptr);
  variables.push_back(nullptr);
  moveTo(placement.server);  // which the child inherits
  const int error = posix_spawn(&child_, arguments[0], &actions, nullptr, arguments.data(), variables.data());
  if (placement.client != placement.server) moveTo(placement.client);
  posix_spawn_file_actions_destroy(&actions);
  close(input[0]);
  close(output[1]);
  input_ = input[1];
  output_ = output[0];
  if (error != 0) throw std::runtime_error(command.front() + " cannot be started.");
}

Process::~Process() {
  close(input_);
  close(output_);
  while (waitpid(child_, nullptr, 0) < 0 && errno == EINTR) {
  }
}

void Process::send(std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t count = write(input_, bytes.data(), bytes.size());
    if (count < 0 && errno == EINTR) continue;
    must(count > 0, "The server reads no more.");
    bytes.remove_prefix(static_cast<std::size_t>(count));
  }
}

std::string_view Process::ask(std::string_view line) {
  send(line);
  send("\n");
  reply_.clear();
  do reply_.append(buffer.data(), readSome(output_));
  while (reply_.back() != '\n');
  return std::string_view(reply_).substr(0, reply_.size() - 1);
}

std::size_t Process::askForSize(std::string_view line) {
  must(line.ends_with('\n'), "A request to be timed ends with its line feed, so that it leaves in one write.");
  send(line);
  std::size_t size = 0;
  for (;;) {
    const std::size_t count = readSome(output_);
    size += count;
    if (buffer[count - 1] == '\n') return size;  // a reply holds no other line feed
  }
}

void Process::exchange(std::string_view lines, std::size_t replies) {
  const int flags = fcntl(input_, F_GETFL);
  must(fcntl(input_, F_SETFL, flags | O_NONBLOCK) == 0, "The pipe cannot be written without waiting.");
  while (replies > 0) {
    pollfd ends[] = {{output_, POLLIN, 0}, {input_, POLLOUT, 0}};
    must(poll(ends, lines.empty() ? 1 : 2, -1) > 0, "The pipes cannot be waited for.");
    if (!lines.empty() && (ends[1].revents & POLLOUT) != 0) {
      const ssize_t count = write(input_, lines.data(), lines.size());
      if (count > 0) lines.remove_prefix(static_cast<std::size_t>(count));
    }
    if ((ends[0].revents & (POLLIN | POLLHUP)) != 0) {
      const std::size_t count = readSome(output_);
      replies -= static_cast<std::size_t>(
          std::count(buffer.begin(), buffer.begin() + static_cast<std::ptrdiff_t>(count), '\n'));
    }
  }
  must(fcntl(input_, F_SETFL, flags) == 0, "The pipe cannot be written as before.");
}

double Process::processorTime() const {
  clockid_t clock{};
  timespec time{};
  must(clock_getcpuclockid(child_, &clock) == 0 && clock_gettime(clock, &time) == 0,
       "The system does not say how long a process has worked.");
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

std::size_t Process::memory() const {
  return kilobytesIn("/proc/" + std::to_string(child_) + "/smaps_rollup", "Rss:");
}

std::size_t Process::peakMemory() const {
  return kilobytesIn("/proc/" + std::to_string(child_) + "/status", "VmHWM:");
}

void Process::forgetPeak() {
  std::ofstream file("/proc/" + std::to_string(child_) + "/clear_refs");
  must(static_cast<bool>(file << "5" << std::flush), "The peak of the memory cannot be forgotten.");
}

}  // namespace kelvane::benchmarks
