#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kelvane {

/// A TOML 1.1 text as its own readers take it, with an eye to the table `mcp_servers.kelvane`, however that is written.
class TOMLText {
 public:
  /// Throws ConfigRefused, with the place and the reason, when the text is not TOML.
  explicit TOMLText(std::string_view text);
  TOMLText(TOMLText&&) noexcept;
  TOMLText& operator=(TOMLText&&) noexcept;
  ~TOMLText();

  /// The line, from 1, on which our entry begins; nothing when there is none.
  std::optional<std::size_t> entryLine() const;

  /// Our entry's command; nothing when there is no entry, or its command is no text.
  std::optional<std::string> command() const;

  /// The arguments of our entry's command, those that are texts; none when there is no entry.
  std::vector<std::string> arguments() const;

  /// What our entry sets HOME to for its command; nothing when it does not.
  std::optional<std::string> home() const;

  /// Whether our entry is switched off: its `enabled` is false.
  bool isSwitchedOff() const;

  /// Whether our entry is this command and no arguments, and nothing else.
  bool registersOnly(std::string_view command) const;

  /// Whether all keys but our entry are there in both, with the same values. A table of servers that has no other
  /// server, or is not there, is all the same.
  bool equalsBesidesEntry(const TOMLText& other) const;

 private:
  struct Document;
  std::unique_ptr<Document> document_;
};

}  // namespace kelvane
