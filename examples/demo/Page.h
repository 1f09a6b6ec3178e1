#pragma once

#include <string>
#include <string_view>

#include "protocol/JSON.h"

namespace kelvane::demo {

/// Prints the conversation on standard output: plain text, in bold and dim letters on a terminal.
class Page {
 public:
  Page();

  /// A heading over the next part of the conversation.
  void heading(std::string_view text) const;
  /// A sentence about the next request.
  void sentence(std::string_view text) const;
  /// A line that was sent to the server. A long one is shortened, which is shown.
  void sent(std::string_view line) const;
  /// A reply in readable form. Long lines are wrapped.
  void answer(std::string_view text) const;
  /// A remark to the reader.
  void remark(std::string_view text) const;

 private:
  bool inColor_;
};

/// Results in readable form: those of the requests "initialize" and "tools/list", then the texts of tools. All throw
/// std::runtime_error if the result is not as expected.
std::string asIntroduction(const JSON& initialize);
std::string asCatalogue(const JSON& listTools);
std::string asTree(std::string_view listScripts);
std::string asChapters(std::string_view listChapters);
std::string asVersions(std::string_view listVersions);
std::string asSummary(std::string_view updateScript);

/// The first paragraphs of a text, and how many words follow.
std::string beginning(std::string_view text, std::size_t paragraphs);

}  // namespace kelvane::demo
