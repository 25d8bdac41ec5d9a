#pragma once

#include <tavrel_sdk/export.hpp>

#include <string>

namespace tavrel {

// The date as "yyyy:MM:dd'T'HH:mm:ssXXX" in the process's local time zone (TZ):
// 2026:03:09T14:05:33+01:00, or ...Z at offset zero. Fractions of a second are dropped.
TAVREL_EXPORT std::string localTimestamp(double secondsSince1970);

// "2026-03-09 14:05:33.250 process[pid:tid] ", the prefix of a log line, in local time.
TAVREL_EXPORT std::string logLinePrefix(double secondsSince1970);

}  // namespace tavrel
