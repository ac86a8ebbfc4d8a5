// The process's console: whether a standard stream is a terminal.
#pragma once

namespace pictavo::platform {

bool StdoutIsTerminal();
bool StderrIsTerminal();

}  // namespace pictavo::platform
