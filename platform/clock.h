// The wall clock in local time.
#pragma once

#include <ctime>

namespace pictavo::platform {

// `t` broken down in the local time zone. Thread-safe (unlike std::localtime, which shares one
// buffer within the process).
std::tm LocalTime(std::time_t t);

}  // namespace pictavo::platform
