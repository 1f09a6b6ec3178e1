#pragma once

#include <chrono>
#include <string>

namespace kelvane {

/// The moment when a version was saved, as replies show it: "2025-03-01 14:05:09". Date and time are in GMT (ISO 8601
/// with a space in place of the "T"), and fractions of a second are dropped. The process's locale and time zone do not
/// matter. Moments before 1970 are permitted. Throws only std::bad_alloc.
std::string savedMoment(std::chrono::system_clock::time_point moment);

}  // namespace kelvane
