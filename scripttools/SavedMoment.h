#pragma once

#include <chrono>
#include <string>

namespace kelvane {

/// The moment a version was saved, as replies show it: "2025-03-01 14:05:09", the calendar date and time of day in GMT,
/// parts of a second dropped. The same for any locale and time zone of the process, and for moments before 1970.
std::string savedMoment(std::chrono::system_clock::time_point moment);

}  // namespace kelvane
