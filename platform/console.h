// The process's console and environment, as the engine's views and the front end need them.
#pragma once

#include <string>

namespace pictavo::platform {

bool StdoutIsTerminal();
bool StderrIsTerminal();

// Sets an environment variable of this process (inherited by the programs it starts).
void SetEnvironmentVariable(const std::string& name, const std::string& value);
// The value of an environment variable of this process; "" when it is not set.
std::string EnvironmentVariable(const std::string& name);

}  // namespace pictavo::platform
