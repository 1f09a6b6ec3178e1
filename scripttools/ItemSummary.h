#pragma once

#include <string_view>

#include "platform/QuorvelCore.h"
#include "protocol/JSON.h"

namespace kelvane {

/// What replies say of an item: {"id": its identifier, "kind": "script" or "folder", "name": its name}.
JSON::Object itemSummary(const quorvel::ScriptItem& item);

/// The same with "words", the number of words of the script's text.
JSON::Object itemSummary(const quorvel::ScriptItem& script, std::string_view text);

}  // namespace kelvane
