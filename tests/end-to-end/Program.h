#pragma once

#include <sys/resource.h>
#include <sys/types.h>

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kelvane::tests {

/// What a run of the program left.
struct Outcome {
  int status = 0;  ///< The exit status, or the negative number of the signal that ended it.
  std::string output;
  std::string errors;
  long peakKilobytes = 0;  ///< The most memory that it held at once.

  bool operator==(const Outcome& other) const {
    return status == other.status && output == other.output && errors == other.errors;
  }
};
std::ostream& operator<<(std::ostream& out, const Outcome& outcome);

/// How the program is started.
struct Start {
  static constexpr int piped = -1;   ///< A pipe to the test.
  static constexpr int closed = -2;  ///< Not open at all.

  std::vector<std::string> arguments = {};
  int input = piped;  ///< One of the two above, or a descriptor that stays the test's.
  int output = piped;
  int errors = piped;
  bool inputInPackets = false;             ///< Each write to the piped input is read alone, however small it is.
  bool asNobody = false;                   ///< Without root's rights, if the test has them.
  bool asUnknown = false;                  ///< The same as a user whom no database knows, so who has no home there.
  std::optional<rlim_t> largestFile = {};  ///< In bytes.
  std::filesystem::path folder = {};       ///< The current folder, if it matters.
  std::filesystem::path program = KELVANE_PROGRAM;
  std::filesystem::path home = "/nonexistent";
  std::vector<std::string> environment = {};  ///< Further variables: "NAME=VALUE".
};

/// The built program, running, with nothing in its environment but what the start says. What it prints is gathered
/// whenever it is waited for, so that neither side waits for the other. A program that hangs hangs the test.
class Program {
 public:
  explicit Program(const Start& start);
  explicit Program(std::vector<std::string> arguments) : Program(Start{.arguments = std::move(arguments)}) {}
  Program(const Program&) = delete;
  Program& operator=(const Program&) = delete;
  /// Kills it if it still runs.
  ~Program();

  pid_t id() const noexcept { return id_; }

  /// False when the program does not read any more.
  bool write(std::string_view bytes);
  void closeInput();
  void closeOutput();  ///< The test reads no more.

  /// The next line of its output, without the line feed; nothing at the end of the output.
  std::optional<std::string> line();

  /// Closes the input and waits for the end.
  Outcome finish();

 private:
  void gather(bool alsoWhenWritable);

  pid_t id_ = -1;
  int input_ = -1, output_ = -1, errors_ = -1;
  std::size_t lineBegin_ = 0;
  Outcome outcome_;
};

/// Runs the program to its end with this input.
Outcome run(const Start& start, std::string_view input = {});
Outcome run(std::vector<std::string> arguments, std::string_view input = {});

/// Whether this program, and so the one that it starts, was built with a sanitizer that keeps memory back.
bool isSanitized();

}  // namespace kelvane::tests
