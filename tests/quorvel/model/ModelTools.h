#pragma once

#include <chrono>
#include <functional>
#include <map>
#include <optional>
#include <ostream>
#include <string>
#include <string_view>

#include "protocol/JSON.h"
#include "tests/support/ModelHistory.h"

namespace quorvel::tests {

/// What a tool answered with: its text, or its failure's whole message.
struct Reply {
  std::string text;
  bool failed = false;

  bool operator==(const Reply&) const = default;
  friend std::ostream& operator<<(std::ostream& stream, const Reply& reply) {
    return stream << (reply.failed ? "failed: " : "answered: ") << reply.text;
  }
};

/// A version as it was kept.
struct ModelVersion {
  std::chrono::system_clock::time_point saved;
  std::string label;
  std::size_t words = 0;
  std::string text;
};

/// A library, its history and all the tools over them, told a second time: no disk, no database and no ranges of bytes,
/// only maps of texts. Slow and simple, for tests to compare with. It shares with the code what has tests of its own:
/// how names are cleaned and ordered, how words are counted and how a text is written in JSON.
class ModelTools {
 public:
  using Clock = std::function<std::chrono::system_clock::time_point()>;

  explicit ModelTools(Clock clock) : clock_(std::move(clock)) {}

  Reply call(std::string_view tool, const kelvane::JSON::Object& arguments);

  /// What lies below the root, by identifiers: a file's bytes, nothing for a folder. Other programs change it directly;
  /// the history does not follow them. What the library keeps for itself is not among it.
  std::map<std::string, std::optional<std::string>> files;

  const kelvane::tests::ModelHistory<ModelVersion>& history() const { return history_; }

 private:
  friend class ModelCall;

  Clock clock_;
  kelvane::tests::ModelHistory<ModelVersion> history_;
  bool hasOwnFolder_ = false;
};

/// The identifier of the folder that something is in; empty for the root.
std::string folderOf(const std::string& identifier);

}  // namespace quorvel::tests
