#include "contracts/IsoDate.h"

#include <cstdio>

namespace vorna::contracts {
namespace {

using std::chrono::days;
using std::chrono::floor;
using std::chrono::seconds;

// The digits at text[at, at + count) as a number, or -1 when any is not a digit.
int digits(std::string_view text, size_t at, size_t count) {
  int value = 0;
  for (size_t i = at; i < at + count; ++i) {
    if (text[i] < '0' || text[i] > '9') {
      return -1;
    }
    value = value * 10 + (text[i] - '0');
  }
  return value;
}

}  // namespace

std::string formatIsoDate(Timestamp time) {
  const auto whole = floor<seconds>(time);
  const auto day = floor<days>(whole);
  const std::chrono::year_month_day date{day};
  const std::chrono::hh_mm_ss clock{whole - day};
  char text[32];
  std::snprintf(text, sizeof text, "%04d-%02u-%02uT%02d:%02d:%02dZ", static_cast<int>(date.year()),
                static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()),
                static_cast<int>(clock.hours().count()), static_cast<int>(clock.minutes().count()),
                static_cast<int>(clock.seconds().count()));
  return text;
}

std::optional<Timestamp> parseIsoDate(std::string_view text) {
  // YYYY-MM-DDTHH:MM:SSZ
  if (text.size() != 20 || text[4] != '-' || text[7] != '-' || text[10] != 'T' || text[13] != ':' ||
      text[16] != ':' || text[19] != 'Z') {
    return std::nullopt;
  }
  const int year = digits(text, 0, 4);
  const int month = digits(text, 5, 2);
  const int day = digits(text, 8, 2);
  const int hour = digits(text, 11, 2);
  const int minute = digits(text, 14, 2);
  const int second = digits(text, 17, 2);
  if (year < 0 || month < 0 || day < 0 || hour < 0 || hour > 23 || minute < 0 || minute > 59 ||
      second < 0 || second > 59) {
    return std::nullopt;
  }
  const std::chrono::year_month_day date{std::chrono::year{year},
                                         std::chrono::month{static_cast<unsigned>(month)},
                                         std::chrono::day{static_cast<unsigned>(day)}};
  if (!date.ok()) {
    return std::nullopt;
  }
  // Counted in seconds first: a four-digit year always fits there, but not
  // always in the clock's finer unit.
  const seconds sinceEpoch = std::chrono::sys_days{date}.time_since_epoch() +
                             std::chrono::hours{hour} + std::chrono::minutes{minute} +
                             seconds{second};
  constexpr auto kEarliest = std::chrono::ceil<seconds>(Timestamp::min().time_since_epoch());
  constexpr auto kLatest = floor<seconds>(Timestamp::max().time_since_epoch());
  if (sinceEpoch < kEarliest || sinceEpoch > kLatest) {
    return std::nullopt;
  }
  return Timestamp{std::chrono::duration_cast<Timestamp::duration>(sinceEpoch)};
}

Timestamp wholeSecondsNow() {
  return floor<seconds>(std::chrono::system_clock::now());
}

}  // namespace vorna::contracts
