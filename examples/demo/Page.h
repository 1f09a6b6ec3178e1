#pragma once

#include <string>
#include <string_view>

#include "protocol/JSON.h"

namespace kelvane::demo {

/// What a person sees of the conversation, on standard output: plain text, with bold and dim letters on a terminal.
class Page {
 public:
  Page();

  /// A heading over the next part of the conversation.
  void heading(std::string_view text) const;
  /// What the client wants, in a sentence.
  void sentence(std::string_view text) const;
  /// A line that went to the server; a long one is cut, and says so.
  void sent(std::string_view line) const;
  /// What came back, made readable. Long lines are wrapped.
  void answer(std::string_view text) const;
  /// Something that is said to the reader.
  void remark(std::string_view text) const;

 private:
  bool inColor_;
};

/// Results made readable; all throw std::runtime_error when they are not what they should be. First those of the
/// requests "initialize" and "tools/list", then the texts that tools answer with.
std::string asIntroduction(const JSON& initialize);
std::string asCatalogue(const JSON& listTools);
std::string asTree(std::string_view listScripts);
std::string asChapters(std::string_view listChapters);
std::string asVersions(std::string_view listVersions);
std::string asSummary(std::string_view updateScript);

/// A text's beginning, up to the end of a paragraph, and how many words follow.
std::string beginning(std::string_view text, std::size_t paragraphs);

}  // namespace kelvane::demo
