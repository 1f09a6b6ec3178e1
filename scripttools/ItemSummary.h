#pragma once

#include <string_view>

#include "platform/QuorvelCore.h"
#include "protocol/JSON.h"

namespace kelvane {

/// An item as replies show it, without its children:
///
///     {"id":"Talks/Opening.md","kind":"script","name":"Opening"}
JSON::Object itemSummary(const quorvel::ScriptItem& item);

/// The same with "words", the number of words in the script's whole text. Unlike in the list of chapters, words of
/// heading lines count. Linear in the text.
JSON::Object itemSummary(const quorvel::ScriptItem& script, std::string_view text);

}  // namespace kelvane
