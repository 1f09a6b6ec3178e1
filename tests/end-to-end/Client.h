#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "protocol/JSON.h"
#include "tests/end-to-end/Program.h"

namespace kelvane::tests {

/// What a tool answered.
struct Answer {
  bool isError = false;
  std::string text;

  bool operator==(const Answer&) const = default;
};
std::ostream& operator<<(std::ostream& out, const Answer& answer);

Answer success(std::string_view text);
Answer failure(std::string_view text);

/// A "tools/call" request as a line, without the line feed.
std::string callRequest(int id, std::string_view tool, const JSON::Object& arguments);

/// A "ping" request as a line, and the reply to it.
std::string ping(int id);
std::string pong(int id);

/// An MCP client with a server of its own.
class Client {
 public:
  /// Starts `kelvane serve` on a library.
  explicit Client(const std::string& library, bool allowingWrites = false, bool asNobody = false);
  explicit Client(const Start& start) : program_(start) {}

  Program& program() noexcept { return program_; }

  /// The reply to one request. Throws when there is none, or it is not for this request.
  JSON request(std::string_view method, const JSON::Object& params = {});

  /// What the tool answered.
  Answer call(std::string_view tool, const JSON::Object& arguments = {});

  /// The names of the tools on offer, in their order.
  std::vector<std::string> tools();

  /// Ends the server, which must have ended well and in silence.
  void finish();

 private:
  Program program_;
  int lastID_ = 0;
};

}  // namespace kelvane::tests
