#pragma once

#include <string>
#include <string_view>

/// What holds for every text and every line, whatever is in them. Each answers with the promise that is broken, or with
/// nothing. The random tests and the fuzz targets share them.
namespace kelvane {

/// Of JSON texts: what is read and written reads back as the same value, and everything that reads JSON agrees.
std::string brokenByJSON(std::string_view text);

/// Of lines to a server with a few tools: a reply is one line of JSON, an envelope with nothing else in it, and answers
/// the id of the message; only an unknown method without an id gets none.
std::string brokenByServer(std::string_view line);

}  // namespace kelvane
