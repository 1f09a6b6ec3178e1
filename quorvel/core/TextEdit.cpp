#include <string>
#include <string_view>

#include "platform/QuorvelCore.h"

namespace quorvel {

std::string TextEdit::applied(std::string_view text) const {
  std::string edited;
  edited.reserve(text.size() - (range.end - range.begin) + replacement.size());
  edited += text.substr(0, range.begin);
  edited += replacement;
  edited += text.substr(range.end);
  return edited;
}

}  // namespace quorvel
