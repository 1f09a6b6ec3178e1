#include "program/Moments.h"

#include <array>
#include <charconv>
#include <cstdint>
#include <cstdio>
#include <ctime>

#include "program/Process.h"
#include "quorvel/files/SystemReason.h"

namespace kelvane {
namespace {

using Clock = std::chrono::system_clock;

std::optional<std::tm> fieldsOf(Clock::time_point moment, TimeZone zone) {
  const std::time_t seconds = Clock::to_time_t(std::chrono::floor<std::chrono::seconds>(moment));
  std::tm fields{};
  const auto* done = zone == TimeZone::utc ? ::gmtime_r(&seconds, &fields) : ::localtime_r(&seconds, &fields);
  if (done == nullptr) return std::nullopt;
  return fields;
}

// Empty for a moment that there is not, such as one on February 30th, or in the hour by which clocks are put forward.
std::optional<Clock::time_point> momentOf(const std::tm& fields, TimeZone zone) {
  std::tm normal = fields;
  normal.tm_isdst = -1;
  const std::time_t seconds = zone == TimeZone::utc ? ::timegm(&normal) : std::mktime(&normal);
  const auto shownAs = [](const std::tm& each) {
    return std::array{each.tm_year, each.tm_mon, each.tm_mday, each.tm_hour, each.tm_min};
  };
  if (shownAs(normal) != shownAs(fields)) return std::nullopt;
  return Clock::from_time_t(seconds);
}

// The first full hour of the day. Where clocks are put forward at midnight, the day has no midnight.
std::optional<Clock::time_point> startOfDay(std::tm day, TimeZone zone) {
  day.tm_min = day.tm_sec = 0;
  for (day.tm_hour = 0; day.tm_hour < 24; ++day.tm_hour) {
    if (const auto moment = momentOf(day, zone)) return moment;
  }
  return std::nullopt;
}

std::optional<Clock::time_point> startOfDay(Clock::time_point now, int daysBefore, TimeZone zone) {
  auto fields = fieldsOf(now, zone);
  if (!fields) return std::nullopt;
  std::tm noon = *fields;
  noon.tm_hour = 12;  // no clock is put forward or back at noon
  noon.tm_mday -= daysBefore;
  noon.tm_isdst = -1;
  if ((zone == TimeZone::utc ? ::timegm(&noon) : std::mktime(&noon)) == -1) return std::nullopt;
  return startOfDay(noon, zone);
}

// Reads digits and removes them from the front; empty unless there are `least` to `most` of them.
std::optional<int> number(std::string_view& text, std::size_t least, std::size_t most) {
  std::size_t size = 0;
  while (size < text.size() && size <= most && text[size] >= '0' && text[size] <= '9') ++size;
  if (size < least || size > most) return std::nullopt;
  int value = 0;
  std::from_chars(text.data(), text.data() + size, value);
  text.remove_prefix(size);
  return value;
}

bool skip(char character, std::string_view& text) {
  if (!text.starts_with(character)) return false;
  text.remove_prefix(1);
  return true;
}

// "2026-11-21", "2026-11-21 20:13" or "2026-11-21T20:13:05"
std::optional<Clock::time_point> dated(std::string_view text, TimeZone zone) {
  std::tm fields{};
  const auto year = number(text, 4, 4);
  if (!year || !skip('-', text)) return std::nullopt;
  const auto month = number(text, 1, 2);
  if (!month || !skip('-', text)) return std::nullopt;
  const auto day = number(text, 1, 2);
  if (!day || *month < 1 || *month > 12 || *day < 1) return std::nullopt;
  fields.tm_year = *year - 1900;
  fields.tm_mon = *month - 1;
  fields.tm_mday = *day;
  if (text.empty()) return startOfDay(fields, zone);
  if (skip(' ', text) || skip('T', text)) {
    const auto hour = number(text, 1, 2);
    if (!hour || !skip(':', text)) return std::nullopt;
    const auto minute = number(text, 2, 2);
    const auto second = skip(':', text) ? number(text, 2, 2) : 0;
    if (!minute || !second || *hour > 23 || *minute > 59 || *second > 59) return std::nullopt;
    fields.tm_hour = *hour;
    fields.tm_min = *minute;
    fields.tm_sec = *second;
  }
  if (!text.empty()) return std::nullopt;
  return momentOf(fields, zone);
}

// "2 hours"
std::optional<std::chrono::seconds> age(std::string_view text) {
  const auto count = number(text, 1, 6);
  if (!count) return std::nullopt;
  skip(' ', text);
  const struct {
    std::string_view name;
    std::chrono::seconds length;
  } units[] = {
      {"second", std::chrono::seconds(1)}, {"minute", std::chrono::minutes(1)},  {"hour", std::chrono::hours(1)},
      {"day", std::chrono::hours(24)},     {"week", std::chrono::hours(24) * 7},
  };
  for (const auto& [name, length] : units) {
    if (text == name || (text.starts_with(name) && text.substr(name.size()) == "s")) return *count * length;
  }
  return std::nullopt;
}

}  // namespace

std::string shown(Clock::time_point moment, TimeZone zone) {
  const auto fields = fieldsOf(moment, zone);
  if (!fields) return "?";
  char text[64];
  return {text, std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &*fields)};
}

std::string encodedMoment(Clock::time_point moment) {
  std::string text = shown(moment, TimeZone::utc);
  if (text.size() < 19) return text;
  text[text.size() - 9] = 'T';
  return text.append("Z");
}

std::optional<Clock::time_point> parsedMoment(std::string_view typed, TimeZone zone, Clock::time_point now) {
  if (typed == "today") return startOfDay(now, 0, zone);
  if (typed == "yesterday") return startOfDay(now, 1, zone);
  if (const auto past = age(typed)) return now - *past;
  return dated(typed, zone);
}

Clock::time_point typedMoment(const std::string& typed, TimeZone zone) {
  if (const auto moment = parsedMoment(typed, zone, Clock::now())) return *moment;
  throw UsageError(quorvel::inQuotes(typed) +
                   " is not a time. Type --since \"2 hours\", --since yesterday or --since 2026-11-21, for example.");
}

}  // namespace kelvane
