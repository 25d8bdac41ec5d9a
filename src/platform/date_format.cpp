#include "platform/date_format.hpp"

#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cmath>
#include <cstdio>
#include <ctime>

namespace tavrel {
namespace {

std::tm localTime(double secondsSince1970, double* fraction) {
  const double whole = std::floor(secondsSince1970);
  if (fraction) *fraction = secondsSince1970 - whole;
  const std::time_t t = static_cast<std::time_t>(whole);
  std::tm tm{};
  localtime_r(&t, &tm);
  return tm;
}

}  // namespace

std::string localTimestamp(double secondsSince1970) {
  const std::tm tm = localTime(secondsSince1970, nullptr);
  char text[64];
  int n = std::snprintf(text, sizeof text, "%04d:%02d:%02dT%02d:%02d:%02d", tm.tm_year + 1900, tm.tm_mon + 1,
                        tm.tm_mday, tm.tm_hour, tm.tm_min, tm.tm_sec);
  std::string result(text, n > 0 ? static_cast<std::size_t>(n) : 0);
  const long offset = tm.tm_gmtoff;
  if (offset == 0) {
    result.push_back('Z');
  } else {
    // glibc's strftime has no "%:z".
    const long magnitude = offset < 0 ? -offset : offset;
    n = std::snprintf(text, sizeof text, "%c%02ld:%02ld", offset < 0 ? '-' : '+', magnitude / 3600 % 100,
                      magnitude % 3600 / 60);
    result.append(text, n > 0 ? static_cast<std::size_t>(n) : 0);
  }
  return result;
}

std::string logLinePrefix(double secondsSince1970) {
  double fraction = 0;
  const std::tm tm = localTime(secondsSince1970, &fraction);
  int millis = static_cast<int>(fraction * 1000.0);
  if (millis > 999) millis = 999;
  char text[160];
  std::snprintf(text, sizeof text, "%04d-%02d-%02d %02d:%02d:%02d.%03d %s[%d:%ld] ", tm.tm_year + 1900,
                tm.tm_mon + 1, tm.tm_mday, tm.tm_hour, tm.tm_min, tm.tm_sec, millis,
                program_invocation_short_name, static_cast<int>(getpid()),
                static_cast<long>(syscall(SYS_gettid)));
  return text;
}

}  // namespace tavrel
