#pragma once

#include <sys/types.h>

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace kelvane::benchmarks {

/// Where the client and the server run: on one CPU, or on one each.
struct Placement {
  int client = 0;
  int server = 0;
  int cpus() const { return client == server ? 1 : 2; }
};

/// The placements that this machine has: both on one CPU and, where there are two, each on its own. To be asked before
/// the first server is started, which moves the client.
std::vector<Placement> placements();

/// A server at work: a child process that reads lines and answers each with a line. The calling thread is the client
/// and is moved to the client's CPU. Throws `std::runtime_error` where the server does not do its part. Not
/// thread-safe.
class Process {
 public:
  /// Starts a program by its path. `environment` is added to this process's own, each entry as "NAME=value".
  Process(const std::vector<std::string>& command, Placement placement, std::vector<std::string> environment = {});
  Process(const Process&) = delete;
  Process& operator=(const Process&) = delete;
  /// Ends the input and waits for the server to end.
  ~Process();

  /// Writes a line and waits for the line that answers it. The reply, without its line feed, is valid until the next
  /// call. Its memory is the client's, not the server's.
  std::string_view ask(std::string_view line);

  /// As `ask`, but forgets the reply as it comes, so that a large one costs the client little. Returns the reply's
  /// size, with its line feed.
  std::size_t askForSize(std::string_view line);

  /// Writes all of `lines` without waiting, and reads at the same time until that many replies have come.
  void exchange(std::string_view lines, std::size_t replies);

  /// The seconds that processors have worked for the server. Unlike the time on a clock it leaves out the turns of
  /// other processes. What the server does after its reply may be counted with the next request.
  double processorTime() const;

  /// The bytes of memory that the server has now, and the most that it had since it started or since `forgetPeak`.
  std::size_t memory() const;
  std::size_t peakMemory() const;
  void forgetPeak();

 private:
  void send(std::string_view bytes);

  pid_t child_ = -1;
  int input_ = -1;   // the server's
  int output_ = -1;  // the server's
  std::string reply_;
};

}  // namespace kelvane::benchmarks
