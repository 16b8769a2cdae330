#pragma once

#include <ctime>

// What the sources about dates share.

inline constexpr char const* kMonthNames[] = {"January",   "February", "March",    "April",
                                              "May",       "June",     "July",     "August",
                                              "September", "October",  "November", "December"};
inline constexpr char const* kAbbreviatedMonthNames[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                                         "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
inline constexpr char const* kDayNames[] = {"Sunday",   "Monday", "Tuesday", "Wednesday",
                                            "Thursday", "Friday", "Saturday"};
inline constexpr char const* kAbbreviatedDayNames[] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};

inline constexpr unsigned kSecondsPerDay = 86400;

// The current time in the process's time zone, with its offset from GMT.
inline tm GetLocalTime() noexcept {
  std::time_t const now = std::time(nullptr);
  tm local = {};
  localtime_r(&now, &local);
  return local;
}
