#include "platform/clock.h"

namespace pictavo::platform {

std::tm LocalTime(std::time_t t) {
  std::tm local{};
  ::localtime_r(&t, &local);
  return local;
}

}  // namespace pictavo::platform
