#include "scripttools/SavedMoment.h"

#include <cstddef>

namespace kelvane {

namespace {

std::string padded(long long number, std::size_t digits) {
  std::string padded = std::to_string(number);
  if (padded.size() < digits) padded.insert(0, digits - padded.size(), '0');
  return padded;
}

}  // namespace

std::string savedMoment(std::chrono::system_clock::time_point moment) {
  // Not strftime, which depends on the locale. `floor` rounds moments before 1970 in the same direction as later ones.
  using namespace std::chrono;
  const auto second = floor<seconds>(moment);
  const auto day = floor<days>(second);
  const year_month_day date(day);
  const hh_mm_ss time(second - day);
  return padded(int(date.year()), 4) + "-" + padded(unsigned(date.month()), 2) + "-" + padded(unsigned(date.day()), 2) +
         " " + padded(time.hours().count(), 2) + ":" + padded(time.minutes().count(), 2) + ":" +
         padded(time.seconds().count(), 2);
}

}  // namespace kelvane
