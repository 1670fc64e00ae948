#include <gtest/gtest.h>

#include "contracts/IsoDate.h"

namespace vorna::contracts {
namespace {

using namespace std::chrono;

Timestamp at(year_month_day date, seconds time) {
  return sys_days{date} + time;
}

TEST(IsoDateTest, WritesUtcWithWholeSecondsAndZAndReadsItBack) {
  Timestamp time = at(2026y / November / 16, 20h + 25min + 15s);
  EXPECT_EQ(formatIsoDate(time), "2026-11-16T20:25:15Z");
  EXPECT_EQ(formatIsoDate(time + 999ms), "2026-11-16T20:25:15Z");
  EXPECT_EQ(formatIsoDate(Timestamp{} - 500ms), "1969-12-31T23:59:59Z");
  for (Timestamp read :
       {Timestamp{}, at(2024y / February / 29, 23h + 59min + 59s), at(1900y / January / 1, 0s),
        at(2262y / January / 1, 0s), wholeSecondsNow()}) {
    EXPECT_EQ(parseIsoDate(formatIsoDate(read)), read) << formatIsoDate(read);
  }
}

// Fractions, zones other than Z, other separators or case, values out of range
// (a leap second too) and years a Timestamp cannot hold.
TEST(IsoDateTest, RefusesEveryOtherForm) {
  for (const char* text :
       {"2026-11-16T20:25:15.000Z", "2026-11-16T20:25:15",   "2026-11-16T20:25:15+00:00",
        "2026-11-16T20:25:15z",     "2026-11-16t20:25:15Z",  "2026-11-16 20:25:15Z",
        "2026-11-16T20:25Z",        " 2026-11-16T20:25:15Z", "2026-11-16T20:25:15Z ",
        "2026-13-01T00:00:00Z",     "2026-00-01T00:00:00Z",  "2023-02-29T00:00:00Z",
        "2026-04-31T00:00:00Z",     "2026-11-16T24:00:00Z",  "2026-11-16T20:60:00Z",
        "2026-11-16T20:25:60Z",     "+026-11-16T20:25:15Z",  "2026-1a-16T20:25:15Z",
        "0001-01-01T00:00:00Z",     "9999-12-31T23:59:59Z",  ""}) {
    EXPECT_EQ(parseIsoDate(text), std::nullopt) << text;
  }
}

}  // namespace
}  // namespace vorna::contracts
