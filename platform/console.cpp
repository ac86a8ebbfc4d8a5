#include "platform/console.h"

#include <unistd.h>

namespace pictavo::platform {

bool StdoutIsTerminal() {
  return ::isatty(1) == 1;
}
bool StderrIsTerminal() {
  return ::isatty(2) == 1;
}

}  // namespace pictavo::platform
