#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <string_view>

/// Moments as a person types and reads them.
namespace kelvane {

/// Whose clock a moment is told by.
enum class TimeZone { local, utc };

/// A moment to the second: "2026-11-21 20:13:05". "?" if the system cannot tell.
std::string shown(std::chrono::system_clock::time_point moment, TimeZone zone = TimeZone::local);

/// A moment for other programs (ISO 8601): "2026-11-21T20:13:05Z".
std::string encodedMoment(std::chrono::system_clock::time_point moment);

/// The moment that a person means by "2026-11-21", "2026-11-21 20:13", "2026-11-21 20:13:05", "today", "yesterday", or
/// an age such as "90 seconds", "30 minutes", "2 hours", "3 days" or "1 week", also without the space. A day begins at
/// midnight, or at its first hour where clocks skip midnight. Empty if it is none of these, or does not exist: that is
/// also so of a time that clocks skip.
std::optional<std::chrono::system_clock::time_point> parsedMoment(std::string_view typed, TimeZone zone,
                                                                  std::chrono::system_clock::time_point now);

/// The same, as a command's option has it. Throws UsageError if it is none.
std::chrono::system_clock::time_point typedMoment(const std::string& typed, TimeZone zone);

}  // namespace kelvane
