#include "settings/date_format.h"

#include <chrono>
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <mutex>

namespace pictavo::settings {
namespace {

constexpr const char* kMonthNames[] = {"January",   "February", "March",    "April",
                                       "May",       "June",     "July",     "August",
                                       "September", "October",  "November", "December"};
constexpr const char* kDayNames[] = {"Sunday",   "Monday", "Tuesday", "Wednesday",
                                     "Thursday", "Friday", "Saturday"};

char Lower(char c) {
  return (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c;
}

std::string Padded(int value, int width) {
  char buf[16];
  std::snprintf(buf, sizeof buf, "%0*d", width, value);
  return buf;
}

// True when `format` at `i` starts with `word`, letters compared without regard to case.
bool StartsWithNoCase(std::string_view format, size_t i, std::string_view word) {
  if (format.size() - i < word.size()) return false;
  for (size_t k = 0; k < word.size(); ++k)
    if (Lower(format[i + k]) != word[k]) return false;
  return true;
}

}  // namespace

std::string FormatDateTime(std::string_view format, const DateTimeParts& t) {
  std::string out;
  // "m" after an hour means minutes, also across separators as in "hh:mm".
  bool after_hour = false;
  size_t i = 0;
  while (i < format.size()) {
    const char c = Lower(format[i]);
    size_t run = 1;
    while (i + run < format.size() && Lower(format[i + run]) == c) ++run;
    switch (c) {
      case '"':
      case '\'': {
        size_t close = format.find(format[i], i + 1);
        if (close == std::string_view::npos) close = format.size();
        out.append(format.substr(i + 1, close - i - 1));
        i = close + 1;
        continue;
      }
      case 'y':
        after_hour = false;
        out += run >= 3 ? Padded(t.year, 4) : Padded(t.year % 100, 2);
        break;
      case 'm':
        if (after_hour && run <= 2) {
          out += Padded(t.minute, run == 1 ? 1 : 2);
        } else if (run >= 4) {
          out += kMonthNames[t.month - 1];
        } else if (run == 3) {
          out += std::string(kMonthNames[t.month - 1]).substr(0, 3);
        } else {
          out += Padded(t.month, static_cast<int>(run));
        }
        after_hour = false;
        i += run;
        continue;
      case 'd':
        after_hour = false;
        if (run >= 4)
          out += kDayNames[t.weekday];
        else if (run == 3)
          out += std::string(kDayNames[t.weekday]).substr(0, 3);
        else
          out += Padded(t.day, static_cast<int>(run));
        break;
      case 'h':
        out += Padded(t.hour, run >= 2 ? 2 : 1);
        i += run;
        after_hour = true;
        continue;
      case 'n':
        after_hour = false;
        out += Padded(t.minute, run >= 2 ? 2 : 1);
        break;
      case 's':
        after_hour = false;
        out += Padded(t.second, run >= 2 ? 2 : 1);
        break;
      case 'z':
        after_hour = false;
        out += Padded(t.millisecond, run >= 3 ? 3 : 1);
        break;
      case 'a':
        if (StartsWithNoCase(format, i, "am/pm")) {
          out += t.hour < 12 ? "am" : "pm";
          i += 5;
          continue;
        }
        if (StartsWithNoCase(format, i, "a/p")) {
          out += t.hour < 12 ? "a" : "p";
          i += 3;
          continue;
        }
        out.append(format.substr(i, run));
        break;
      default:
        out.append(format.substr(i, run));
        break;
    }
    i += run;
  }
  return out;
}

DateTimeParts LocalDateTime(int64_t unix_ms) {
  int64_t seconds = unix_ms / 1000;
  int64_t ms = unix_ms % 1000;
  if (ms < 0) {
    ms += 1000;
    --seconds;
  }
  const std::time_t tt = static_cast<std::time_t>(seconds);
  std::tm tm{};
  {
    // std::localtime shares one buffer within the process; this lock makes it safe here.
    static std::mutex lock;
    std::lock_guard<std::mutex> guard(lock);
    if (const std::tm* p = std::localtime(&tt)) tm = *p;
  }
  DateTimeParts t;
  t.year = tm.tm_year + 1900;
  t.month = tm.tm_mon + 1;
  t.day = tm.tm_mday;
  t.hour = tm.tm_hour;
  t.minute = tm.tm_min;
  t.second = tm.tm_sec;
  t.millisecond = static_cast<int>(ms);
  t.weekday = tm.tm_wday;
  return t;
}

DateTimeParts LocalNow() {
  using namespace std::chrono;
  return LocalDateTime(duration_cast<milliseconds>(system_clock::now().time_since_epoch()).count());
}

std::optional<DateTimeParts> FileLocalWriteTime(const std::string& path) {
  using namespace std::chrono;
  std::error_code ec;
  const std::filesystem::file_time_type written = std::filesystem::last_write_time(path, ec);
  if (ec) return std::nullopt;
  const auto sys = file_clock::to_sys(written);
  return LocalDateTime(duration_cast<milliseconds>(sys.time_since_epoch()).count());
}

}  // namespace pictavo::settings
