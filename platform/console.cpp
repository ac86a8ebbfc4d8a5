#include "platform/console.h"

#include <stdlib.h>
#include <unistd.h>

namespace pictavo::platform {

bool StdoutIsTerminal() {
  return ::isatty(1) == 1;
}
bool StderrIsTerminal() {
  return ::isatty(2) == 1;
}

std::string EnvironmentVariable(const std::string& name) {
  const char* value = ::getenv(name.c_str());
  return value ? std::string(value) : std::string();
}

void SetEnvironmentVariable(const std::string& name, const std::string& value) {
  ::setenv(name.c_str(), value.c_str(), 1);
}

}  // namespace pictavo::platform
