#pragma once

#include <chrono>
#include <string>

namespace msp {

/// Hours and minutes in the machine's local time zone, "HH:mm", as shutdown(8) takes a time: "00:00" to
/// "23:59". A time the calendar cannot express gives "". Safe on any thread.
std::string formatClockTime(std::chrono::system_clock::time_point time);

/// The one date format of report and event log: "yy-MM-dd HH:mm:ss" in the machine's local time zone,
/// for instance "24-05-31 14:02:09". A time the calendar cannot express gives "". Safe on any thread.
std::string formatTime(std::chrono::system_clock::time_point time);

}  // namespace msp
