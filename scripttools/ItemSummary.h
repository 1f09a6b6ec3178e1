#pragma once

#include <string_view>

#include "platform/QuorvelCore.h"
#include "protocol/JSON.h"

namespace kelvane {

/// An item as replies show it: {"id": identifier, "kind": "script" or "folder", "name": name}. Its children are not
/// included.
JSON::Object itemSummary(const quorvel::ScriptItem& item);

/// The same with "words": the number of words in the script's whole text, heading lines included. Linear in the text.
JSON::Object itemSummary(const quorvel::ScriptItem& script, std::string_view text);

}  // namespace kelvane
