#include "platform/time_format.h"

#include <gtest/gtest.h>

#include <chrono>
#include <string_view>

#include "support/time_zone.h"

namespace msp {
namespace {

using namespace std::chrono;

using test::TimeZone;

system_clock::time_point utc(year_month_day day, seconds time) { return sys_days(day) + time; }

TEST(FormatTime, writesTwoDigitsOfEverything) {
  const TimeZone zone("UTC0");
  struct Case {
    std::string_view name;
    system_clock::time_point time;
    std::string_view expected;
  };
  const Case cases[] = {
      {"an afternoon", utc(2024y / May / 31, 14h + 2min + 9s), "24-05-31 14:02:09"},
      {"single digits get a zero in front", utc(2024y / March / 5, 9h + 7min + 3s), "24-03-05 09:07:03"},
      {"midnight is hour 0", utc(2009y / January / 1, 0s), "09-01-01 00:00:00"},
      {"the last second of a century", utc(1999y / December / 31, 86'399s), "99-12-31 23:59:59"},
      {"a year 00", utc(2000y / February / 29, 0s), "00-02-29 00:00:00"},
      {"the start of the clock", system_clock::time_point(), "70-01-01 00:00:00"},
      {"a time before 1970", utc(1950y / June / 1, 1s), "50-06-01 00:00:01"},
      {"a time before 1900", utc(1899y / December / 31, 86'399s), "99-12-31 23:59:59"},
      {"a fraction of a second is cut off", utc(2024y / May / 31, 0s) + 999ms, "24-05-31 00:00:00"},
      {"before 1970 too the second that has begun counts", system_clock::time_point() - 1ms,
       "69-12-31 23:59:59"},
      {"a time after 2038", utc(2100y / January / 2, 3s), "00-01-02 00:00:03"},
  };
  for (const Case& row : cases) EXPECT_EQ(formatTime(row.time), row.expected) << row.name;
}

TEST(FormatTime, isInTheLocalTimeZoneWithItsSummerTime) {
  const TimeZone zone("CET-1CEST,M3.5.0,M10.5.0/3");
  EXPECT_EQ(formatTime(utc(2024y / January / 31, 23h + 30min)), "24-02-01 00:30:00");
  EXPECT_EQ(formatTime(utc(2024y / July / 31, 22h)), "24-08-01 00:00:00");
}

TEST(FormatTime, followsAChangeOfTheTimeZone) {
  const auto time = utc(2024y / May / 31, 12h);
  const TimeZone tokyo("JST-9");
  EXPECT_EQ(formatTime(time), "24-05-31 21:00:00");
  {
    const TimeZone newYork("EST5EDT,M3.2.0,M11.1.0");
    EXPECT_EQ(formatTime(time), "24-05-31 08:00:00");
  }
  EXPECT_EQ(formatTime(time), "24-05-31 21:00:00");
}

TEST(FormatClockTime, writesHoursAndMinutesOfTheLocalDay) {
  const TimeZone zone("CET-1CEST,M3.5.0,M10.5.0/3");
  EXPECT_EQ(formatClockTime(utc(2024y / January / 31, 8h + 5min + 59s)), "09:05");
  EXPECT_EQ(formatClockTime(utc(2024y / January / 31, 22h + 59min + 30s)), "23:59");
  EXPECT_EQ(formatClockTime(utc(2024y / January / 31, 22h + 59min + 30s) + 60s), "00:00");
  EXPECT_EQ(formatClockTime(utc(2024y / July / 31, 12h)), "14:00");
}

TEST(FormatTime, reachesBothEndsOfTheClock) {
  const TimeZone zone("UTC0");
  EXPECT_EQ(formatTime(system_clock::time_point::max()).size(), 17U);
  EXPECT_EQ(formatTime(system_clock::time_point::min()).size(), 17U);
}

}  // namespace
}  // namespace msp
