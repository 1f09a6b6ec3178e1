#pragma once

#include <grp.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <exception>
#include <functional>
#include <stdexcept>
#include <string>
#include <utility>

namespace kelvane::tests {

/// A forked child that runs a function and exits. Its parent gets the string that the function returns, or "threw: "
/// and the message of the exception that it throws.
class ChildProcess {
 public:
  explicit ChildProcess(const std::function<std::string()>& body) {
    int ends[2];
    if (::pipe(ends) != 0) throw std::runtime_error("No pipe could be made.");
    child_ = ::fork();
    if (child_ < 0) throw std::runtime_error("No process could be forked.");
    if (child_ == 0) {
      ::close(ends[0]);
      std::string answer;
      try {
        answer = body();
      } catch (const std::exception& error) {
        answer = std::string("threw: ") + error.what();
      }
      for (std::size_t done = 0; done < answer.size();) {
        const ssize_t count = ::write(ends[1], answer.data() + done, answer.size() - done);
        if (count <= 0) break;
        done += static_cast<std::size_t>(count);
      }
      ::_exit(0);
    }
    ::close(ends[1]);
    output_ = ends[0];
  }
  ChildProcess(ChildProcess&& other) noexcept
      : child_(std::exchange(other.child_, -1)), output_(std::exchange(other.output_, -1)) {}
  ChildProcess& operator=(ChildProcess&&) = delete;
  ~ChildProcess() { answer(); }

  /// Waits until the child ends, and returns its string, or "killed by signal N". Empty if called again.
  std::string answer() {
    if (child_ < 0) return {};
    std::string text;
    char buffer[4096];
    for (;;) {
      const ssize_t count = ::read(output_, buffer, sizeof buffer);
      if (count < 0 && errno == EINTR) continue;
      if (count <= 0) break;
      text.append(buffer, static_cast<std::size_t>(count));
    }
    ::close(output_);
    int status = 0;
    while (::waitpid(child_, &status, 0) < 0 && errno == EINTR) {
    }
    child_ = -1;
    return WIFSIGNALED(status) ? "killed by signal " + std::to_string(WTERMSIG(status)) : text;
  }

 private:
  pid_t child_ = -1;
  int output_ = -1;
};

inline std::string inChild(const std::function<std::string()>& body) {
  return ChildProcess(body).answer();
}

/// In a child: gives up root's rights for good, if the tests run with them.
inline void becomeNobody() {
  if (::geteuid() != 0) return;
  if (::setgroups(0, nullptr) != 0 || ::setgid(65534) != 0 || ::setuid(65534) != 0) {
    throw std::runtime_error("root's rights could not be given up");
  }
}

/// In a child: kills the process at once, without running any destructor.
[[noreturn]] inline void dieAtOnce() {
  ::kill(::getpid(), SIGKILL);
  for (;;) ::pause();
}

}  // namespace kelvane::tests
