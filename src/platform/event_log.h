#pragma once

#include <functional>
#include <string>

/// Everybody logs; the log file itself belongs to the agent. Here stands only the sink that leads there.
namespace msp {

using EventSink = std::function<void(const std::string& message)>;

/// Where messages go from now on; an empty sink drops them. The program installs its log file first thing,
/// tests a capturing sink. Safe on any thread; returns the sink before.
EventSink setEventSink(EventSink sink);

/// One event for the log. Never fails. Safe on any thread; the sink is called on the caller's thread.
void logEvent(const std::string& message);

}  // namespace msp
