#pragma once

#include <string>
#include <string_view>

/// Promises that hold for every text and every line. Each function returns the promise that is broken, or an empty
/// string. The random tests and the fuzz targets share them.
namespace kelvane {

/// Of JSON texts: what is read and written reads back as the same value, and everything that reads JSON agrees.
std::string brokenByJSON(std::string_view text);

/// Of lines to a server with a few tools: a reply is one line of JSON, an envelope with nothing else in it, with the id
/// of the message. Only an unknown method without an id gets no reply.
std::string brokenByServer(std::string_view line);

}  // namespace kelvane
