// Date-time formatting in the dialect that naming templates use (see docs/naming.md):
// yyyy yy  m mm mmm mmmm  d dd ddd dddd  h hh  n nn  s ss  z zzz  am/pm a/p, text in "" or ''
// copied as is; "m"/"mm" right after an hour stand for minutes. Letters are case-insensitive;
// any other character is copied.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace pictavo::settings {

struct DateTimeParts {
  int year = 1899, month = 12, day = 30;  // the zero date
  int hour = 0, minute = 0, second = 0, millisecond = 0;
  int weekday = 6;  // 0 = Sunday
};

std::string FormatDateTime(std::string_view format, const DateTimeParts& t);

// Local time of a moment given in milliseconds since the epoch. Thread-safe.
DateTimeParts LocalDateTime(int64_t unix_ms);
// The current local time.
DateTimeParts LocalNow();
// The last-write time of a file in local time; nullopt when it cannot be read.
std::optional<DateTimeParts> FileLocalWriteTime(const std::string& path);

}  // namespace pictavo::settings
